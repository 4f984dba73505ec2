/* What a reader sees of a page, as its bytes arrive: internal to the library.

   Markup is told from text as the HTML standard's tokenizer does (section 13.2.5): tags with quoted attributes,
   comments and what is taken for one, references, the contents of script, style, title and their like. Tags that begin
   a line or a cell divide words, all others join what stands around them. What is shown beside the text (attributes
   that people get to see), what scripts may write into it, and titles are a text of their own, so that they do not part
   the words that they stand between. Nothing is hidden for its colour or size: the page's own style sheet could undo
   that. */
#ifndef NETSIFT_CONTENT_PAGETEXT_H
#define NETSIFT_CONTENT_PAGETEXT_H

#include <cstdint>
#include <string_view>

#include "content/namedReferences.h"
#include "content/normalText.h"

namespace netsift {

enum class TextKind : uint8_t { unknown, html, xml, script, plain };

/* What a type without parameters, in small letters, is read as; unknown: a page if it looks like one. */
TextKind kindOf(std::string_view type);

/* A word of markup in small letters; a longer one than fits equals none. */
struct MarkupWord {
  char bytes[24] = {};
  uint8_t length = 0;

  void add(char c);
  bool operator==(std::string_view other) const { return std::string_view(bytes, length) == other; }
};

enum class At : uint8_t {
  start, /* of a page whose kind is unknown */
  text,
  plain, /* to the page's end */
  tagOpen,
  endTagOpen,
  tagName,
  beforeAttribute,
  attributeName,
  afterAttribute,
  beforeValue,
  value,
  declaration,
  bogusComment,
  comment,
  cdata,
  reference,
  raw, /* what holds no tags but its own end */
  rawTag,
  escape /* of a script */
};

/* A reference or a script's escape on its way. */
struct OpenReference {
  enum class Kind : uint8_t { none, named, number, decimal, hex } kind;
  char name[longestReferenceName + 1];
  uint8_t length;
  bool hasDigits;
  uint32_t value;
};

/* A page on its way. Copies go on by themselves. */
struct PageText {
  TextKind kind = TextKind::unknown;
  At at = At::start;
  NormalText shown, beside;

  MarkupWord tag, attribute, word;
  uint16_t traits = 0; /* of the tag */
  bool isEndTag = false, afterSlash = false;
  bool isKept = false; /* the attribute's value */
  char quote = 0;
  uint8_t dashes = 0; /* and what else brings a comment, or a script's, nearer to its end */
  At back = At::text; /* where a reference stands */
  OpenReference reference{};

  MarkupWord rawTag; /* "" in a script that is no page's */
  uint16_t rawTraits = 0;
  uint32_t highSurrogate = 0; /* the first half of a script's escape */
  uint8_t scriptComment = 0;  /* 1: in a comment of a script, 2: in a script of that */

  bool inForeign = false, hasForeign = false; /* within an svg or math tag; one has been met */
  uint8_t foreignDepth = 0;                   /* tags that it was outside or inside of before, */
  uint64_t outerForeign = 0;                  /* the innermost in the lowest bit */
};

/* Reads on; whole characters of well-formed UTF-8. However they are divided over calls, the texts are the same. */
void readPage(PageText &page, std::string_view characters);

/* The page ends here: the texts are finished, with a blank at both ends. */
void endPage(PageText &page);

}  // namespace netsift

#endif
