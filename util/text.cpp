#include "util/text.h"

#include <cctype>
#include <cstring>

namespace {

bool isWhite(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

char *trim(char *text) {
  if (text == nullptr) return nullptr;
  const char *first = text;
  while (isWhite(*first)) first++;
  size_t length = std::strlen(first);
  while (length > 0 && isWhite(first[length - 1])) length--;
  std::memmove(text, first, length);
  text[length] = '\0';
  return text;
}
