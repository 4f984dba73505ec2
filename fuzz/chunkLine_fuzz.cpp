/* A chunk's size line as it comes from the socket. */
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "http/socket.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  int ends[2];
  if (size > 60000 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 0;
  const ssize_t sent = write(ends[1], data, size);
  shutdown(ends[1], SHUT_WR);
  unsigned length = 0;
  unsigned char status = 0;
  char *line = getSocketLine1(ends[0], &length, &status);
  if (line == nullptr || sent != static_cast<ssize_t>(size) || length > size || line[length] != '\0') std::abort();
  getChunkSize(line);
  std::free(line);
  close(ends[0]);
  close(ends[1]);
  return 0;
}
