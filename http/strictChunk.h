/* Chunked bodies under StrictHttp, decoded as they arrive (RFC 9112 section 7.1). */
#ifndef NETSIFT_HTTP_STRICTCHUNK_H
#define NETSIFT_HTTP_STRICTCHUNK_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "http/strictParse.h"

namespace netsift {

enum class ChunkPlace {
  sizeStart,
  size,
  afterSize,
  extension,
  sizeLineFeed,
  data,
  dataReturn,
  dataLineFeed,
  trailerStart,
  trailer,
  trailerLineFeed,
  lastLineFeed
};

/* A body on its way in; a new one for each message. */
struct ChunkDecoder {
  ChunkPlace place = ChunkPlace::sizeStart;
  uint64_t left = 0;  /* the chunk's size while that is read, then its bytes still to come */
  size_t bounded = 0; /* bytes of the size line, or of all trailers */
  unsigned trailers = 0;
  std::string trailerText; /* their lines, as they came */
};

/* Copies the chunks' data from `in` to `out`, at most `room` bytes; `used` and `produced` say how much of each. Says
   `more` once the input is used up or the room is full (an input then goes on at `used`), `done` exactly behind the
   body's last line end, beyond which nothing is taken, and `bad` for anything else: a size that is no hexadecimal
   number up to 2^63 - 1, a size line with its extensions over 4 KiB, over 16 KiB or 100 lines of trailers, a NUL or a
   CR or LF by itself in them, data not followed by CR LF. Extensions are dropped. */
Parse decodeChunks(ChunkDecoder &decoder, std::string_view in, size_t &used, char *out, size_t room, size_t &produced);

/* Data, one byte or more of it, as a chunk. */
std::string asChunk(std::string_view data);

/* What ends a chunked body: the last chunk and those of the trailers that may be passed on. None may when one of them is
   no field; otherwise not those that frame or route a message, describe, code or modify what was judged, or log somebody
   in (RFC 9110 section 6.5.1). */
std::string endOfChunks(std::string_view trailerText);

}  // namespace netsift

#endif
