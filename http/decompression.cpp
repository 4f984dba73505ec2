#include "http/decompression.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "http/wait.h"
#include "log/debugLog.h"
#include "state/strict.h"
#include "util/ownedText.h"

using netsift::Text;

namespace {

constexpr int zlibWindowBits = 15;                                             /* zlib-wrapped, not gzip */
constexpr unsigned char outOfMemory = static_cast<unsigned char>(Z_MEM_ERROR); /* 252 */
constexpr uint64_t longestOutput = std::numeric_limits<unsigned>::max();

const char *messageOf(const z_stream *stream) { return stream->msg == nullptr ? "" : stream->msg; }

int startInflating(z_stream *stream) {
  stream->zalloc = nullptr;
  stream->zfree = nullptr;
  stream->opaque = nullptr;
  stream->msg = nullptr;
  stream->data_type = 1;
  return inflateInit2(stream, zlibWindowBits);
}

/* The output of one piece. */
struct Output {
  Text bytes;
  uint64_t capacity;
};

/* Points the stream at the part of the buffer that is still free; false when there is none. */
bool pointAtFreePart(const Output &output, z_stream *stream) {
  stream->next_out = reinterpret_cast<Bytef *>(output.bytes.get()) + stream->total_out;
  stream->avail_out = static_cast<uInt>(std::min(output.capacity, longestOutput) - stream->total_out);
  return stream->avail_out > 0;
}

/* Five times the input left. With none left the buffer stays full and inflate answers that it cannot go on. */
bool grow(Output &output, z_stream *stream) {
  if (output.capacity >= longestOutput) return false;
  const uint64_t capacity = output.capacity + uint64_t{5} * stream->avail_in;
  char *bytes = static_cast<char *>(std::realloc(output.bytes.get(), capacity + 1));
  if (bytes == nullptr) return false;
  static_cast<void>(output.bytes.release()); /* realloc has taken the old buffer */
  output.bytes.reset(bytes);
  output.capacity = capacity;
  pointAtFreePart(output, stream);
  return true;
}

/* Inflates until the piece is used up, the stream ends or fails; gives the status. */
unsigned char inflatePiece(Output &output, z_stream *stream) {
  for (;;) {
    const int code = inflate(stream, Z_NO_FLUSH);
    dprintf(5, "inflate status %d\n", code);
    if (code == Z_STREAM_END) {
      dprintf(4, "zlib stream ended");
      return Z_STREAM_END;
    }
    if (code != Z_OK) {
      dprintf(2, "inflate error msg  %s %d %d %d\n", messageOf(stream), code, static_cast<int>(stream->avail_out),
              static_cast<int>(stream->avail_in));
      return static_cast<unsigned char>(code);
    }
    if (stream->avail_out == 0 && !grow(output, stream)) return outOfMemory;
  }
}

}  // namespace

int openGZStream(int fd, const char *mode, int limit, gzFile *stream) {
  dprintf(6, "inside openGZStream\n");
  dprintf(2, "IN TO THE OPEN openGZStream");
  const auto time = limit < 0 ? std::chrono::nanoseconds(-1) : std::chrono::nanoseconds(std::chrono::seconds(limit));
  bool readable;
  do {
    if (netsift::strictHttp()) errno = 0;
    readable = netsift::waitOnce(fd, POLLIN, time) > 0;
  } while (!readable && errno == EINTR);
  *stream = readable && mode != nullptr ? gzdopen(fd, mode) : nullptr;
  dprintf(6, "exiting openGZStream\n");
  return *stream == nullptr ? -1 : 1;
}

int isCompressed(const char *coding) {
  dprintf(6, "inside isCompressed\n");
  const std::string_view value = coding == nullptr ? "" : coding;
  auto names = [value](std::string_view word) { return value.find(word) != value.npos; };
  int kind = 0;
  if (!names("identity")) kind = names("gzip") ? 1 : names("deflate") ? 2 : names("compress") ? 3 : 0;
  dprintf(6, "exiting isCompressed\n");
  return kind;
}

char *zlibDecompress(const void *in, unsigned *length, unsigned char *status, unsigned char initialise,
                     z_stream *stream) {
  dprintf(6, "inside zlibDecompress\n");
  Output output{nullptr, uint64_t{4} * *length};
  output.bytes.reset(static_cast<char *>(std::malloc(output.capacity + 1)));
  if (!output.bytes) {
    dprintf(2, "error allocating memory for decompression");
    dprintf(6, "exiting zlibDecompress\n");
    return nullptr;
  }
  stream->next_in = const_cast<Bytef *>(static_cast<const Bytef *>(in));
  stream->avail_in = *length;
  stream->total_in = 0;
  stream->total_out = 0;
  pointAtFreePart(output, stream);

  if (initialise != 0) {
    if (const int code = startInflating(stream); code != Z_OK) {
      dprintf(4, "inflat msg %s", messageOf(stream));
      *status = static_cast<unsigned char>(code);
      dprintf(6, "exiting zlibDecompress\n");
      return nullptr;
    }
  }
  *status = inflatePiece(output, stream);
  *length = static_cast<unsigned>(stream->total_out);
  output.bytes.get()[stream->total_out] = '\0';
  dprintf(6, "exiting zlibDecompress\n");
  return output.bytes.release();
}
