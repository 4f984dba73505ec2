#include "content/utf7.h"

#include <utf8proc.h>

namespace netsift {
namespace {

constexpr int replacement = 0xFFFD;

void add(int codePoint, std::string &characters) {
  utf8proc_uint8_t bytes[4];
  const auto length = utf8proc_encode_char(codePoint, bytes);
  characters.append(reinterpret_cast<const char *>(bytes), static_cast<size_t>(length));
}

void endHigh(Utf7 &state, std::string &characters) {
  if (state.high != 0) add(replacement, characters);
  state.high = 0;
}

void addUnit(Utf7 &state, uint16_t unit, std::string &characters) {
  const bool isLow = unit >= 0xDC00 && unit < 0xE000;
  if (isLow && state.high != 0) {
    add(0x10000 + ((state.high - 0xD800) << 10) + (unit - 0xDC00), characters);
    state.high = 0;
    return;
  }
  endHigh(state, characters);
  if (unit >= 0xD800 && unit < 0xDC00) {
    state.high = unit;
  } else {
    add(isLow ? replacement : unit, characters);
  }
}

int base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  return c == '+' ? 62 : c == '/' ? 63 : -1;
}

/* Whether the byte is of the run; one that ends it may stand for itself. */
bool takeCoded(Utf7 &state, char c, std::string &characters) {
  const int value = base64Value(c);
  if (value < 0) return false;
  state.bits = (state.bits << 6 | static_cast<uint32_t>(value)) & 0x3FFFFF;
  state.bitCount += 6;
  if (state.bitCount < 16) return true;
  state.bitCount -= 16;
  addUnit(state, static_cast<uint16_t>(state.bits >> state.bitCount), characters);
  return true;
}

}  // namespace

void readUtf7(Utf7 &state, std::string_view bytes, bool isLast, std::string &characters) {
  for (const char c : bytes) {
    const bool opens = state.isOpening;
    state.isOpening = false;
    if (state.isCoded && takeCoded(state, c, characters)) continue;
    const bool closes = state.isCoded && c == '-';
    if (state.isCoded) endHigh(state, characters);
    state.isCoded = false;
    if (closes) {
      if (opens) characters += '+';
    } else if (c == '+') {
      state = {.isCoded = true, .isOpening = true};
    } else if (static_cast<signed char>(c) < 0) {
      add(replacement, characters);
    } else {
      characters += c;
    }
  }
  if (isLast) endHigh(state, characters);
}

}  // namespace netsift
