#include "http/strictUnpack.h"

#include <algorithm>
#include <new>

namespace netsift {
namespace {

constexpr size_t longestPiece = 1U << 30; /* zlib counts in 32 bits */
constexpr int zlibWindow = 15;
constexpr int gzipWindow = 15 + 16;
constexpr int rawWindow = -15;
constexpr int zstdWindow = 23; /* 8 MiB: what a sender may expect of whoever asks for it (RFC 9659) */

/* -- gzip and deflate -- */

/* RFC 1950: method 8 in the low half, a window of up to 32 KiB in the high. As a raw stream such a byte would begin a
   stored block with padding that is not zero. */
bool beginsZlib(char byte) { return (byte & 0x0F) == 8 && static_cast<unsigned char>(byte) >> 4 <= 7; }

bool beginInflating(UnpackStream &stream, int window) {
  if (stream.zlib) return inflateReset(stream.zlib.get()) == Z_OK;
  auto fresh = std::unique_ptr<z_stream>(new (std::nothrow) z_stream{});
  if (!fresh || inflateInit2(fresh.get(), window) != Z_OK) return false;
  stream.zlib.reset(fresh.release());
  return true;
}

bool beginGzip(UnpackStream &stream, char) { return beginInflating(stream, gzipWindow); }

bool beginDeflate(UnpackStream &stream, char byte) {
  return beginInflating(stream, beginsZlib(byte) ? zlibWindow : rawWindow);
}

Unpacked inflatePiece(UnpackStream &held, std::string_view in, size_t &used, char *out, size_t room, size_t &produced) {
  z_stream &stream = *held.zlib;
  const auto inSize = static_cast<uInt>(std::min(in.size(), longestPiece));
  const auto outSize = static_cast<uInt>(std::min(room, longestPiece));
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(in.data())); /* zlib does not write to it */
  stream.avail_in = inSize;
  stream.next_out = reinterpret_cast<Bytef *>(out);
  stream.avail_out = outSize;
  const int status = inflate(&stream, Z_NO_FLUSH);
  used += inSize - stream.avail_in;
  produced += outSize - stream.avail_out;
  if (status == Z_STREAM_END) return Unpacked::streamEnd;
  return status == Z_OK || status == Z_BUF_ERROR ? Unpacked::more : Unpacked::bad;
}

/* -- brotli -- */

bool beginBrotli(UnpackStream &stream, char) {
  stream.brotli.reset(BrotliDecoderCreateInstance(nullptr, nullptr, nullptr));
  return stream.brotli != nullptr;
}

Unpacked unpackBrotli(UnpackStream &stream, std::string_view in, size_t &used, char *out, size_t room,
                      size_t &produced) {
  size_t inLeft = in.size(), outLeft = room;
  const auto *next = reinterpret_cast<const uint8_t *>(in.data());
  auto *to = reinterpret_cast<uint8_t *>(out);
  const BrotliDecoderResult result =
      BrotliDecoderDecompressStream(stream.brotli.get(), &inLeft, &next, &outLeft, &to, nullptr);
  used += in.size() - inLeft;
  produced += room - outLeft;
  if (result == BROTLI_DECODER_RESULT_SUCCESS) return Unpacked::streamEnd;
  return result == BROTLI_DECODER_RESULT_ERROR ? Unpacked::bad : Unpacked::more;
}

/* -- zstd -- */

bool beginZstd(UnpackStream &stream, char) {
  if (!stream.zstd) stream.zstd.reset(ZSTD_createDStream());
  return stream.zstd && ZSTD_isError(ZSTD_DCtx_reset(stream.zstd.get(), ZSTD_reset_session_only)) == 0 &&
         ZSTD_isError(ZSTD_DCtx_setParameter(stream.zstd.get(), ZSTD_d_windowLogMax, zstdWindow)) == 0;
}

Unpacked unpackZstd(UnpackStream &stream, std::string_view in, size_t &used, char *out, size_t room, size_t &produced) {
  ZSTD_inBuffer from{in.data(), in.size(), 0};
  ZSTD_outBuffer to{out, room, 0};
  const size_t result = ZSTD_decompressStream(stream.zstd.get(), &to, &from);
  used += from.pos;
  produced += to.pos;
  if (ZSTD_isError(result) != 0) return Unpacked::bad;
  return result == 0 ? Unpacked::streamEnd : Unpacked::more;
}

/* A further gzip member, a further zstd frame. */
constexpr Unpacker unpackers[] = {{Coding::gzip, [](char byte) { return byte == 0x1F; }, beginGzip, inflatePiece},
                                  {Coding::deflate, [](char) { return false; }, beginDeflate, inflatePiece},
                                  {Coding::brotli, [](char) { return false; }, beginBrotli, unpackBrotli},
                                  {Coding::zstd, [](char byte) { return byte == 0x28; }, beginZstd, unpackZstd}};

}  // namespace

void ZlibCloser::operator()(z_stream *stream) const {
  inflateEnd(stream);
  delete stream;
}

const Unpacker *unpackerFor(Coding coding) {
  const auto *found = std::find_if(std::begin(unpackers), std::end(unpackers),
                                   [coding](const Unpacker &one) { return one.coding == coding; });
  return found == std::end(unpackers) ? nullptr : found;
}

}  // namespace netsift
