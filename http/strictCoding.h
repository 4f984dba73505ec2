/* Content codings under StrictHttp (RFC 9110 section 8.4): what a text came in, and its text, so that it can be judged
   whatever it came in. */
#ifndef NETSIFT_HTTP_STRICTCODING_H
#define NETSIFT_HTTP_STRICTCODING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "http/strictParse.h"
#include "http/strictUnpack.h"
#include "state/records.h"

namespace netsift {

constexpr size_t mostCodings = 2;

/* What a body came in, in the order in which it is taken off. */
struct ContentCodings {
  std::array<Coding, mostCodings> each{};
  size_t count = 0;
  bool known = true; /* false for any that is not, and for more of them */
};

/* The codings that the Content-Encoding fields name, "identity" elements not counted. */
ContentCodings readContentCodings(const HeaderLine *first);

/* The value of the Accept-Encoding to ask with: of what the client takes by name, with its weights, the codings that can
   be read here; "identity" for none. */
std::string codingsToAskFor(const HeaderLine *first);

enum class CodingPlace { start, stream, complete, rest };

/* A body in one coding on its way in: a new one with `coding` set for each. */
struct CodingDecoder {
  Coding coding = Coding::gzip;
  CodingPlace place = CodingPlace::start;
  UnpackStream stream;
  uint64_t taken = 0, given = 0; /* bytes, in all */
  bool showsRest = false;        /* the caller's to set: what follows a stream and is none is given as it stands */
};

/* Decodes a piece into at most `room` bytes (one or more) of `out`; `used` and `produced` say how much of each. Says
     more  the input is used up or the room is full. When the room is full, output may be left: ask again with the rest
           of the input, empty or not, before the next piece. When it is not, nothing of the text that the input so far
           stands for is held back
     done  the input is used up where a coded stream ends; further pieces may still come
     bad   the stream is damaged, or there is no memory

   A gzip body may have several members, a zstd body several frames, one after the other. What follows and does not begin
   as one (1F, 28), and what follows another stream, is taken and dropped: nobody sees it where the text is delivered in
   identity form. "deflate" is a zlib stream (RFC 1950), or a raw one (RFC 1951), which some servers send, when its first
   byte could not begin the other. */
Parse decodeCoding(CodingDecoder &decoder, std::string_view in, size_t &used, char *out, size_t room, size_t &produced);

/* At the body's end: done when it was whole (a body of no bytes is), bad when it was cut off. */
Parse finishCoding(const CodingDecoder &decoder);

/* A body in one coding or two, begun with startCodings. Not copied or moved. */
struct CodingChain {
  std::array<CodingDecoder, mostCodings> each;
  size_t count = 0;
  std::array<char, 16384> between{}; /* the two */
  size_t start = 0, end = 0;         /* of what is in it */
  bool firstHolds = false, lastHolds = false;
  bool unbounded = false; /* the caller's to set: growth beyond bounds is told and not refused */
  bool exceeded = false;  /* the text has grown beyond bounds */
};

/* `showsRest` as above, for each. */
void startCodings(CodingChain &chain, const ContentCodings &codings, bool showsRest);

/* As decodeCoding and finishCoding. `bad` also, unless `unbounded`, when the text grows beyond bounds: over 1 MiB and 200
   times the bytes it came in, or over 256 MiB and 20 times. */
Parse decodeCodings(CodingChain &chain, std::string_view in, size_t &used, char *out, size_t room, size_t &produced);
Parse finishCodings(const CodingChain &chain);

}  // namespace netsift

#endif
