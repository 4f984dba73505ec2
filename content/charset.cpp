#include "content/charset.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

namespace netsift {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

/* -- names -- */

/* Names for which browsers have another meaning than iconv, those of the first column in ours. */
struct Renamed {
  std::string_view converter;
  std::string_view names; /* between blanks */
};
constexpr Renamed renamed[] = {
    {"", " utf-8 utf8 unicode-1-1-utf-8 unicode11utf8 unicode20utf8 x-unicode20utf8 utf-32 utf-32le utf-32be ucs-4 "},
    {"CP1252",
     " iso-8859-1 iso8859-1 iso_8859-1 iso88591 iso-ir-100 latin1 l1 ascii us-ascii ansi_x3.4-1968 cp819 ibm819 "
     "csisolatin1 iso_8859-1:1987 windows-1252 cp1252 x-cp1252 "},
    {"CP1254", " iso-8859-9 iso8859-9 iso_8859-9 iso88599 latin5 l5 csisolatin5 windows-1254 cp1254 x-cp1254 "},
    {"CP874", " iso-8859-11 iso8859-11 iso885911 tis-620 windows-874 dos-874 "},
    {"GB18030", " gb2312 gb_2312 gb_2312-80 gbk x-gbk chinese csgb2312 csiso58gb231280 iso-ir-58 gb18030 "},
    {"CP932", " shift_jis shift-jis sjis x-sjis csshiftjis ms_kanji ms932 windows-31j "},
    {"EUC-JP", " euc-jp x-euc-jp cseucpkdfmtjapanese "},
    {"ISO-2022-JP", " iso-2022-jp csiso2022jp "},
    {"CP949", " euc-kr cseuckr korean ks_c_5601-1987 ks_c_5601-1989 ksc5601 ksc_5601 windows-949 iso-ir-149 "},
    {"BIG5-HKSCS", " big5 big5-hkscs cn-big5 csbig5 x-x-big5 "},
    {"UTF-16LE", " utf-16 utf-16le unicode unicodefeff ucs-2 csunicode iso-10646-ucs-2 "},
    {"UTF-16BE", " utf-16be unicodefffe "},
    {"UTF-7", " utf-7 utf7 unicode-1-1-utf-7 csunicode11utf7 unicode-2-0-utf-7 x-unicode-2-0-utf-7 "},
    {"KOI8-R", " koi koi8 koi8-r koi8_r cskoi8r "},
    {"KOI8-U", " koi8-u koi8-ru "},
    {"MACINTOSH", " macintosh mac x-mac-roman csmacintosh "},
    {"MAC-CYRILLIC", " x-mac-cyrillic x-mac-ukrainian "},
    {"ISO-8859-8", " iso-8859-8-i csiso88598i logical visual "},
};

/* Those that both know by the same name, of which ASCII is the lower half. iconv knows more, that browsers pass over.
   */
constexpr std::string_view shared[] = {"iso-8859-", "iso8859-", "iso_8859-", "windows-125", "cp125",  "latin",
                                       "ibm866",    "cp866",    "greek",     "cyrillic",    "arabic", "hebrew"};

std::string cleanName(std::string_view name) {
  std::string clean;
  for (const char c : name) {
    if (c == ' ' || c == '\t' || c == '"' || c == '\'' || c == '\n' || c == '\r' || c == '\f') continue;
    const bool isNameByte = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                            c == '_' || c == '.' || c == ':';
    if (!isNameByte || clean.size() == 40) return "";
    clean += lower(c);
  }
  return clean;
}

/* Sets of seven bits have letters of their own in its place. iconv knows them by names that no browser does. */
bool keepsAscii(const std::string &charset) {
  Decoder decoder = openDecoder(charset);
  std::string ascii, characters;
  for (char c = ' '; c < '\x7F'; c++) ascii += c;
  if (decoder.converter) decodeText(decoder, ascii, true, characters);
  return characters == ascii;
}

/* What to read with; nothing when the name says nothing. A page that names itself is not UTF-16, or could not be read.
   */
std::optional<std::string> converterOf(std::string_view name, bool namedInPage) {
  std::string clean = cleanName(name);
  if (clean.empty()) return {};
  for (const Renamed &each : renamed) {
    if (each.names.find(" " + clean + " ") == std::string_view::npos) continue;
    return namedInPage && each.converter.starts_with("UTF-16") ? "" : std::string(each.converter);
  }
  if (clean.starts_with("x-")) clean.erase(0, 2);
  const auto isStart = [&](std::string_view start) { return clean.starts_with(start); };
  if (std::none_of(std::begin(shared), std::end(shared), isStart) || !keepsAscii(clean)) return {};
  return clean;
}

/* -- what a page says of itself, in lower case: the prescan of HTML, section 13.2.3.2 -- */

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r'; }
bool isLetter(char c) { return c >= 'a' && c <= 'z'; }

/* The value behind "charset" and "=" in what a meta tag holds. */
std::string_view charsetIn(std::string_view content, std::string_view what) {
  for (size_t at = 0; (at = content.find(what, at)) != std::string_view::npos;) {
    at += what.size();
    while (at < content.size() && isBlank(content[at])) at++;
    if (at == content.size() || content[at] != '=') continue;
    at++;
    while (at < content.size() && isBlank(content[at])) at++;
    if (at == content.size()) return {};
    const char quote = content[at];
    if (quote != '"' && quote != '\'') return content.substr(at, content.find_first_of("; \t\n\f\r", at) - at);
    const size_t end = content.find(quote, at + 1);
    return end == std::string_view::npos ? std::string_view() : content.substr(at + 1, end - at - 1);
  }
  return {};
}

struct Attribute {
  std::string_view name, value;
};

/* The next attribute of the tag that `page` stands in; false at the tag's end. */
bool takeAttribute(std::string_view &page, Attribute &attribute) {
  size_t at = 0;
  const auto skip = [&](auto passes) {
    while (at < page.size() && passes(page[at])) at++;
  };
  const auto take = [&](std::string_view ends) {
    const size_t start = at;
    at = std::min(page.find_first_of(ends, at), page.size());
    return page.substr(start, at - start);
  };
  skip([](char c) { return isBlank(c) || c == '/'; });
  attribute = {};
  if (at < page.size() && page[at] != '>') {
    const size_t start = at++; /* "=" may begin a name */
    take("= \t\n\f\r/>");
    attribute.name = page.substr(start, at - start);
    skip(isBlank);
    if (at < page.size() && page[at] == '=') {
      at++;
      skip(isBlank);
      const char quote = at < page.size() ? page[at] : ' ';
      const bool quoted = quote == '"' || quote == '\'';
      if (quoted) at++;
      attribute.value = take(quoted ? std::string_view(&quote, 1) : " \t\n\f\r>");
      if (quoted) at = std::min(at + 1, page.size());
    }
  }
  page.remove_prefix(at);
  return !attribute.name.empty();
}

/* What the attributes of a meta tag name, and past them. */
std::optional<std::string> takeMeta(std::string_view &page) {
  std::string_view charset, content;
  bool isType = false;
  for (Attribute each; takeAttribute(page, each);) {
    if (each.name == "charset" && charset.empty()) charset = each.value;
    if (each.name == "content" && content.empty()) content = charsetIn(each.value, "charset");
    if (each.name == "http-equiv") isType |= each.value == "content-type";
  }
  if (charset.empty() && isType) charset = content;
  return converterOf(charset, true);
}

std::optional<std::string> namedIn(std::string_view page) {
  if (page.starts_with("<?xml")) {
    if (auto named = converterOf(charsetIn(page.substr(0, page.find('>')), "encoding"), true)) return named;
  }
  const auto pass = [&](std::string_view end, size_t from) {
    const size_t found = page.find(end, from);
    page.remove_prefix(found == std::string_view::npos ? page.size() : found + end.size());
  };
  while (page.find('<') != std::string_view::npos) {
    page.remove_prefix(page.find('<'));
    const bool ends = page.size() > 2 && page[1] == '/' && isLetter(page[2]);
    if (page.starts_with("<!--")) {
      pass("-->", 2);
    } else if (page.starts_with("<meta") && page.size() > 5 && (isBlank(page[5]) || page[5] == '/')) {
      page.remove_prefix(5);
      if (auto named = takeMeta(page)) return named;
    } else if (ends || (page.size() > 1 && isLetter(page[1]))) {
      page.remove_prefix(std::min(page.find_first_of(" \t\n\f\r>"), page.size()));
      for (Attribute each; takeAttribute(page, each);) continue;
    } else if (page.starts_with("<!") || page.starts_with("</") || page.starts_with("<?")) {
      pass(">", 0);
    } else {
      page.remove_prefix(1);
    }
  }
  return {};
}

/* -- UTF-8, or windows-1252 where it is not -- */

constexpr uint16_t windows1252[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                      0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

void addByte(uint8_t byte, std::string &characters) {
  const unsigned codePoint = byte < 0xA0 ? windows1252[byte - 0x80] : byte;
  if (codePoint < 0x800) {
    characters += static_cast<char>(0xC0 | codePoint >> 6);
  } else {
    characters += static_cast<char>(0xE0 | codePoint >> 12);
    characters += static_cast<char>(0x80 | (codePoint >> 6 & 0x3F));
  }
  characters += static_cast<char>(0x80 | (codePoint & 0x3F));
}

struct Sequence {
  size_t length; /* 0: not UTF-8 */
  bool isCut;    /* more bytes could make it so */
};

/* The sequence at the front of bytes of which the first is not ASCII (Unicode, table 3-7). */
Sequence sequenceAt(std::string_view bytes) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
  const uint8_t first = byte(0);
  const size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
  for (size_t i = 1; i < length; i++) {
    if (i == bytes.size()) return {0, true};
    const uint8_t lowest = i > 1 ? 0x80 : first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const uint8_t highest = i > 1 ? 0xBF : first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (byte(i) < lowest || byte(i) > highest) return {0, false};
  }
  return {length, false};
}

size_t asciiLength(std::string_view bytes) {
  size_t length = 0;
  for (uint64_t eight; length + sizeof eight <= bytes.size(); length += sizeof eight) {
    std::memcpy(&eight, bytes.data() + length, sizeof eight);
    if ((eight & 0x8080808080808080) != 0) break;
  }
  while (length < bytes.size() && static_cast<signed char>(bytes[length]) >= 0) length++;
  return length;
}

/* How many bytes were read; the rest is the start of a character. */
size_t readUnnamed(std::string_view bytes, bool isLast, std::string &characters) {
  size_t at = 0, kept = 0;
  const auto keep = [&] { characters.append(bytes.substr(kept, at - kept)); };
  while (at < bytes.size()) {
    if (static_cast<signed char>(bytes[at]) >= 0) {
      at += asciiLength(bytes.substr(at));
      continue;
    }
    const Sequence sequence = sequenceAt(bytes.substr(at));
    if (sequence.isCut && !isLast) break;
    if (sequence.length == 0) {
      keep();
      addByte(static_cast<uint8_t>(bytes[at]), characters);
      kept = at + 1;
    }
    at += std::max<size_t>(sequence.length, 1);
  }
  keep();
  return at;
}

void readBytes(std::string_view bytes, std::string &characters) {
  for (size_t at = 0; at < bytes.size(); at++) {
    const size_t ascii = asciiLength(bytes.substr(at));
    characters.append(bytes.substr(at, ascii));
    at += ascii;
    if (at < bytes.size()) addByte(static_cast<uint8_t>(bytes[at]), characters);
  }
}

/* -- the rest -- */

size_t convert(Decoder &decoder, std::string_view bytes, bool isLast, std::string &characters) {
  char *in = const_cast<char *>(bytes.data());
  size_t left = bytes.size();
  std::array<char, 4096> buffer;
  for (;;) {
    char *out = buffer.data();
    size_t room = buffer.size();
    const size_t result = iconv(decoder.converter.get(), &in, &left, &out, &room);
    const int error = result == static_cast<size_t>(-1) ? errno : 0;
    characters.append(buffer.data(), buffer.size() - room);
    if (error == E2BIG) continue;
    if (error == 0 || (error == EINVAL && !isLast) || left == 0) break;
    characters += replacement;
    const size_t skipped = std::min(left, decoder.unit);
    in += skipped;
    left -= skipped;
  }
  if (isLast) {
    char *out = buffer.data();
    size_t room = buffer.size();
    iconv(decoder.converter.get(), nullptr, nullptr, &out, &room);
    characters.append(buffer.data(), buffer.size() - room);
  }
  return bytes.size() - left;
}

}  // namespace

std::string charsetOf(std::string_view start, std::string_view named, size_t &mark) {
  const bool utf8 = start.starts_with("\xEF\xBB\xBF");
  const bool little = start.starts_with("\xFF\xFE"), big = start.starts_with("\xFE\xFF");
  mark = utf8 ? 3 : little || big ? 2 : 0;
  if (mark > 0) return utf8 ? "" : little ? "UTF-16LE" : "UTF-16BE";
  if (auto found = converterOf(named, false)) return *found;
  std::string page(start.substr(0, namingLength));
  std::transform(page.begin(), page.end(), page.begin(), lower);
  if (auto found = namedIn(page)) return *found;
  for (const std::string_view shift : {"\x1B$b", "\x1B$@", "\x1B(b", "\x1B(j"}) {
    if (page.find(shift) != std::string::npos) return "ISO-2022-JP";
  }
  return "";
}

bool isDoubtful(const std::string &charset) {
  return charset == "UTF-7" || charset == "ISO-2022-JP" || charset.starts_with("UTF-16");
}

Decoder openDecoder(const std::string &charset) {
  Decoder decoder;
  decoder.isByteWise = charset == "CP1252";
  if (charset == "UTF-7") decoder.utf7.emplace();
  if (charset.empty() || decoder.isByteWise || decoder.utf7) return decoder;
  iconv_t converter = iconv_open("UTF-8", charset.c_str());
  if (reinterpret_cast<intptr_t>(converter) != -1) decoder.converter.reset(converter);
  if (charset.starts_with("UTF-16")) decoder.unit = 2;
  return decoder;
}

void decodeText(Decoder &decoder, std::string_view bytes, bool isLast, std::string &characters) {
  if (decoder.utf7) {
    readUtf7(*decoder.utf7, bytes, isLast, characters);
    return;
  }
  std::string joined;
  if (!decoder.rest.empty()) {
    joined.append(decoder.rest).append(bytes);
    bytes = joined;
  }
  if (decoder.isByteWise) {
    readBytes(bytes, characters);
    return;
  }
  const size_t read =
      decoder.converter ? convert(decoder, bytes, isLast, characters) : readUnnamed(bytes, isLast, characters);
  decoder.rest = isLast ? "" : std::string(bytes.substr(read));
}

}  // namespace netsift
