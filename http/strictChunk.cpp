#include "http/strictChunk.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>

#include "http/strictField.h"

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
  if (c == '\r' && lineStarts) return goTo(decoder, ChunkPlace::lastLineFeed);
  if (c == '\r') {
    decoder.trailerText += "\r\n";
    return goTo(decoder, ChunkPlace::trailerLineFeed);
  }
  if (lineStarts && ++decoder.trailers > mostTrailers) return Parse::bad;
  decoder.trailerText += c;
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

constexpr std::string_view keptBack[] = {"Age",
                                         "Authorization",
                                         "Cache-Control",
                                         "Connection",
                                         "Content-Disposition",
                                         "Content-Encoding",
                                         "Content-Length",
                                         "Content-Location",
                                         "Content-Range",
                                         "Content-Security-Policy",
                                         "Content-Type",
                                         "Cookie",
                                         "Date",
                                         "Expect",
                                         "Expires",
                                         "Host",
                                         "If-Match",
                                         "If-Modified-Since",
                                         "If-None-Match",
                                         "If-Range",
                                         "If-Unmodified-Since",
                                         "Keep-Alive",
                                         "Location",
                                         "Max-Forwards",
                                         "Pragma",
                                         "Proxy-Authenticate",
                                         "Proxy-Authorization",
                                         "Proxy-Connection",
                                         "Range",
                                         "Refresh",
                                         "Retry-After",
                                         "Set-Cookie",
                                         "TE",
                                         "Trailer",
                                         "Transfer-Encoding",
                                         "Upgrade",
                                         "Vary",
                                         "Via",
                                         "WWW-Authenticate",
                                         "Warning"};

bool isPassable(std::string_view name) {
  return std::none_of(std::begin(keptBack), std::end(keptBack),
                      [name](std::string_view kept) { return equalsIgnoringCase(name, kept); });
}

bool isField(std::string_view line, size_t colon) {
  return colon != line.npos && isToken(line.substr(0, colon)) && std::all_of(line.begin(), line.end(), [](char c) {
           return c == '\t' || (static_cast<unsigned char>(c) >= ' ' && c != 0x7F);
         });
}

}  // namespace

std::string asChunk(std::string_view data) {
  char size[24];
  const int length = std::snprintf(size, sizeof size, "%zx\r\n", data.size());
  std::string chunk;
  chunk.reserve(sizeof size + data.size());
  return chunk.append(size, static_cast<size_t>(length)).append(data).append("\r\n");
}

std::string endOfChunks(std::string_view trailerText) {
  constexpr char none[] = "0\r\n\r\n";
  std::string end = "0\r\n";
  for (size_t next = 0; !trailerText.empty(); trailerText.remove_prefix(next)) {
    const size_t lineEnd = trailerText.find("\r\n");
    if (lineEnd == trailerText.npos) return none;
    next = lineEnd + 2;
    const std::string_view line = trailerText.substr(0, lineEnd);
    const size_t colon = line.find(':');
    if (!isField(line, colon)) return none;
    if (isPassable(line.substr(0, colon))) end.append(line).append("\r\n");
  }
  return end + "\r\n";
}

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
