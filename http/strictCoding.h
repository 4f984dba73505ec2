/* Content codings under StrictHttp (RFC 9110 section 8.4): what a text came in, and its text, so that it can be judged
   whatever it came in. */
#ifndef NETSIFT_HTTP_STRICTCODING_H
#define NETSIFT_HTTP_STRICTCODING_H

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "http/strictParse.h"
#include "state/records.h"

namespace netsift {

enum class Coding { identity, gzip, deflate, unknown };

/* The coding that the Content-Encoding fields name, "identity" elements not counted; several codings are unknown. */
Coding readContentCoding(const HeaderLine *first);

enum class CodingPlace { start, stream, complete, ignored };

/* A gzip or deflate body on its way in: a new one with `coding` set for each body, released by endCoding, not copied or
   moved in between. */
struct CodingDecoder {
  Coding coding = Coding::gzip;
  CodingPlace place = CodingPlace::start;
  z_stream stream{};
  uint64_t taken = 0, given = 0; /* bytes, in all */
  bool unbounded = false;        /* the caller's to set: growth beyond bounds is told and not refused */
  bool exceeded = false;         /* the text has grown beyond bounds */
};

/* Decodes a piece into at most `room` bytes (one or more) of `out`; `used` and `produced` say how much of each. Says
     more  the input is used up or the room is full. When the room is full, output may be left: ask again with the rest
           of the input, empty or not, before the next piece
     done  the input is used up where a coded stream ends; further pieces may still come
     bad   the stream is damaged, zlib has no memory, or the text grows beyond bounds: over 256 MiB, or over 1 MiB and
           200 times the bytes it came in, unless `unbounded`

   A gzip body may have several members, one after the other. What follows a gzip member and does not begin with its
   first byte (1F), and what follows a deflate stream, is taken and dropped: nobody sees it, as the text is delivered in
   identity form. "deflate" is a zlib stream (RFC 1950), or a raw one (RFC 1951), which some servers send, when its
   first byte could not begin the other. */
Parse decodeCoding(CodingDecoder &decoder, std::string_view in, size_t &used, char *out, size_t room, size_t &produced);

/* At the body's end: done when it was whole (a body of no bytes is), bad when it was cut off. */
Parse finishCoding(const CodingDecoder &decoder);

void endCoding(CodingDecoder &decoder);

}  // namespace netsift

#endif
