/* What the harnesses share. A harness is a function of the bytes; entry.cpp makes a program of the one that HARNESS
   names. */
#ifndef NETSIFT_FUZZ_HARNESS_H
#define NETSIFT_FUZZ_HARNESS_H

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "netsift.h"
#include "tests/support/support.h"
#include "util/ownedText.h"

using Bytes = std::string_view;

inline void check(bool holds, int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "the check of line %d does not hold\n", line);
  std::abort();
}

#endif
