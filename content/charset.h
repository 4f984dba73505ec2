/* The bytes of a page as characters: internal to the library.

   Which characters they stand for is found as browsers find it (WHATWG Encoding Standard, and section 13.2.3 of HTML):
   by a byte order mark, else by what the answer's head says, else by what the page says of itself in its first 1024
   bytes. A name that browsers do not know is passed over, whatever iconv(3) knows. What nobody names is UTF-8, and
   windows-1252 byte by byte where it is not that. */
#ifndef NETSIFT_CONTENT_CHARSET_H
#define NETSIFT_CONTENT_CHARSET_H

#include <iconv.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "content/utf7.h"

namespace netsift {

struct ConverterCloser {
  void operator()(void *converter) const { iconv_close(converter); }
};

/* Bytes on their way to characters. */
struct Decoder {
  std::unique_ptr<void, ConverterCloser> converter; /* null: UTF-8, windows-1252 or UTF-7 */
  bool isByteWise = false;                          /* windows-1252 and nothing else */
  std::optional<Utf7> utf7;                         /* UTF-7 and nothing else */
  size_t unit = 1;                                  /* bytes passed over where none can be read */
  std::string rest;                                 /* the start of a character whose end has not come */
};

constexpr size_t namingLength = 1024; /* bytes in which a page says what it is written in */

/* What the first bytes of a page, namingLength of them or all, are to be read as, `named` in its head or "". How many
   of them are a byte order mark is left in `mark`. Empty: what nobody names. */
std::string charsetOf(std::string_view start, std::string_view named, size_t &mark);

/* Whether ASCII can stand for something else in it, while browsers may show it as ASCII: UTF-7, which today's do not
   know, and ISO-2022-JP, which some guess at. */
bool isDoubtful(const std::string &charset);

/* A decoder of a name that charsetOf gave. */
Decoder openDecoder(const std::string &charset);

/* Adds to `characters` what the bytes stand for: whole characters of well-formed UTF-8. `isLast`: so does a rest. */
void decodeText(Decoder &decoder, std::string_view bytes, bool isLast, std::string &characters);

}  // namespace netsift

#endif
