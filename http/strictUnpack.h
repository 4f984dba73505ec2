/* The streams of the libraries that unpack content codings, behind one record of functions. */
#ifndef NETSIFT_HTTP_STRICTUNPACK_H
#define NETSIFT_HTTP_STRICTUNPACK_H

#include <brotli/decode.h>
#include <zlib.h>
#include <zstd.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace netsift {

enum class Coding { identity, gzip, deflate, brotli, zstd, unknown };

struct BrotliCloser {
  void operator()(BrotliDecoderState *state) const { BrotliDecoderDestroyInstance(state); }
};
struct ZstdCloser {
  void operator()(ZSTD_DStream *stream) const { ZSTD_freeDStream(stream); }
};
struct ZlibCloser {
  void operator()(z_stream *stream) const;
};

/* The one of the three that a body needs. */
struct UnpackStream {
  std::unique_ptr<z_stream, ZlibCloser> zlib;
  std::unique_ptr<BrotliDecoderState, BrotliCloser> brotli;
  std::unique_ptr<ZSTD_DStream, ZstdCloser> zstd;
};

enum class Unpacked { more, streamEnd, bad };

struct Unpacker {
  Coding coding;
  /* Whether a byte behind a whole stream begins another one that belongs to the body. */
  bool (*continues)(char byte);
  /* Makes ready for a stream with this first byte, the body's first or a further one. False without memory. */
  bool (*begin)(UnpackStream &stream, char byte);
  /* Takes from `in` and gives up to `room` bytes; both counts are added to. */
  Unpacked (*unpack)(UnpackStream &stream, std::string_view in, size_t &used, char *out, size_t room, size_t &produced);
};

/* Null for identity and what is unknown. */
const Unpacker *unpackerFor(Coding coding);

}  // namespace netsift

#endif
