#include "http/strictUpload.h"

#include <algorithm>

#include "http/strictField.h"

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

}  // namespace

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
