#include "pages/htmlTemplate.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "state/connection.h"
#include "state/settings.h"
#include "util/escape.h"
#include "util/file.h"

namespace netsift {
namespace {

constexpr int endByte = 255;
constexpr long substitutionRoom = 201; /* beyond the file's size, before the page has to grow */
constexpr long mostReserved = 1 << 20; /* whatever size the file claims */
constexpr size_t shownUrl = 50;

std::string_view textOf(const char *text) { return text == nullptr ? std::string_view() : std::string_view(text); }

/* The log's stamp ends in ": ", which is no part of what a log is searched for. */
std::string_view reference() {
  std::string_view stamp = textOf(errorcode);
  while (EscapeText == 1 && !stamp.empty() && (stamp.back() == ' ' || stamp.back() == ':')) stamp.remove_suffix(1);
  return stamp;
}

std::string_view substitution(int selector) {
  switch (selector) {
    case 'r':
      return reason;
    case 'u':
      return textOf(url).substr(0, shownUrl);
    case 'a':
      return textOf(mailto);
    case 'e':
      return reference();
    case 'i':
      return requestReference();
    default:
      return {};
  }
}

std::string fill(FILE *file, size_t expected) {
  std::string page;
  page.reserve(expected);
  for (int byte; (byte = getc_unlocked(file)) != EOF && byte != endByte;) {
    if (byte == '%') {
      const std::string_view text = substitution(getc_unlocked(file));
      if (EscapeText == 1) {
        page += htmlEscape(text);
      } else {
        page += text;
      }
    } else {
      page += static_cast<char>(byte);
    }
  }
  return page;
}

}  // namespace
}  // namespace netsift

char *readTemplate(const char *path, int32_t *length) {
  const long size = get_file_size(path);
  FILE *file = fopen(path, "re");
  if (file == nullptr) return nullptr;
  const long expected = std::clamp(size, 0L, netsift::mostReserved) + netsift::substitutionRoom;
  const std::string page = netsift::fill(file, static_cast<size_t>(expected));
  const bool unreadable = page.empty() && ferror(file) != 0;
  fclose(file);
  if (unreadable) return nullptr;
  if (length != nullptr) *length = static_cast<int32_t>(page.size()) - 1;
  char *text = static_cast<char *>(std::malloc(page.size() + 1));
  if (text == nullptr) {
    dprintf(1, "memory allocation failed in readTemplate\n");
    return nullptr;
  }
  std::memcpy(text, page.c_str(), page.size() + 1);
  return text;
}
