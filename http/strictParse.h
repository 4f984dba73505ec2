/* What the strict parsers share: their answer, their faults, and the characters of tokens. Internal to the library. */
#ifndef NETSIFT_HTTP_STRICTPARSE_H
#define NETSIFT_HTTP_STRICTPARSE_H

#include <array>
#include <string_view>

namespace netsift {

/* What a parser fed by pieces says: it takes more, it refuses (and is not fed again), it has the whole. */
enum class Parse { more, bad, done };

/* Why a message is refused: the status code that says so, and a sentence for the error page. Status 0: it is not. */
struct StrictFault {
  int status;
  const char *text;
};

constexpr bool isAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/* RFC 9110 section 5.6.2 */
constexpr std::array<bool, 256> tokenCharacters = [] {
  std::array<bool, 256> table{};
  for (const char mark : std::string_view("-!#$%&'*+.^_`|~")) table[static_cast<unsigned char>(mark)] = true;
  for (unsigned c = 0; c < 128; c++) table[c] |= isAlphanumeric(static_cast<char>(c));
  return table;
}();

constexpr bool isTokenCharacter(char c) { return tokenCharacters[static_cast<unsigned char>(c)]; }

constexpr bool isToken(std::string_view text) {
  for (const char c : text) {
    if (!isTokenCharacter(c)) return false;
  }
  return !text.empty();
}

}  // namespace netsift

#endif
