#include "http/strictUpload.h"

#include <algorithm>

#include "http/strictField.h"
#include "http/strictForward.h"

namespace netsift {
namespace {

constexpr std::string_view fieldName = "content-disposition";
constexpr std::string_view parameterName = "filename";
constexpr size_t longestField = 16384; /* one that has not ended by then counts as an upload */
constexpr std::string_view blanks = " \t";

/* The field's text, up to the first line end that no blank follows. */
std::string_view fieldText(std::string_view rest) {
  rest = rest.substr(0, longestField + 1);
  for (size_t end = 0; (end = rest.find('\n', end)) != rest.npos; end++) {
    const bool isLast = end + 1 >= rest.size(); /* of all there is, or of what is looked at */
    if (isLast ? rest.size() <= longestField : blanks.find(rest[end + 1]) == blanks.npos) return rest.substr(0, end);
  }
  return rest;
}

size_t findIgnoringCase(std::string_view text, std::string_view word, size_t from) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  const auto found = std::search(text.begin() + static_cast<std::ptrdiff_t>(std::min(from, text.size())), text.end(),
                                 word.begin(), word.end(), [&](char a, char b) { return lower(a) == b; });
  return found == text.end() ? text.npos : static_cast<size_t>(found - text.begin());
}

/* What follows the parameter's name: an optional "*", or "*0" and the like (RFC 2231), "=", and a value that is not
   empty. */
bool hasValue(std::string_view rest) {
  if (rest.starts_with('*')) rest.remove_prefix(std::min(rest.find_first_not_of("*0123456789"), rest.size()));
  rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
  if (!rest.starts_with('=')) return false;
  rest.remove_prefix(1);
  rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
  return !rest.empty() && !rest.starts_with("\"\"") && rest.front() != ';' && rest.front() != '\r';
}

bool namesFile(std::string_view field) {
  for (size_t at = 0; (at = findIgnoringCase(field, parameterName, at)) != field.npos; at++) {
    if (hasValue(field.substr(at + parameterName.size()))) return true;
  }
  return false;
}

constexpr size_t overlap = longestField + 32; /* of two windows: the longest field, and its name */

/* The next bytes of a window, of which then only the overlap is kept. */
bool addToWindow(UploadWindow &window, std::string &bytes, std::string_view piece) {
  bytes.append(piece);
  const bool found = namesUpload(bytes);
  window.sawField = window.sawField || findIgnoringCase(bytes, fieldName, 0) != bytes.npos;
  if (bytes.size() > overlap) bytes.erase(0, bytes.size() - overlap);
  return found;
}

bool lookThrough(UploadWindow &window, std::string_view piece) {
  if (!window.sawZero && piece.find('\0') != piece.npos) {
    window.sawZero = true;
    window.withoutZeros = window.bytes;
  }
  if (addToWindow(window, window.bytes, piece)) return true;
  if (!window.sawZero) return false;
  std::string rest(piece);
  std::erase(rest, '\0');
  return addToWindow(window, window.withoutZeros, rest);
}

bool lookThroughDecoded(UploadLook &look, std::string_view piece) {
  char text[16384];
  for (size_t used = 0, produced = sizeof text; !piece.empty() || produced == sizeof text;) {
    const Parse answer = decodeCodings(look.codings, piece, used, text, sizeof text, produced);
    if (answer == Parse::bad || lookThrough(look.decoded, {text, produced})) return true;
    piece.remove_prefix(used);
  }
  return false;
}

/* Whether a type's character set, where it names one, writes ASCII as ASCII. */
bool isAsciiBased(std::string_view type) {
  const size_t name = findIgnoringCase(type, "charset", 0);
  if (name == type.npos) return true;
  std::string_view value = type.substr(name + std::string_view("charset").size());
  value.remove_prefix(std::min(value.find_first_not_of(" \t=\"'*"), value.size()));
  constexpr std::string_view sets[] = {"utf-8", "utf8", "us-ascii", "iso-8859-", "windows-125"};
  return std::any_of(std::begin(sets), std::end(sets),
                     [value](std::string_view set) { return equalsIgnoringCase(value.substr(0, set.size()), set); });
}

}  // namespace

void beginLook(UploadLook &look, const HeaderLine *first) {
  const ContentCodings codings = readContentCodings(first);
  startCodings(look.codings, codings, true);
  std::string type;
  look.counts = !codings.known || !readMediaType(first, type);
  look.isForm = type == "multipart/form-data";
  if (!type.starts_with("multipart/")) return;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (isField(line, "Content-Type:") && !isAsciiBased(fieldValue(line, "Content-Type:"))) look.counts = true;
  }
}

bool showsUpload(UploadLook &look, std::string_view piece) {
  if (look.counts || lookThrough(look.asItCame, piece)) return true;
  return look.codings.count > 0 && lookThroughDecoded(look, piece);
}

bool endsUnread(const UploadLook &look) {
  if (look.codings.count == 0) return look.isForm && !look.asItCame.sawField;
  return finishCodings(look.codings) == Parse::bad || (look.isForm && !look.decoded.sawField);
}

bool namesUpload(std::string_view bytes) {
  for (size_t at = 0; (at = findIgnoringCase(bytes, fieldName, at)) != bytes.npos; at++) {
    const std::string_view field = fieldText(bytes.substr(at + fieldName.size()));
    const size_t colon = field.find_first_not_of(blanks);
    const bool neverEnds = field.size() > longestField && field[std::min(colon, longestField)] == ':';
    if (neverEnds || namesFile(field)) return true;
  }
  return false;
}

}  // namespace netsift
