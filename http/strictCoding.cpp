#include "http/strictCoding.h"

#include <algorithm>

#include "http/strictField.h"

namespace netsift {
namespace {

constexpr uint64_t greatestText = 256ULL << 20;
constexpr uint64_t freeText = 1ULL << 20; /* short texts may be as repetitive as they like */
constexpr uint64_t greatestRatio = 200;   /* pages compress to a fifth; zlib's limit is about 1030 */
constexpr size_t longestPiece = 1U << 30; /* zlib counts in 32 bits */

constexpr int zlibWindow = 15;
constexpr int gzipWindow = 15 + 16;
constexpr int rawWindow = -15;

/* RFC 1950: method 8 in the low half, a window of up to 32 KiB in the high. As a raw stream such a byte would begin a
   stored block with padding that is not zero. */
bool beginsZlib(unsigned char byte) { return (byte & 0x0F) == 8 && byte >> 4 <= 7; }

/* What the next byte begins: the first stream, another gzip member, or what is ignored. */
bool beginStream(CodingDecoder &decoder, char next) {
  const auto byte = static_cast<unsigned char>(next);
  if (decoder.place == CodingPlace::start) {
    const int deflateWindow = beginsZlib(byte) ? zlibWindow : rawWindow;
    if (inflateInit2(&decoder.stream, decoder.coding == Coding::gzip ? gzipWindow : deflateWindow) != Z_OK)
      return false;
  } else if (decoder.coding != Coding::gzip || byte != 0x1F) {
    decoder.place = CodingPlace::ignored;
    return true;
  } else if (inflateReset(&decoder.stream) != Z_OK) {
    return false;
  }
  decoder.place = CodingPlace::stream;
  return true;
}

/* One call of inflate; false when the body is bad. */
bool inflatePiece(CodingDecoder &decoder, std::string_view in, size_t &used, char *out, size_t room, size_t &produced) {
  z_stream &stream = decoder.stream;
  const auto inSize = static_cast<uInt>(std::min(in.size(), longestPiece));
  const auto outSize = static_cast<uInt>(std::min(room, longestPiece));
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(in.data())); /* zlib does not write to it */
  stream.avail_in = inSize;
  stream.next_out = reinterpret_cast<Bytef *>(out);
  stream.avail_out = outSize;
  const int status = inflate(&stream, Z_NO_FLUSH);
  used += inSize - stream.avail_in;
  produced += outSize - stream.avail_out;
  decoder.taken += inSize - stream.avail_in;
  decoder.given += outSize - stream.avail_out;
  if (status == Z_STREAM_END) decoder.place = CodingPlace::complete;
  if (status != Z_STREAM_END && status != Z_OK && status != Z_BUF_ERROR) return false;
  const bool bomb = decoder.given > freeText && decoder.given / greatestRatio > decoder.taken;
  if (decoder.given > greatestText || bomb) decoder.exceeded = true;
  return decoder.unbounded || !decoder.exceeded;
}

}  // namespace

Coding readContentCoding(const HeaderLine *first) {
  Coding coding = Coding::identity;
  for (const HeaderLine *line = first->next; line != nullptr; line = line->next) {
    if (!isField(line, "Content-Encoding:")) continue;
    for (std::string_view list = fieldValue(line, "Content-Encoding:"); !list.empty();) {
      const std::string_view name = takeElement(list);
      if (name.empty() || equalsIgnoringCase(name, "identity")) continue;
      if (coding != Coding::identity) return Coding::unknown;
      const bool gzip = equalsIgnoringCase(name, "gzip") || equalsIgnoringCase(name, "x-gzip");
      coding = gzip ? Coding::gzip : equalsIgnoringCase(name, "deflate") ? Coding::deflate : Coding::unknown;
    }
  }
  return coding;
}

Parse decodeCoding(CodingDecoder &decoder, std::string_view in, size_t &used, char *out, size_t room,
                   size_t &produced) {
  used = produced = 0;
  for (;;) {
    if (decoder.place == CodingPlace::ignored) used = in.size();
    if (decoder.place == CodingPlace::stream) {
      if (!inflatePiece(decoder, in.substr(used), used, out + produced, room - produced, produced)) return Parse::bad;
      const bool stopped = used == in.size() || produced == room;
      if (decoder.place == CodingPlace::stream && stopped) return Parse::more;
    } else if (used == in.size()) {
      return decoder.place == CodingPlace::start ? Parse::more : Parse::done;
    } else if (!beginStream(decoder, in[used])) {
      return Parse::bad;
    }
  }
}

Parse finishCoding(const CodingDecoder &decoder) {
  return decoder.place == CodingPlace::stream ? Parse::bad : Parse::done;
}

void endCoding(CodingDecoder &decoder) { inflateEnd(&decoder.stream); }

}  // namespace netsift
