#include "util/escape.h"

#include <utf8proc.h>

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

constexpr char digits[] = "0123456789ABCDEF";

std::string hexEscape(char c) {
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

std::string jsonEscape(std::string_view text) {
  std::string escaped;
  while (!text.empty()) {
    utf8proc_int32_t point = 0;
    const auto *bytes = reinterpret_cast<const utf8proc_uint8_t *>(text.data());
    const auto length = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size()), &point);
    const std::string_view character = text.substr(0, length > 0 ? static_cast<size_t>(length) : 1);
    const bool isControl = point < 0x20 || (point >= 0x7F && point < 0xA0) || point == 0x2028 || point == 0x2029;
    if (length <= 0) {
      escaped += "\\uFFFD";
    } else if (isControl) {
      escaped += "\\u";
      for (const int shift : {12, 8, 4, 0}) escaped += digits[point >> shift & 15];
    } else {
      if (point == '"' || point == '\\') escaped += '\\';
      escaped += character;
    }
    text.remove_prefix(character.size());
  }
  return escaped;
}

std::string urlEscape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain = byte > ' ' && byte < 0x7F && c != '"' && c != '\\';
    if (isPlain) {
      escaped += c;
    } else {
      escaped.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
  }
  return escaped;
}

}  // namespace netsift
