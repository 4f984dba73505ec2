#include "content/htmlToText.h"

#include <cstddef>
#include <cstring>
#include <iterator>

#include "content/wildcard.h"

namespace {

constexpr int digitLimit = 1023;     /* digits of a numeric reference that count */
constexpr ptrdiff_t longestName = 5; /* the ";" of a named reference stands at most this far after its "&" */

constexpr ptrdiff_t shortestHiding = std::size("<fcolor=white") - 1; /* no shorter font tag can hide text */

/* A page being converted in place: the text grows at `out`, which never overtakes `in`. */
struct Page {
  char *in, *end, *out;
};

enum class Tag { visible, white, tiny, noFrames };

bool isBlank(char byte) { return byte == ' ' || byte == '\t'; }
bool isBlankOrLineEnd(char byte) { return isBlank(byte) || byte == '\r' || byte == '\n'; }
bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

template <size_t count>
bool holdsOneOf(const char *tag, const char *const (&words)[count]) {
  for (const char *word : words) {
    if (ifpresent1(tag, word) != -1) return true;
  }
  return false;
}

/* A tag's text without its ">", normalised. Any size from 0 to 2 is tiny, whatever follows the digit. */
Tag judgeFont(const char *tag) {
  static constexpr const char *white[] = {"color=white", "color=\"#FFFFFF\"", "color=FFFFFF", "color=#FFFFFF"};
  static constexpr const char *styled[] = {"font style=\"font-size:", "font style=font-size:"};
  static constexpr const char *tiny[] = {"size:0", "size:1", "size:2"};
  if (holdsOneOf(tag, white)) return Tag::white;
  return holdsOneOf(tag, styled) && holdsOneOf(tag, tiny) ? Tag::tiny : Tag::visible;
}

/* Judges the tag between "<" and its ">", whose bytes are used up by it. Normalising takes away blanks next to bytes
   that stay, so it cannot change how a tag begins: only those that begin with "f" need it. */
Tag judgeTag(char *tag, char *close) {
  *close = '\0';
  if (tag[1] == 'n' || tag[1] == 'N') return beginsWithCI(tag, "<noframes") ? Tag::noFrames : Tag::visible;
  if ((tag[1] != 'f' && tag[1] != 'F') || close - tag < shortestHiding) return Tag::visible;
  for (char *byte = tag; byte < close; byte++) {
    if (*byte == '\r' || *byte == '\n') *byte = ' ';
  }
  for (const char *byte : {"=", ":", "\"", " "}) RemoveSpacesBeforeAndAfterByte(tag, byte);
  return judgeFont(tag);
}

/* The next "<", or the end of the page. */
char *nextTag(const Page &page) {
  void *found = std::memchr(page.in, '<', static_cast<size_t>(page.end - page.in));
  return found == nullptr ? page.end : static_cast<char *>(found);
}

/* Passes over white space that reaches from one tag to the next and holds a space; other white space is text. */
void skipSpaceBetweenTags(Page &page) {
  char *byte = page.in;
  bool space = false;
  for (; byte < page.end && (*byte == ' ' || *byte == '\r' || *byte == '\n'); byte++) space |= *byte == ' ';
  if (space && byte < page.end && *byte == '<') page.in = byte;
}

void convertTag(Page &page) {
  void *close = std::memchr(page.in, '>', static_cast<size_t>(page.end - page.in));
  if (close == nullptr) {
    page.in = page.end;
    return;
  }
  const Tag tag = judgeTag(page.in, static_cast<char *>(close));
  page.in = static_cast<char *>(close) + 1;
  if (tag == Tag::visible) {
    skipSpaceBetweenTags(page);
    return;
  }
  page.in = nextTag(page);
  if (tag == Tag::white) *page.out++ = ' ';
}

/* "&#" and digits. The byte that ends them is used up, unless it opens a tag or a reference; without digits it is the
   text itself; a reference that the page ends in is dropped. */
void convertNumber(Page &page) {
  char *digits = page.in + 2;
  char *byte = digits;
  uint32_t value = 0;
  for (; byte < page.end && isDigit(*byte); byte++) {
    if (byte - digits < digitLimit) value = value * 10 + static_cast<uint32_t>(*byte - '0');
  }
  if (byte == page.end) {
    page.in = page.end;
  } else if (byte == digits) {
    *page.out++ = *byte;
    page.in = byte + 1;
  } else {
    page.in = *byte == '<' || *byte == '&' ? byte : byte + 1;
    *page.out++ = static_cast<char>(value);
  }
}

/* One of the five names, or the "&" as it stands. The ";" may be the byte that ends the buffer's text. */
void convertName(Page &page) {
  static constexpr struct {
    const char *name;
    char value;
  } references[] = {{"&nbsp", ' '}, {"&quot;", '"'}, {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}};

  ptrdiff_t length = 1;
  while (length < longestName && page.in[length] != ';' && page.in[length] != '\0') length++;
  if (page.in[length] == ';') {
    for (const auto &reference : references) {
      if (beginsWithCI(page.in, reference.name) == 0) continue;
      *page.out++ = reference.value;
      page.in += length + 1;
      return;
    }
  }
  *page.out++ = *page.in++;
}

/* Up to the next tag or reference. */
void copyText(Page &page) {
  const char *end = page.in;
  while (end < page.end && *end != '<' && *end != '&') end++;
  const size_t length = static_cast<size_t>(end - page.in);
  std::memmove(page.out, page.in, length);
  page.in += length;
  page.out += length;
}

}  // namespace

void ConvertHTMLToText(char *buffer, int32_t *length) {
  if (buffer == nullptr || length == nullptr || *length <= 0) return;
  Page page{buffer, buffer + *length, buffer};
  while (page.in < page.end) {
    if (*page.in == '<') {
      convertTag(page);
    } else if (*page.in != '&') {
      copyText(page);
    } else if (page.end - page.in > 1 && page.in[1] == '#') {
      convertNumber(page);
    } else {
      convertName(page);
    }
  }
  std::memset(page.out, 0, static_cast<size_t>(page.end - page.out));
  *length = static_cast<int32_t>(page.out - buffer);
}

int ifpresent1(const char *text, const char *word) {
  const char *found = strcasestr(text, word);
  return found == nullptr ? -1 : static_cast<int>(found - text);
}

int processmystring1(char *text) {
  const char *first = text;
  while (isBlank(*first)) first++;
  const char *end = first + std::strlen(first);
  while (end > first && isBlankOrLineEnd(end[-1])) end--;
  const size_t length = static_cast<size_t>(end - first);
  std::memmove(text, first, length);
  text[length] = '\0';
  return length == 0 ? 0 : static_cast<int>(length) - 1;
}

/* One pass: what stands before the occurrence is [first, out), what is still to be read [in, end). Stripping either
   moves its bounds, and the bytes move at most twice. */
void RemoveSpacesBeforeAndAfterByte(char *text, const char *byte) {
  if (*byte == '\0') return;
  char *first = text, *out = text, *in = text;
  char *end = text + std::strlen(text);
  while (in < end) {
    const char current = *in++;
    if (current == *byte && in < end && *in == ' ') {
      while (in < end && isBlank(*in)) in++;
      while (end > in && isBlankOrLineEnd(end[-1])) end--;
    }
    if (current == *byte && out > first && out[-1] == ' ') {
      while (first < out && isBlank(*first)) first++;
      while (out > first && isBlankOrLineEnd(out[-1])) out--;
    }
    *out++ = current;
  }
  std::memmove(text, first, static_cast<size_t>(out - first));
  text[out - first] = '\0';
}

void CheckForHREFLink(const char *tag, char *destination, int *destinationLength) {
  const int href = ifpresent1(tag, "href");
  const char *equals = href == -1 ? nullptr : std::strchr(tag + href, '=');
  if (equals == nullptr || equals[1] == '\0') return;
  const size_t length = std::strlen(equals + 1);
  char *end = static_cast<char *>(mempcpy(destination + *destinationLength, equals + 1, length));
  std::memcpy(end, " ", 2);
  *destinationLength += static_cast<int>(length) + 1;
}
