#include "util/escape.h"

#include <span>

namespace netsift {
namespace {

struct Escape {
  char c;
  std::string_view text;
};

constexpr Escape htmlEscapes[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"},
};
constexpr Escape logEscapes[] = {{'"', "\\\""}, {'\\', "\\\\"}, {'\r', "\\r"}, {'\n', "\\n"}, {'\t', "\\t"}};

/* Empty for a character that has no escape. */
std::string_view findEscape(std::span<const Escape> escapes, char c) {
  for (const Escape &escape : escapes) {
    if (escape.c == c) return escape.text;
  }
  return {};
}

/* Terminals obey U+0080 to U+009F, which UTF-8 writes as C2 and the byte. */
bool beginsControlCharacter(std::string_view text) {
  if (text.size() < 2 || text[0] != '\xC2') return false;
  const auto second = static_cast<unsigned char>(text[1]);
  return second >= 0x80 && second <= 0x9F;
}

std::string hexEscape(char c) {
  constexpr char digits[] = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  return {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
}

}  // namespace

std::string htmlEscape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    const std::string_view escape = findEscape(htmlEscapes, c);
    escaped += escape.empty() ? std::string_view(&c, 1) : escape;
  }
  return escaped;
}

std::string logEscape(std::string_view text) {
  std::string escaped;
  for (size_t hexadecimal = 0; !text.empty(); text.remove_prefix(1)) {
    const char c = text.front();
    const std::string_view escape = findEscape(logEscapes, c);
    if (beginsControlCharacter(text)) hexadecimal = 2;
    if (hexadecimal > 0 || (escape.empty() && ((c >= 0 && c < 0x20) || c == 0x7F))) {
      escaped += hexEscape(c);
      hexadecimal -= hexadecimal > 0 ? 1 : 0;
    } else {
      escaped += escape.empty() ? std::string_view(&c, 1) : escape;
    }
  }
  return escaped;
}

}  // namespace netsift
