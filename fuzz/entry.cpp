#include <cstdint>
#include <string_view>

void HARNESS(std::string_view input);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size > 0) HARNESS({reinterpret_cast<const char *>(data), size});
  return 0;
}
