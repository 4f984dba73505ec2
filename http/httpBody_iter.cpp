#include "http/httpBody_iter.h"

#include <array>
#include <cstdlib>

#include "http/socket.h"
#include "log/debugLog.h"

namespace {

/* What a byte becomes: 0 is left out, a blank only separates. */
constexpr std::array<char, 256> judgedForm = [] {
  std::array<char, 256> table{};
  for (size_t byte = 0; byte < table.size(); byte++) table[byte] = static_cast<char>(byte);
  for (char letter = 'A'; letter <= 'Z'; letter++) table[letter] = static_cast<char>(letter - 'A' + 'a');
  for (char separator : {'\r', '\t', '\n'}) table[separator] = ' ';
  return table;
}();

}  // namespace

unsigned char getHTTPBody(int fd, void *buffer, unsigned *length, int limit, int datalen) {
  dprintf(6, "inside getHTTPBody\n");
  unsigned char status = 0;
  *length = readFromSocket(fd, buffer, *length, &status, limit, datalen);
  dprintf(6, "exiting getHTTPBody\n");
  return status;
}

signed char getGZHTTPBody(int fd, gzFile stream, void *buffer, unsigned *length, int limit, int datalen) {
  dprintf(6, "inside getGZHTTPBody\n");
  unsigned char status = 0;
  *length = readGZFromSocket(fd, stream, buffer, *length, &status, limit, datalen);
  dprintf(6, "exiting getGZHTTPBody\n");
  return static_cast<signed char>(status);
}

signed char sendHTTPBody(int fd, const void *buffer, int length, int limit) {
  dprintf(6, "inside sendHTTPBody\n");
  const int result = sendToSocket(fd, buffer, length, limit);
  dprintf(6, "exiting sendHTTPBody\n");
  return static_cast<signed char>(result);
}

char *preProcessBody(const char *body, int length, int *outLength) {
  dprintf(6, "inside preProcessBody\n");
  const size_t size = length > 0 ? static_cast<size_t>(length) : 0;
  char *text = static_cast<char *>(std::malloc(size + 1));
  if (text == nullptr) {
    dprintf(2, "Failed to allocate memory in preProcessBody");
    dprintf(6, "exiting preProcessBody\n");
    return nullptr;
  }

  /* No branch depends on the text, since where words end cannot be predicted: every byte is put down, and stays if it
     is no NUL and no second separator in a row. The last separator goes if nothing came after it. */
  char *out = text;
  unsigned separated = 0;
  for (size_t i = 0; i < size; i++) {
    const char form = judgedForm[static_cast<unsigned char>(body[i])];
    const unsigned kept = form != '\0';
    const unsigned separates = form == ' ';
    *out = form;
    out += kept & ~(separates & separated);
    separated = kept != 0 ? separates : separated;
  }
  if (separated != 0) out--;
  *out = '\0';
  *outLength = static_cast<int>(out - text);
  dprintf(6, "exiting preProcessBody\n");
  return text;
}
