#include "http/strictChunk.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace netsift {
namespace {

constexpr uint64_t greatestSize = std::numeric_limits<int64_t>::max();
constexpr size_t longestSizeLine = 4 * 1024;
constexpr size_t longestTrailers = 16 * 1024;
constexpr unsigned mostTrailers = 100;

/* -1 for no hexadecimal digit. */
int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

Parse goTo(ChunkDecoder &decoder, ChunkPlace place) {
  decoder.place = place;
  return Parse::more;
}

Parse takeSizeDigit(ChunkDecoder &decoder, int digit) {
  if (decoder.left > greatestSize >> 4) return Parse::bad;
  decoder.left = decoder.left << 4 | static_cast<uint64_t>(digit);
  return goTo(decoder, ChunkPlace::size);
}

/* A byte of the line that begins a chunk. Blanks may stand behind the size (RFC 9112 section 7.1.1: before an
   extension; old servers pad with them). */
Parse takeSizeLineByte(ChunkDecoder &decoder, char c) {
  if (++decoder.bounded > longestSizeLine) return Parse::bad;
  const int digit = hexValue(c);
  if (decoder.place == ChunkPlace::sizeStart) return digit < 0 ? Parse::bad : takeSizeDigit(decoder, digit);
  if (c == '\r') return goTo(decoder, ChunkPlace::sizeLineFeed);
  if (c == '\n' || c == '\0') return Parse::bad;
  if (decoder.place == ChunkPlace::extension) return Parse::more;
  if (decoder.place == ChunkPlace::size && digit >= 0) return takeSizeDigit(decoder, digit);
  if (c == ';') return goTo(decoder, ChunkPlace::extension);
  return c == ' ' || c == '\t' ? goTo(decoder, ChunkPlace::afterSize) : Parse::bad;
}

Parse takeTrailerByte(ChunkDecoder &decoder, char c) {
  if (++decoder.bounded > longestTrailers || c == '\n' || c == '\0') return Parse::bad;
  const bool lineStarts = decoder.place == ChunkPlace::trailerStart;
  if (c == '\r') return goTo(decoder, lineStarts ? ChunkPlace::lastLineFeed : ChunkPlace::trailerLineFeed);
  if (lineStarts && ++decoder.trailers > mostTrailers) return Parse::bad;
  return goTo(decoder, ChunkPlace::trailer);
}

Parse takeLineFeed(ChunkDecoder &decoder, char c) {
  if (c != '\n') return Parse::bad;
  switch (decoder.place) {
    case ChunkPlace::sizeLineFeed:
      decoder.bounded = 0;
      return goTo(decoder, decoder.left > 0 ? ChunkPlace::data : ChunkPlace::trailerStart);
    case ChunkPlace::dataLineFeed:
      return goTo(decoder, ChunkPlace::sizeStart);
    case ChunkPlace::trailerLineFeed:
      return goTo(decoder, ChunkPlace::trailerStart);
    default:
      return Parse::done;
  }
}

Parse takeByte(ChunkDecoder &decoder, char c) {
  switch (decoder.place) {
    case ChunkPlace::sizeStart:
    case ChunkPlace::size:
    case ChunkPlace::afterSize:
    case ChunkPlace::extension:
      return takeSizeLineByte(decoder, c);
    case ChunkPlace::dataReturn:
      return c == '\r' ? goTo(decoder, ChunkPlace::dataLineFeed) : Parse::bad;
    case ChunkPlace::trailerStart:
    case ChunkPlace::trailer:
      return takeTrailerByte(decoder, c);
    default:
      return takeLineFeed(decoder, c);
  }
}

}  // namespace

Parse decodeChunks(ChunkDecoder &decoder, std::string_view in, size_t &used, char *out, size_t room, size_t &produced) {
  used = produced = 0;
  while (used < in.size()) {
    if (decoder.place != ChunkPlace::data) {
      const Parse answer = takeByte(decoder, in[used++]);
      if (answer != Parse::more) return answer;
      continue;
    }
    const size_t run = std::min<uint64_t>(decoder.left, std::min(in.size() - used, room - produced));
    if (run == 0) break;
    std::memcpy(out + produced, in.data() + used, run);
    used += run;
    produced += run;
    decoder.left -= run;
    if (decoder.left == 0) decoder.place = ChunkPlace::dataReturn;
  }
  return Parse::more;
}

}  // namespace netsift
