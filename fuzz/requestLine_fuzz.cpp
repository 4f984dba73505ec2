/* A request line and the Host field behind it (after the first NUL, or none): the normalised URL stays inside its
 * bounds. */
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "http/requestUrl.h"
#include "state/connection.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string line(reinterpret_cast<const char *>(data), size), field;
  if (const size_t end = line.find('\0'); end != std::string::npos) {
    field = "Host:" + line.substr(end + 1);
    line.resize(end);
  }
  HeaderLine second{strdup(field.c_str()), nullptr};
  HeaderLine first{strdup(line.c_str()), field.empty() ? nullptr : &second};
  unsigned port = 0;
  char *host = nullptr;
  char *whole = getURL(&first, &port, &host);
  if (std::strlen(request) >= sizeof request) std::abort();
  if (whole != nullptr) {
    if (std::strlen(whole) > 503 || host == nullptr || std::strlen(host) > 255) std::abort();
    char *decoded = decodeURL(whole);
    if (std::strlen(decoded) > std::strlen(whole)) std::abort();
    isAnIP(host);
    std::free(decoded);
  }
  std::free(whole);
  std::free(host);
  std::free(first.text);
  std::free(second.text);
  return 0;
}
