/* UTF-7 (RFC 2152) as UTF-8: internal to the library.

   Read here, since iconv(3) reads ill-formed UTF-7 differently when it comes in other pieces. A run of base64 begins at
   "+" and ends at the first byte that is not of its alphabet; bits that make no whole unit are dropped, as are those
   of a run that is cut off. "+-" is "+"; any other ASCII stands for itself. */
#ifndef NETSIFT_CONTENT_UTF7_H
#define NETSIFT_CONTENT_UTF7_H

#include <cstdint>
#include <string>
#include <string_view>

namespace netsift {

struct Utf7 {
  bool isCoded = false;   /* within a run of base64 */
  bool isOpening = false; /* nothing of it has come yet */
  uint32_t bits = 0;      /* those of the run that make no unit yet, the lowest `bitCount` */
  unsigned bitCount = 0;
  uint16_t high = 0; /* a high surrogate that waits for its low one, or 0 */
};

/* Adds to `characters` what the bytes stand for, in well-formed UTF-8; what stands for nothing is U+FFFD. */
void readUtf7(Utf7 &state, std::string_view bytes, bool isLast, std::string &characters);

}  // namespace netsift

#endif
