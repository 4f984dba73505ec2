/* Chunked bodies: the first two bytes choose the size of the pieces and the room. However a body is cut, it is read the
   same, and the rest that is not taken does not matter. */
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "http/strictChunk.h"

using namespace netsift;

namespace {

Parse decode(std::string_view text, size_t pieceSize, size_t room, std::string &body, size_t &total) {
  ChunkDecoder decoder;
  std::vector<char> out(room);
  Parse answer = Parse::more;
  for (total = 0; answer == Parse::more && total < text.size();) {
    const std::vector<char> piece(text.begin() + static_cast<ptrdiff_t>(total),
                                  text.begin() + static_cast<ptrdiff_t>(std::min(text.size(), total + pieceSize)));
    size_t used = 0, produced = 0;
    answer = decodeChunks(decoder, {piece.data(), piece.size()}, used, out.data(), room, produced);
    if (used > piece.size() || produced > room || used == 0) std::abort();
    body.append(out.data(), produced);
    total += used;
  }
  return answer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  const std::string_view text(reinterpret_cast<const char *>(data) + 2, size - 2);
  std::string body, bodyOfPieces, bodyAlone;
  size_t total = 0, totalOfPieces = 0, totalAlone = 0;
  const Parse answer = decode(text, size, size, body, total);
  if (decode(text, 1 + data[0], 1 + data[1], bodyOfPieces, totalOfPieces) != answer) std::abort();
  if (body != bodyOfPieces || total != totalOfPieces || body.size() > total) std::abort();
  if (answer != Parse::done) return 0;
  if (decode(text.substr(0, total), size, size, bodyAlone, totalAlone) != Parse::done || bodyAlone != body)
    std::abort();
  if (total < 5 || !text.substr(0, total).ends_with("\r\n\r\n")) std::abort();
  return 0;
}
