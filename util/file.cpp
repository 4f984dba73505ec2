#include "util/file.h"

#include <sys/stat.h>

long get_file_size(const char *path) {
  struct stat file;
  return stat(path, &file) == 0 ? static_cast<long>(file.st_size) : -1;
}
