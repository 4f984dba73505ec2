#include "content/pageText.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <iterator>
#include <utility>

namespace netsift {
namespace {

/* -- characters and words of markup -- */

bool isAscii(char c) { return static_cast<signed char>(c) >= 0; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
bool isLetter(char c) { return lower(c) >= 'a' && lower(c) <= 'z'; }

int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  return lower(c) >= 'a' && lower(c) <= 'f' ? lower(c) - 'a' + 10 : -1;
}

/* Tags at which one word ends and another begins, however little is between them. */
constexpr std::string_view dividing[] = {
    "address",  "article", "aside",  "blockquote", "body",     "br",       "caption",  "center",   "col",
    "dd",       "details", "dialog", "dir",        "div",      "dl",       "dt",       "fieldset", "figcaption",
    "figure",   "footer",  "form",   "frame",      "frameset", "h1",       "h2",       "h3",       "h4",
    "h5",       "h6",      "head",   "header",     "hgroup",   "hr",       "html",     "iframe",   "legend",
    "li",       "listing", "main",   "menu",       "nav",      "noframes", "noscript", "object",   "ol",
    "optgroup", "option",  "p",      "plaintext",  "pre",      "search",   "section",  "select",   "summary",
    "svg",      "table",   "tbody",  "td",         "text",     "textarea", "tfoot",    "th",       "thead",
    "title",    "tr",      "ul",     "xmp"};

/* Those of XML at which none does. */
constexpr std::string_view joining[] = {
    "a",    "abbr",   "acronym", "b",     "bdi",  "bdo",  "big",   "cite", "code", "del", "dfn",  "em",     "font",
    "i",    "img",    "ins",     "kbd",   "mark", "nobr", "q",     "rb",   "ruby", "s",   "samp", "script", "small",
    "span", "strike", "strong",  "style", "sub",  "sup",  "tspan", "tt",   "u",    "var", "wbr"};

/* Those at which an svg or math element ends that they stand in. */
constexpr std::string_view breaking[] = {
    "b",      "big",     "blockquote", "body", "br",    "center", "code", "dd",  "div",  "dl", "dt",    "em",
    "embed",  "font",    "h1",         "h2",   "h3",    "h4",     "h5",   "h6",  "head", "hr", "i",     "img",
    "li",     "listing", "menu",       "meta", "nobr",  "ol",     "p",    "pre", "ruby", "s",  "small", "span",
    "strong", "strike",  "sub",        "sup",  "table", "tt",     "u",    "ul",  "var"};

/* What a tag's name says of it, bit by bit. */
enum Trait : uint16_t {
  divides = 1,
  joinsInXml = 2,
  isForeign = 4, /* what it holds is no HTML, */
  holdsHtml = 8, /* except for what this holds */
  breaksForeign = 16,
  rawBeside = 32,      /* what it holds is text beside the page's, */
  rawShown = 64,       /* or of the page, but no tags */
  hasReferences = 128, /* except for those, */
  isScript = 256,      /* and for a script's own */
  endsMarkup = 512,    /* what follows is plain */
  saysValue = 1024,    /* its "value" is seen */
  saysContent = 2048   /* its "content" is, and nothing else */
};

struct Tag {
  std::string_view name;
  uint16_t traits;
};

constexpr Tag specials[] = {{"svg", isForeign},
                            {"math", isForeign},
                            {"foreignobject", holdsHtml},
                            {"desc", holdsHtml},
                            {"script", rawBeside | isScript},
                            {"style", rawBeside},
                            {"noembed", rawBeside},
                            {"noframes", rawBeside},
                            {"noscript", rawBeside},
                            {"iframe", rawBeside},
                            {"title", rawBeside | hasReferences | holdsHtml},
                            {"textarea", rawShown | hasReferences},
                            {"xmp", rawShown},
                            {"plaintext", endsMarkup},
                            {"input", saysValue},
                            {"button", saysValue},
                            {"meta", saysContent}};

using NameStart = std::array<char, 8>;

constexpr size_t slotOf(const NameStart &start) {
  return static_cast<size_t>(std::bit_cast<uint64_t>(start) * 0x9E3779B97F4A7C15 >> 55);
}

/* Each in its slot or the next that is free. */
constexpr auto tags = [] {
  std::array<Tag, 512> table{};
  const auto add = [&](std::string_view name, uint16_t traits) {
    NameStart start{};
    for (size_t i = 0; i < std::min(start.size(), name.size()); i++) start[i] = name[i];
    size_t slot = slotOf(start);
    while (!table[slot].name.empty() && table[slot].name != name) slot = (slot + 1) % table.size();
    table[slot] = {name, static_cast<uint16_t>(table[slot].traits | traits)};
  };
  for (const std::string_view name : dividing) add(name, divides);
  for (const std::string_view name : joining) add(name, joinsInXml);
  for (const std::string_view name : breaking) add(name, breaksForeign);
  for (const Tag &special : specials) add(special.name, special.traits);
  return table;
}();

uint16_t traitsOf(const MarkupWord &name) {
  NameStart start;
  std::memcpy(start.data(), name.bytes, start.size());
  size_t slot = slotOf(start);
  while (!tags[slot].name.empty() && !(name == tags[slot].name)) slot = (slot + 1) % tags.size();
  return tags[slot].traits;
}

bool isDividing(const PageText &page) {
  return page.kind == TextKind::xml ? (page.traits & joinsInXml) == 0 : (page.traits & divides) != 0;
}

/* Attributes whose values people get to see, or hear. */
constexpr std::string_view seen[] = {"title", "alt", "placeholder", "aria-label", "label", "srcdoc"};

/* -- where text goes -- */

/* Null: nowhere. */
NormalText *textOf(PageText &page, At at) {
  switch (at) {
    case At::text:
      return &page.shown;
    case At::value:
      return page.isKept ? &page.beside : nullptr;
    default:
      return (page.rawTraits & rawBeside) != 0 ? &page.beside : &page.shown;
  }
}

void add(NormalText *normal, const char *from, const char *to) {
  if (normal != nullptr && from < to) addText(*normal, {from, static_cast<size_t>(to - from)});
}

void add(NormalText *normal, std::string_view text) { add(normal, text.data(), text.data() + text.size()); }

/* -- references -- */

/* Those of 128 to 159 are windows-1252's. */
constexpr uint16_t oldNumbers[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                     0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                     0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                     0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

void beginReference(PageText &page, At back) {
  page.reference = {};
  page.back = back;
  page.at = At::reference;
}

void addNumber(PageText &page) {
  NormalText *normal = textOf(page, page.back);
  const OpenReference &reference = page.reference;
  if (normal == nullptr) return;
  if (!reference.hasDigits) return endWord(*normal); /* the "&#" that it is */
  const uint32_t value = reference.value;
  addCharacter(*normal, value >= 0x80 && value < 0xA0 ? oldNumbers[value - 0x80] : value == 0 ? 0xFFFD : value);
}

/* `next`: what follows the name. In an attribute a name goes on with what could be part of an address. True when a ";"
   was part of the reference. */
bool addNamed(PageText &page, char next) {
  NormalText *normal = textOf(page, page.back);
  if (normal == nullptr) return next == ';';
  const std::string_view name(page.reference.name, page.reference.length);
  NamedReference found = findReference(name, next == ';');
  const bool isWhole = found.length == name.size();
  if (page.back == At::value && next != ';' && (!isWhole || next == '=')) found.length = 0;
  if (page.back == At::value && next == ';' && !isWhole) found.length = 0;
  if (found.length == 0) {
    endWord(*normal); /* the "&" that it is */
  } else {
    for (const uint32_t codePoint : found.codePoints) {
      if (codePoint != 0) addCharacter(*normal, codePoint);
    }
  }
  add(normal, name.substr(found.length));
  return next == ';' && isWhole && found.length > 0;
}

/* True when `next` was part of it. */
bool finishReference(PageText &page, char next) {
  page.at = page.back;
  if (page.reference.kind < OpenReference::Kind::number) return addNamed(page, next);
  addNumber(page);
  return next == ';' && page.reference.hasDigits;
}

const char *readReferenceName(PageText &page, const char *at, const char *end) {
  OpenReference &reference = page.reference;
  while (at < end && (isLetter(*at) || isDigit(*at)) && reference.length < longestReferenceName)
    reference.name[reference.length++] = *at++;
  if (at == end) return end;
  return finishReference(page, *at) ? at + 1 : at;
}

const char *readReference(PageText &page, const char *at, const char *end) {
  using Kind = OpenReference::Kind;
  OpenReference &reference = page.reference;
  const char c = *at;
  switch (reference.kind) {
    case Kind::none:
      if (c == '#') {
        reference.kind = Kind::number;
        return at + 1;
      }
      reference.kind = Kind::named;
      return readReferenceName(page, at, end);
    case Kind::number:
      reference.kind = lower(c) == 'x' ? Kind::hex : Kind::decimal;
      return lower(c) == 'x' ? at + 1 : at;
    case Kind::named:
      return readReferenceName(page, at, end);
    default:
      const int digit = hexValue(c);
      const uint32_t base = reference.kind == Kind::hex ? 16 : 10;
      if (digit >= 0 && static_cast<uint32_t>(digit) < base) {
        reference.value = std::min<uint32_t>(reference.value * base + static_cast<uint32_t>(digit), 0x110000);
        reference.hasDigits = true;
        return at + 1;
      }
  }
  return finishReference(page, c) ? at + 1 : at;
}

/* -- the contents of script, style, title and their like -- */

void beginRaw(PageText &page, uint16_t traits) {
  page.rawTag = page.tag;
  page.rawTraits = traits;
  page.scriptComment = page.dashes = 0;
  page.at = At::raw;
  endWord(*textOf(page, At::raw));
}

void endRaw(PageText &page) {
  endWord(*textOf(page, At::raw));
  page.tag = page.rawTag;
  page.traits = page.rawTraits;
  page.isEndTag = true;
  page.afterSlash = false;
}

bool isInScript(const PageText &page) { return (page.rawTraits & isScript) != 0; }

/* "--" and ">" end the comment of a script. */
void noteDashes(PageText &page, char c) {
  if (c == '>' && page.dashes >= 2) page.scriptComment = 0;
  page.dashes = c == '-' ? static_cast<uint8_t>(std::min(page.dashes + 1, 2)) : 0;
}

bool stopsRaw(const PageText &page, char c) {
  if (c == '<') return page.rawTag.length > 0;
  return c == '&' ? (page.rawTraits & hasReferences) != 0 : c == '\\' && isInScript(page);
}

/* Adds what is there up to what may be more than text. */
const char *addRawText(PageText &page, const char *at, const char *end) {
  NormalText *normal = textOf(page, At::raw);
  while (at < end && !stopsRaw(page, *at)) {
    const char *stop = at;
    if (page.scriptComment == 0) at = stop += addPlain(*normal, {at, static_cast<size_t>(end - at)}, isInScript(page));
    for (; stop < end && !stopsRaw(page, *stop); stop++) {
      if (page.scriptComment != 0) {
        noteDashes(page, *stop);
      } else if (stop > at && isAscii(*stop)) {
        break;
      }
    }
    add(normal, at, stop);
    at = stop;
  }
  return at;
}

const char *readRaw(PageText &page, const char *at, const char *end) {
  const char *stop = addRawText(page, at, end);
  if (stop == end) return end;
  if (*stop == '<') {
    page.word = {};
    page.word.add('<');
    page.dashes = 0;
    page.at = At::rawTag;
  } else if (*stop == '&') {
    beginReference(page, At::raw);
  } else {
    page.reference = {};
    page.at = At::escape;
  }
  return stop + 1;
}

bool continuesWord(const MarkupWord &word, std::string_view whole) {
  return word.length < whole.size() && whole.starts_with(std::string_view(word.bytes, word.length));
}

/* What follows "<" in there: the element's end, or in a script what begins a comment or a script in one. */
const char *readRawTag(PageText &page, const char *at) {
  MarkupWord endTag;
  for (const char c : std::string_view("</")) endTag.add(c);
  for (size_t i = 0; i < page.rawTag.length; i++) endTag.add(page.rawTag.bytes[i]);
  const std::string_view whole(endTag.bytes, endTag.length);
  const char c = *at;
  const bool ends = isBlank(c) || c == '/' || c == '>';
  MarkupWord longer = page.word;
  longer.add(c);
  const bool fits = continuesWord(page.word, whole) ||
                    (isInScript(page) && (continuesWord(page.word, "<!--") || continuesWord(page.word, "<script")));
  const auto isStart = [&](std::string_view of) {
    return of.starts_with(std::string_view(longer.bytes, longer.length));
  };
  if (fits && (isStart(whole) || (isInScript(page) && (isStart("<!--") || isStart("<script"))))) {
    page.word = longer;
    if (!(page.word == "<!--")) return at + 1;
    page.scriptComment = std::max<uint8_t>(page.scriptComment, 1);
    page.dashes = 2;
    endWord(*textOf(page, At::raw));
    page.at = At::raw;
    return at + 1;
  }
  if (page.word == whole && ends && page.scriptComment < 2) {
    endRaw(page);
    page.at = At::beforeAttribute;
    return at;
  }
  if (ends && isInScript(page) && page.word == whole) page.scriptComment = 1;
  if (ends && isInScript(page) && page.word == "<script" && page.scriptComment == 1) page.scriptComment = 2;
  add(textOf(page, At::raw), {page.word.bytes, page.word.length});
  for (size_t i = 0; i < page.word.length; i++) noteDashes(page, page.word.bytes[i]);
  page.at = At::raw;
  return at;
}

/* A character of a script's escape, or one half of it. */
void addUnit(PageText &page, uint32_t unit) {
  const uint32_t high = std::exchange(page.highSurrogate, 0);
  if (unit >= 0xD800 && unit <= 0xDBFF) {
    page.highSurrogate = unit;
  } else if (unit < 0xDC00 || unit > 0xDFFF) {
    addCharacter(*textOf(page, At::raw), unit);
  } else if (high != 0) {
    addCharacter(*textOf(page, At::raw), 0x10000 + ((high - 0xD800) << 10) + (unit - 0xDC00));
  }
}

/* What follows a backslash: the character of "\x41", "\u0041" and "\u{41}", a blank for "\n" and its like. */
const char *readEscape(PageText &page, const char *at) {
  OpenReference &reference = page.reference;
  NormalText *normal = textOf(page, At::raw);
  const char c = *at;
  page.dashes = 0;
  if (reference.length == 0) {
    if (c == 'u' || c == 'x') {
      reference.name[reference.length++] = c;
      return at + 1;
    }
    page.at = At::raw;
    if (c == '\n' || c == '\r') return at + 1;
    static constexpr std::string_view blanks = "ntrbfv\\";
    /* any other is itself; one that begins another escape or ends the script is not escaped from that */
    if (blanks.find(c) == std::string_view::npos) return at;
    endWord(*normal);
    return at + 1;
  }
  const bool isBraced = reference.kind == OpenReference::Kind::hex;
  if (reference.length == 1 && c == '{' && !isBraced && reference.name[0] == 'u') {
    reference.kind = OpenReference::Kind::hex;
    return at + 1;
  }
  const int digit = hexValue(c);
  const uint8_t wanted = isBraced ? 9 : reference.name[0] == 'u' ? 5 : 3;
  if (digit >= 0 && reference.length < wanted) {
    reference.value = std::min<uint32_t>(reference.value * 16 + static_cast<uint32_t>(digit), 0x110000);
    reference.length++;
    if (isBraced || reference.length < wanted) return at + 1;
  }
  const bool isUsedUp = digit >= 0 || (isBraced && c == '}');
  if (reference.length > 1) addUnit(page, reference.value);
  page.at = At::raw;
  return isUsedUp ? at + 1 : at;
}

/* -- tags -- */

void pushForeign(PageText &page, bool inForeign) {
  page.outerForeign = page.outerForeign << 1 | (page.inForeign ? 1 : 0);
  page.foreignDepth++;
  page.inForeign = inForeign;
}

void popForeign(PageText &page) {
  if (page.foreignDepth == 0) return;
  page.foreignDepth--;
  page.inForeign = (page.outerForeign & 1) != 0;
  page.outerForeign >>= 1;
}

/* Keeps in mind where a page is in svg or math, whose tags are no HTML, or in HTML within that. Elements that are left
   open, and those nested deeper than anyone does, may mislead it. */
void followForeign(PageText &page) {
  const bool begins = !page.isEndTag && !page.afterSlash;
  if ((page.traits & isForeign) != 0) {
    page.hasForeign = true;
    if (begins && page.foreignDepth < 63) pushForeign(page, true);
    if (page.isEndTag && page.inForeign) popForeign(page);
  } else if ((page.traits & holdsHtml) != 0) {
    if (begins && page.inForeign && page.foreignDepth < 63)
      pushForeign(page, false);
    else if (page.isEndTag && !page.inForeign)
      popForeign(page);
  } else if ((page.traits & breaksForeign) != 0) {
    while (page.inForeign) popForeign(page);
  }
}

void finishTag(PageText &page) {
  page.at = At::text;
  if (isDividing(page)) endWord(page.shown);
  const bool isMarkup = page.kind != TextKind::html || page.inForeign || page.isEndTag;
  if ((page.traits & (isForeign | holdsHtml | breaksForeign)) != 0) followForeign(page);
  if (isMarkup) return;
  if ((page.traits & (rawBeside | rawShown)) != 0) beginRaw(page, page.traits);
  if ((page.traits & endsMarkup) != 0) page.at = At::plain;
}

const char *readText(PageText &page, const char *at, const char *end) {
  while (at < end && *at != '<' && *at != '&') {
    at += addPlain(page.shown, {at, static_cast<size_t>(end - at)}, false);
    const char *stop = at;
    while (stop < end && *stop != '<' && *stop != '&' && (stop == at || !isAscii(*stop))) stop++;
    add(&page.shown, at, stop);
    at = stop;
  }
  if (at == end) return end;
  if (*at == '&') {
    beginReference(page, At::text);
  } else {
    page.at = At::tagOpen;
  }
  return at + 1;
}

const char *beginTag(PageText &page, const char *at, bool isEnd) {
  page.tag = {};
  page.isEndTag = isEnd;
  page.afterSlash = false;
  page.at = At::tagName;
  return at;
}

const char *readTagOpen(PageText &page, const char *at) {
  if (isLetter(*at)) return beginTag(page, at, false);
  switch (*at) {
    case '/':
      page.at = At::endTagOpen;
      return at + 1;
    case '!':
      page.word = {};
      page.at = At::declaration;
      return at + 1;
    case '?':
      page.at = At::bogusComment;
      return at + 1;
    default: /* it was no tag */
      endWord(page.shown);
      page.at = At::text;
      return at;
  }
}

const char *readEndTagOpen(PageText &page, const char *at) {
  if (isLetter(*at)) return beginTag(page, at, true);
  page.at = *at == '>' ? At::text : At::bogusComment;
  return *at == '>' ? at + 1 : at;
}

const char *readTagName(PageText &page, const char *at, const char *end) {
  for (; at < end; at++) {
    if (*at == '>' || *at == '/' || isBlank(*at)) {
      page.traits = traitsOf(page.tag);
      page.at = At::beforeAttribute;
      return at;
    }
    page.tag.add(*at);
  }
  return at;
}

const char *readBeforeAttribute(PageText &page, const char *at) {
  if (*at == '>') {
    finishTag(page);
    return at + 1;
  }
  page.afterSlash = *at == '/';
  if (isBlank(*at) || *at == '/') return at + 1;
  page.attribute = {};
  page.attribute.add(*at);
  page.at = At::attributeName;
  return at + 1;
}

const char *readAttributeName(PageText &page, const char *at, const char *end) {
  for (; at < end; at++) {
    if (*at == '>' || *at == '/' || *at == '=' || isBlank(*at)) {
      page.at = At::afterAttribute;
      return at;
    }
    page.attribute.add(*at);
  }
  return at;
}

const char *readAfterAttribute(PageText &page, const char *at) {
  if (isBlank(*at)) return at + 1;
  page.at = *at == '=' ? At::beforeValue : At::beforeAttribute;
  return *at == '=' ? at + 1 : at;
}

/* The text of buttons is a value, and what a page says of itself the content of its meta tags. */
bool isSeen(const PageText &page) {
  if ((page.traits & saysContent) != 0) return page.attribute == "content";
  return ((page.traits & saysValue) != 0 && page.attribute == "value") ||
         std::any_of(std::begin(seen), std::end(seen), [&](std::string_view each) { return page.attribute == each; });
}

void beginValue(PageText &page, char quote) {
  page.quote = quote;
  page.isKept = !page.isEndTag && isSeen(page);
  if (page.isKept) endWord(page.beside);
  page.at = At::value;
}

const char *readBeforeValue(PageText &page, const char *at) {
  if (isBlank(*at)) return at + 1;
  if (*at == '>') {
    page.at = At::beforeAttribute;
    return at;
  }
  const bool isQuoted = *at == '"' || *at == '\'';
  beginValue(page, isQuoted ? *at : '\0');
  return isQuoted ? at + 1 : at;
}

const char *readValue(PageText &page, const char *at, const char *end) {
  const auto ends = [&](char c) { return page.quote != 0 ? c == page.quote : c == '>' || isBlank(c); };
  const char *stop = at;
  while (stop < end && !ends(*stop) && (!page.isKept || *stop != '&')) stop++;
  add(textOf(page, At::value), at, stop);
  if (stop == end) return end;
  if (*stop == '&') {
    beginReference(page, At::value);
    return stop + 1;
  }
  if (page.isKept) endWord(page.beside);
  page.afterSlash = false;
  page.at = At::beforeAttribute;
  return page.quote != 0 ? stop + 1 : stop;
}

/* -- comments -- */

/* Whether what is no text in HTML is one after all: where a page mixes languages, browsers may differ from this on what
   is a comment, and in XML the declarations hold text. */
NormalText *doubtful(PageText &page) { return page.kind == TextKind::xml || page.hasForeign ? &page.beside : nullptr; }

constexpr uint8_t bang = 3, opened = 4, openedDash = 5; /* of `dashes`, beside their number */

const char *readDeclaration(PageText &page, const char *at) {
  static constexpr std::string_view commentStart = "--", cdataStart = "[cdata[";
  MarkupWord longer = page.word;
  longer.add(*at);
  const std::string_view word(longer.bytes, longer.length);
  if (!commentStart.starts_with(word) && !cdataStart.starts_with(word)) {
    page.at = At::bogusComment;
    return at;
  }
  page.word = longer;
  if (word == commentStart) {
    page.dashes = opened;
    page.at = At::comment;
  } else if (word == cdataStart) {
    page.dashes = 0;
    page.at = page.kind == TextKind::xml || page.inForeign ? At::cdata : At::bogusComment;
  }
  return at + 1;
}

const char *readBogusComment(PageText &page, const char *at, const char *end) {
  const char *stop = std::find(at, end, '>');
  add(doubtful(page), at, stop);
  if (stop == end) return end;
  page.at = At::text;
  if (NormalText *normal = doubtful(page)) endWord(*normal);
  return stop + 1;
}

uint8_t afterDash(uint8_t dashes) {
  switch (dashes) {
    case 0:
    case bang:
      return 1;
    case opened:
      return openedDash;
    default:
      return 2;
  }
}

const char *readComment(PageText &page, const char *at, const char *end) {
  const char *start = at;
  for (; at < end; at++) {
    if (*at == '>' && page.dashes >= 2) break;
    if (*at == '-') {
      page.dashes = afterDash(page.dashes);
    } else {
      page.dashes = *at == '!' && page.dashes == 2 ? bang : 0;
    }
  }
  add(doubtful(page), start, at);
  if (at == end) return end;
  page.at = At::text;
  if (NormalText *normal = doubtful(page)) endWord(*normal);
  return at + 1;
}

/* Its "]]" is a blank, whatever follows. */
const char *readCdata(PageText &page, const char *at, const char *end) {
  const char *start = at;
  for (; at < end; at++) {
    if (*at == '>' && page.dashes == 2) break;
    page.dashes = *at == ']' ? static_cast<uint8_t>(std::min(page.dashes + 1, 2)) : 0;
  }
  add(&page.shown, start, at);
  if (at == end) return end;
  page.at = At::text;
  return at + 1;
}

/* -- the page -- */

/* A page whose kind nobody tells is HTML when its first character says so. */
const char *readStart(PageText &page, const char *at) {
  if (page.kind == TextKind::unknown) {
    if (isBlank(*at)) return at + 1;
    page.kind = *at == '<' ? TextKind::html : TextKind::plain;
  }
  if (page.kind == TextKind::script) {
    beginRaw(page, rawShown | isScript);
  } else {
    page.at = page.kind == TextKind::plain ? At::plain : At::text;
  }
  return at;
}

const char *readSome(PageText &page, const char *at, const char *end) {
  switch (page.at) {
    case At::start:
      return readStart(page, at);
    case At::text:
      return readText(page, at, end);
    case At::plain:
      add(&page.shown, at, end);
      return end;
    case At::tagOpen:
      return readTagOpen(page, at);
    case At::endTagOpen:
      return readEndTagOpen(page, at);
    case At::tagName:
      return readTagName(page, at, end);
    case At::beforeAttribute:
      return readBeforeAttribute(page, at);
    case At::attributeName:
      return readAttributeName(page, at, end);
    case At::afterAttribute:
      return readAfterAttribute(page, at);
    case At::beforeValue:
      return readBeforeValue(page, at);
    case At::value:
      return readValue(page, at, end);
    case At::declaration:
      return readDeclaration(page, at);
    case At::bogusComment:
      return readBogusComment(page, at, end);
    case At::comment:
      return readComment(page, at, end);
    case At::cdata:
      return readCdata(page, at, end);
    case At::reference:
      return readReference(page, at, end);
    case At::raw:
      return readRaw(page, at, end);
    case At::rawTag:
      return readRawTag(page, at);
    case At::escape:
      return readEscape(page, at);
  }
  return end;
}

}  // namespace

void MarkupWord::add(char c) {
  bytes[length] = lower(c);
  if (length + 1U < sizeof bytes) length++;
}

TextKind kindOf(std::string_view type) {
  const auto holds = [&](std::string_view what) { return type.find(what) != std::string_view::npos; };
  if (type.find('/') == std::string_view::npos || type == "*/*" || holds("unknown")) return TextKind::unknown;
  if (type == "text/html") return TextKind::html;
  if (holds("xhtml") || holds("xml") || holds("svg")) return TextKind::xml;
  if (holds("json") || holds("javascript") || holds("ecmascript")) return TextKind::script;
  return TextKind::plain;
}

void readPage(PageText &page, std::string_view characters) {
  const char *at = characters.data(), *end = at + characters.size();
  while (at < end) at = readSome(page, at, end);
}

void endPage(PageText &page) {
  if (page.at == At::reference) finishReference(page, '\0');
  if (page.at == At::tagOpen) endWord(page.shown);
  if (page.at == At::rawTag) add(textOf(page, At::raw), {page.word.bytes, page.word.length});
  endWord(page.shown);
  endWord(page.beside);
}

}  // namespace netsift
