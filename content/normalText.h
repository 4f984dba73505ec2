/* Text as words are compared: internal to the library.

   A list and a page may write a word in different ways and mean the same: in capitals, in full-width letters,
   with an accent as a character of its own. Both are brought into one form: that of NFKC_Casefold (Unicode, UAX #15 and
   #31), with accents that no letter takes up left out. Everything that is neither letter, mark nor digit is a blank,
   runs of them one; a symbol that is not ASCII is a word. Characters that nobody sees (soft hyphens, zero-width ones)
   are nothing. */
#ifndef NETSIFT_CONTENT_NORMALTEXT_H
#define NETSIFT_CONTENT_NORMALTEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netsift {

/* A text that is being put together. Copies go on by themselves. */
struct NormalText {
  std::string text;       /* what is finished, UTF-8; an ASCII character at its end may still take up a mark */
  bool afterBlank = true; /* a blank would add nothing */
  char open[64] = {};     /* a character and the marks that may still change it, UTF-8; a mark beyond is nothing */
  size_t openLength = 0;
};

/* Adds characters: whole ones of well-formed UTF-8. However they are divided over calls, the text is the same. */
void addText(NormalText &normal, std::string_view characters);
void addCharacter(NormalText &normal, uint32_t codePoint);

/* Adds what at the front needs no second look; returns how many bytes. It stops at what begins markup, "<" and "&", or
   where `inScript` at "<" and a backslash. */
size_t addPlain(NormalText &normal, std::string_view characters, bool inScript);

/* Makes a blank of what is between here and what follows. */
void endWord(NormalText &normal);

/* Bytes at the front of the text that nothing changes any more. */
size_t settledLength(const NormalText &normal);

/* A list's phrase in the form of the texts that it is looked for in; a blank at an end is the end of a word. */
std::string normalPhrase(std::string_view phrase);

}  // namespace netsift

#endif
