/* What a reader sees of a page: HTML to plain text, in place. */
#ifndef NETSIFT_CONTENT_HTMLTOTEXT_H
#define NETSIFT_CONTENT_HTMLTOTEXT_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Replaces `length` bytes of HTML, which a NUL must follow, by the text that a reader sees, clears what is left of them
   and stores the text's length. One pass in the buffer itself: no memory is needed, so that nothing can fail.
   - Tags go without leaving a space, one that is not closed together with the rest. White space between two tags goes
     when it holds a space and nothing but spaces, CR and LF; white space after the last tag stays.
   - Text after a white or tiny font tag (any tag that begins with "f") or a "<noframes" tag goes up to the next tag;
     white text leaves one space.
   - "&nbsp;" "&quot;" "&amp;" "&lt;" "&gt;", in any case, and decimal references are decoded, the latter modulo 256. A
     decimal reference uses up the byte that ends it, unless that is "<" or "&"; one without digits leaves that byte
     as text; one that the page ends in is dropped. Any other "&" stays.
   - Script and style content stays, and is scored as visible text. */
NETSIFT_API void ConvertHTMLToText(char *buffer, int32_t *length);

/* Position of the first occurrence of `word` in any case; -1 when there is none. */
NETSIFT_API int ifpresent1(const char *text, const char *word);

/* Takes leading spaces and tabs, and trailing spaces, tabs, CR and LF, off the text. Index of the last byte kept; 0
   also when none is. */
NETSIFT_API int processmystring1(char *text);

/* Takes the blanks on both sides of every occurrence of the one byte of `byte` out of the text. Where a space follows
   an occurrence, the rest of the text is stripped as by processmystring1; where one precedes it, the part before. */
NETSIFT_API void RemoveSpacesBeforeAndAfterByte(char *text, const char *byte);

/* Appends the tag's text after the first "=" that follows "href" (in any case), a space and a NUL at destination +
   *destinationLength, and adds to the length. Nothing when there is no "href", no "=" or nothing after it. The caller
   answers for the room. */
NETSIFT_API void CheckForHREFLink(const char *tag, char *destination, int *destinationLength);

NETSIFT_END

#endif
