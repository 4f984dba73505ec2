#include "content/normalText.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "content/charset.h"

namespace netsift {
namespace {

constexpr auto foldOptions = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPAT | UTF8PROC_COMPOSE |
                                                            UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);
constexpr size_t longestDecomposition = 18; /* characters that one stands for at most */

/* What a byte is: itself in lower case, a blank, nothing (0), or more than that can say. */
constexpr char other = 1;
constexpr std::array<char, 256> formsWith(std::string_view stops) {
  std::array<char, 256> forms{};
  for (unsigned c = ' '; c < 127; c++) forms[c] = ' ';
  for (const char c : {'\t', '\n', '\v', '\f', '\r'}) forms[static_cast<unsigned>(c)] = ' ';
  for (unsigned c = '0'; c <= '9'; c++) forms[c] = static_cast<char>(c);
  for (unsigned c = 'a'; c <= 'z'; c++) forms[c] = forms[c - 32] = static_cast<char>(c);
  for (unsigned c = 128; c < 256; c++) forms[c] = other;
  for (const char c : stops) forms[static_cast<unsigned>(c)] = other;
  return forms;
}
constexpr auto asciiForms = formsWith(""), pageForms = formsWith("<&"), scriptForms = formsWith("<\\");

bool isAscii(char c) { return static_cast<signed char>(c) >= 0; }

void addBlank(NormalText &normal) {
  if (!normal.afterBlank) normal.text += ' ';
  normal.afterBlank = true;
}

void addAscii(NormalText &normal, char c) {
  const char form = asciiForms[static_cast<unsigned>(c)];
  if (form == ' ') return addBlank(normal);
  if (form == 0) return;
  normal.text += form;
  normal.afterBlank = false;
}

/* Adds bytes up to one that the table has no letter, digit or blank for; returns how many. */
size_t addRun(NormalText &normal, std::string_view bytes, const std::array<char, 256> &forms) {
  std::array<char, 512> run;
  char skipped = normal.afterBlank ? ' ' : 0;
  size_t i = 0;
  for (bool goesOn = true; goesOn && i < bytes.size();) {
    size_t length = 0;
    const size_t end = std::min(bytes.size(), i + run.size());
    for (; i < end; i++) {
      const char form = forms[static_cast<unsigned char>(bytes[i])];
      if (form <= other) break;
      run[length] = form;
      length += form != skipped ? 1 : 0;
      skipped = form == ' ' ? ' ' : 0;
    }
    goesOn = i == end;
    normal.text.append(run.data(), length);
  }
  normal.afterBlank = skipped == ' ';
  return i;
}

enum class Form { nothing, blank, symbol, letter };

/* Of a character as it stands after folding. */
Form formOf(utf8proc_int32_t codePoint) {
  if (codePoint >= 0x300 && codePoint <= 0x36F) return Form::nothing;
  switch (utf8proc_category(codePoint)) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO:
    case UTF8PROC_CATEGORY_CN:
    case UTF8PROC_CATEGORY_CO:
      return Form::letter;
    case UTF8PROC_CATEGORY_SO:
      return Form::symbol;
    case UTF8PROC_CATEGORY_CC: /* beyond ASCII */
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_ME:
      return Form::nothing;
    default:
      return Form::blank;
  }
}

void addFolded(NormalText &normal, utf8proc_int32_t codePoint) {
  if (codePoint < 128) {
    addAscii(normal, static_cast<char>(codePoint));
    return;
  }
  const Form form = formOf(codePoint);
  if (form == Form::nothing) return;
  if (form != Form::letter) addBlank(normal);
  if (form == Form::blank) return;
  utf8proc_uint8_t bytes[4];
  const auto length = utf8proc_encode_char(codePoint, bytes);
  normal.text.append(reinterpret_cast<const char *>(bytes), static_cast<size_t>(length));
  normal.afterBlank = false;
  if (form == Form::symbol) addBlank(normal);
}

/* What characters became that were met before, by their bytes. */
struct Folded {
  std::array<uint64_t, 2> source;
  uint8_t length; /* of the text; sources have at least a byte */
  char text[47];
};
Folded foldedBefore[1024];

Folded &slotOf(const std::array<uint64_t, 2> &source) {
  const uint64_t mixed = (source[0] ^ source[1] * 0x9E3779B97F4A7C15) * 0xD6E8FEB86659FD93;
  return foldedBefore[mixed >> 54];
}

/* A blank at the start or end is the end of a word. What is longer than may be open loses marks at its end, so that the
   text of the text is the same. */
std::string folded(const char *characters, size_t length) {
  std::array<utf8proc_int32_t, sizeof NormalText::open * longestDecomposition> points;
  auto count = utf8proc_decompose(reinterpret_cast<const utf8proc_uint8_t *>(characters),
                                  static_cast<utf8proc_ssize_t>(length), points.data(), points.size(), foldOptions);
  if (count < 0 || static_cast<size_t>(count) > points.size()) return "";
  count = utf8proc_normalize_utf32(points.data(), count, foldOptions);
  NormalText normal;
  normal.afterBlank = false;
  for (utf8proc_ssize_t i = 0; i < count; i++) {
    const size_t before = normal.text.size();
    addFolded(normal, points[static_cast<size_t>(i)]);
    if (normal.text.size() > sizeof normal.open) normal.text.resize(before);
  }
  return normal.text;
}

void addFragment(NormalText &normal, const char *text, size_t length) {
  if (length == 0) return;
  const size_t start = text[0] == ' ' && normal.afterBlank ? 1 : 0;
  normal.text.append(text + start, length - start);
  normal.afterBlank = text[length - 1] == ' ';
}

std::array<uint64_t, 2> sourceOf(const char *characters, size_t length) {
  std::array<uint64_t, 2> source{};
  std::memcpy(source.data(), characters, std::min(length, sizeof source));
  return source;
}

/* The open character with its marks, into the text. */
void closeCharacter(NormalText &normal) {
  if (normal.openLength == 0) return;
  const size_t length = std::exchange(normal.openLength, 0);
  const std::array<uint64_t, 2> source = sourceOf(normal.open, length);
  const bool isShort = length <= sizeof source;
  Folded &slot = slotOf(source);
  if (isShort && slot.source == source) return addFragment(normal, slot.text, slot.length);
  const std::string text = folded(normal.open, length);
  addFragment(normal, text.data(), text.size());
  if (!isShort || text.size() > sizeof slot.text) return;
  slot.source = source;
  slot.length = static_cast<uint8_t>(text.size());
  std::memcpy(slot.text, text.data(), text.size());
}

/* Whether a vowel or an end of a Hangul syllable, as it stands or once it is folded. */
bool endsSyllable(utf8proc_int32_t codePoint) {
  const bool isCompatible =
      (codePoint >= 0x3131 && codePoint <= 0x318E) || (codePoint >= 0xFFA1 && codePoint <= 0xFFDC);
  int boundary = 0;
  if (isCompatible) utf8proc_decompose_char(codePoint, &codePoint, 1, foldOptions, &boundary);
  return codePoint >= 0x1160 && codePoint <= 0x11FF;
}

/* Whether a character may change the one before it. */
bool continues(utf8proc_int32_t codePoint, const utf8proc_property_t &property) {
  if (property.combining_class != 0) return true;
  const auto category = property.category;
  if (category == UTF8PROC_CATEGORY_MN || category == UTF8PROC_CATEGORY_MC || category == UTF8PROC_CATEGORY_ME) {
    return true;
  }
  const bool isHalfWidthMark = codePoint == 0xFF9E || codePoint == 0xFF9F;
  return isHalfWidthMark || endsSyllable(codePoint);
}

/* A mark behind an ASCII letter takes that back out of the text. */
void reopen(NormalText &normal) {
  if (normal.openLength > 0 || normal.afterBlank || normal.text.empty() || !isAscii(normal.text.back())) return;
  normal.open[normal.openLength++] = normal.text.back();
  normal.text.pop_back();
}

void addOne(NormalText &normal, const char *bytes, size_t length, utf8proc_int32_t codePoint) {
  const utf8proc_property_t *property = utf8proc_get_property(codePoint);
  if (property->ignorable || property->category == UTF8PROC_CATEGORY_CC) return;
  if (continues(codePoint, *property)) {
    reopen(normal);
  } else {
    closeCharacter(normal);
  }
  if (normal.openLength + length > sizeof normal.open) return;
  std::memcpy(normal.open + normal.openLength, bytes, length);
  normal.openLength += length;
}

/* A character of two or three bytes that nothing before it changes, as it is when nothing behind it does. */
struct Simple {
  uint8_t
      kind; /* 0: not looked up yet; then 1: neither; 2: one that may change those before it; else simpleKind and its
                   length */
  char text[3];
};
constexpr uint8_t complicated = 1, mark = 2, simpleKind = 3;
Simple simpleForms[0x10000];

Simple lookUp(std::string_view character, utf8proc_int32_t codePoint) {
  const utf8proc_property_t *property = utf8proc_get_property(codePoint);
  if (property->ignorable || property->category == UTF8PROC_CATEGORY_CC) return {complicated, {}};
  if (continues(codePoint, *property)) return {mark, {}};
  const std::string text = folded(character.data(), character.size());
  Simple simple{complicated, {}};
  if (text.size() > sizeof simple.text) return simple;
  simple.kind = static_cast<uint8_t>(simpleKind + text.size());
  std::memcpy(simple.text, text.data(), text.size());
  return simple;
}

/* What stands at the front of text that is not ASCII; null for what has four bytes. */
const Simple *simpleAt(std::string_view characters, size_t &length) {
  const auto byte = [&](size_t i) { return static_cast<uint32_t>(static_cast<uint8_t>(characters[i])); };
  length = byte(0) < 0xE0 ? 2 : 3;
  if (byte(0) < 0xC0 || byte(0) >= 0xF0 || length > characters.size()) return nullptr;
  const uint32_t codePoint = length == 2 ? (byte(0) & 0x1F) << 6 | (byte(1) & 0x3F)
                                         : (byte(0) & 0xF) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
  Simple &simple = simpleForms[codePoint];
  if (simple.kind == 0) simple = lookUp(characters.substr(0, length), static_cast<utf8proc_int32_t>(codePoint));
  return &simple;
}

bool isSimple(const Simple *simple) { return simple != nullptr && simple->kind >= simpleKind; }

/* Where the marks end that stand from `at` on, as far as they may with what they change be looked up. `next` becomes
   what follows, null for ASCII, and `size` its length. False when what follows may have to do with them. */
bool skipMarks(std::string_view characters, const std::array<char, 256> &forms, size_t &at, const Simple *&next,
               size_t &size) {
  size = 0;
  next = nullptr;
  for (const size_t last = at + sizeof Folded::source; at < characters.size() && at <= last; at += size) {
    if (isAscii(characters[at])) {
      next = nullptr;
      size = 0;
      return forms[static_cast<unsigned char>(characters[at])] > other;
    }
    next = simpleAt(characters.substr(at), size);
    if (next == nullptr || next->kind != mark) return isSimple(next);
  }
  return false;
}

/* What a character with its marks became before; null when it was not met, or begins with a blank. */
const Folded *foldedWithMarks(const char *characters, size_t length) {
  if (length > sizeof Folded::source) return nullptr;
  const std::array<uint64_t, 2> source = sourceOf(characters, length);
  const Folded &slot = slotOf(source);
  return slot.source == source && slot.length > 0 && slot.text[0] != ' ' ? &slot : nullptr;
}

/* Adds the simple characters at the front, and marks behind them that were met there before, if another simple one
   follows or ASCII that the table has a letter, digit or blank for; returns how many bytes they have. */
size_t addSimple(NormalText &normal, std::string_view characters, const std::array<char, 256> &forms) {
  std::array<char, 512> run;
  size_t length = 0, at = 0, next = 0;
  const Simple *simple = simpleAt(characters, next), *following;
  if (!isSimple(simple)) return 0;
  closeCharacter(normal);
  bool afterBlank = normal.afterBlank;
  while (isSimple(simple) && length + sizeof Folded::text <= run.size()) {
    size_t end = next, size;
    if (!skipMarks(characters, forms, end, following, size)) break;
    if (end > next) {
      const Folded *whole = foldedWithMarks(characters.data() + at, end - at);
      if (whole == nullptr) break;
      std::memcpy(run.data() + length, whole->text, sizeof whole->text);
      length += whole->length;
      afterBlank = run[length - 1] == ' ';
    }
    for (uint8_t i = 0; end == next && i < simple->kind - simpleKind; i++) {
      if (simple->text[i] != ' ' || !afterBlank) run[length++] = simple->text[i];
      afterBlank = simple->text[i] == ' ';
    }
    at = end;
    next = end + size;
    simple = following;
  }
  normal.text.append(run.data(), length);
  normal.afterBlank = afterBlank;
  return at;
}

}  // namespace

void addText(NormalText &normal, std::string_view characters) {
  while (!characters.empty()) {
    if (isAscii(characters[0])) {
      const bool isControl =
          asciiForms[static_cast<unsigned char>(characters[0])] == 0; /* nothing, even before a mark */
      if (!isControl) closeCharacter(normal);
      characters.remove_prefix(isControl ? 1 : addRun(normal, characters, asciiForms));
      continue;
    }
    characters.remove_prefix(addSimple(normal, characters, asciiForms));
    if (characters.empty() || isAscii(characters[0])) continue;
    utf8proc_int32_t codePoint;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t *>(characters.data()),
                                         static_cast<utf8proc_ssize_t>(characters.size()), &codePoint);
    if (length > 0) addOne(normal, characters.data(), static_cast<size_t>(length), codePoint);
    characters.remove_prefix(static_cast<size_t>(std::max<utf8proc_ssize_t>(length, 1)));
  }
}

size_t addPlain(NormalText &normal, std::string_view characters, bool inScript) {
  const auto &forms = inScript ? scriptForms : pageForms;
  size_t at = 0, added = 1;
  while (added > 0 && at < characters.size()) {
    const std::string_view rest = characters.substr(at);
    if (!isAscii(rest[0])) {
      added = addSimple(normal, rest, forms);
    } else if (forms[static_cast<unsigned char>(rest[0])] <= other) {
      break;
    } else {
      closeCharacter(normal);
      added = addRun(normal, rest, forms);
    }
    at += added;
  }
  return at;
}

void addCharacter(NormalText &normal, uint32_t codePoint) {
  if (codePoint < 128) {
    if (asciiForms[codePoint] != 0) closeCharacter(normal);
    return addAscii(normal, static_cast<char>(codePoint));
  }
  utf8proc_uint8_t bytes[4];
  if (!utf8proc_codepoint_valid(static_cast<utf8proc_int32_t>(codePoint))) codePoint = 0xFFFD;
  const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(codePoint), bytes);
  addText(normal, {reinterpret_cast<const char *>(bytes), static_cast<size_t>(length)});
}

void endWord(NormalText &normal) {
  closeCharacter(normal);
  addBlank(normal);
}

size_t settledLength(const NormalText &normal) {
  const bool mayChange = normal.openLength == 0 && !normal.afterBlank && !normal.text.empty();
  return normal.text.size() - (mayChange && isAscii(normal.text.back()) ? 1 : 0);
}

std::string normalPhrase(std::string_view phrase) {
  std::string characters;
  Decoder decoder;
  decodeText(decoder, phrase, true, characters);
  NormalText normal;
  normal.afterBlank = false;
  addText(normal, characters);
  closeCharacter(normal);
  return normal.text;
}

}  // namespace netsift
