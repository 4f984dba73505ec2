/* Texts in content codings. */
#ifndef NETSIFT_TESTS_SUPPORT_CODED_H
#define NETSIFT_TESTS_SUPPORT_CODED_H

#include <brotli/encode.h>

#include "http/strictUnpack.h"
#include "tests/support/support.h"

namespace netsift::test {

inline std::string coded(Coding coding, const std::string &text) {
  if (coding == Coding::gzip || coding == Coding::deflate) return compressed(text, coding == Coding::gzip ? 31 : 15);
  std::string out(text.size() + 1000, '\0');
  size_t size = out.size();
  if (coding == Coding::zstd) {
    size = ZSTD_compress(out.data(), size, text.data(), text.size(), 3);
  } else {
    const auto *in = reinterpret_cast<const uint8_t *>(text.data());
    auto *to = reinterpret_cast<uint8_t *>(out.data());
    BrotliEncoderCompress(5, 22, BROTLI_MODE_GENERIC, text.size(), in, &size, to);
  }
  return out.substr(0, size);
}

}  // namespace netsift::test

#endif
