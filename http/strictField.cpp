#include "http/strictField.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "http/httpHeader.h"

namespace netsift {
namespace {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const size_t start = text.find_first_not_of(blanks);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(blanks) - start + 1);
}

/* A head that cannot be rewritten must not be sent as it stands. */
char *allocateText(size_t size) {
  char *text = static_cast<char *>(std::malloc(size));
  if (text == nullptr) std::abort();
  return text;
}

}  // namespace

bool isField(const HeaderLine *line, std::string_view nameWithColon) {
  return line->text != nullptr && strncasecmp(line->text, nameWithColon.data(), nameWithColon.size()) == 0;
}

std::string_view fieldValue(const HeaderLine *line, std::string_view nameWithColon) {
  return trimmed(std::string_view(line->text).substr(nameWithColon.size()));
}

bool equalsIgnoringCase(std::string_view text, std::string_view other) {
  return text.size() == other.size() && strncasecmp(text.data(), other.data(), text.size()) == 0;
}

std::string_view takeElement(std::string_view &list) {
  const size_t comma = list.find(',');
  const std::string_view element = trimmed(list.substr(0, comma));
  list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
  return element;
}

bool hasListToken(std::string_view list, std::string_view token) {
  while (!list.empty()) {
    if (equalsIgnoringCase(takeElement(list), token)) return true;
  }
  return false;
}

bool keepsConnection(const HeaderLine *first, bool byDefault) {
  bool keep = byDefault;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    for (const char *name : {"Connection:", "Proxy-Connection:"}) {
      if (!isField(line, name)) continue;
      if (hasListToken(fieldValue(line, name), "close")) return false;
      if (hasListToken(fieldValue(line, name), "keep-alive")) keep = true;
    }
  }
  return keep;
}

void removeField(Header &header, std::string_view nameWithColon) {
  if (header.first == nullptr) return;
  for (HeaderLine *before = header.first; before->next != nullptr;) {
    HeaderLine *line = before->next;
    if (!isField(line, nameWithColon)) {
      before = line;
      continue;
    }
    before->next = line->next;
    destroyHeaderLine(line);
  }
}

void insertField(Header &header, std::string_view field) {
  if (header.first == nullptr) return;
  HeaderLine *line = createHeaderLine();
  if (line == nullptr) std::abort();
  setLine(line, field);
  line->next = header.first->next;
  header.first->next = line;
}

void setLine(HeaderLine *line, std::string_view text) {
  char *copy = allocateText(text.size() + 3);
  std::memcpy(copy, text.data(), text.size());
  std::memcpy(copy + text.size(), "\r\n", 3);
  std::free(line->text);
  line->text = copy;
}

}  // namespace netsift
