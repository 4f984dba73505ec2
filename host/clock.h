/* Time that only goes forward. */
#ifndef NETSIFT_HOST_CLOCK_H
#define NETSIFT_HOST_CLOCK_H

#include <cstdint>
#include <ctime>

namespace netsift::host {

inline int64_t milliseconds() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace netsift::host

#endif
