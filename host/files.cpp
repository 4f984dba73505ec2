#include "host/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/installPath.h"

namespace netsift::host {

namespace {

std::string parentOf(const std::string &path) {
  size_t end = path.find_last_not_of('/');
  size_t slash = end == path.npos ? path.npos : path.rfind('/', end);
  if (slash == path.npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool isFolder(const std::string &path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::string rooted(std::string_view path) {
  bool own = path.starts_with("/opt/Velmora/") || path.starts_with("/var/Velmora/");
  return std::string(own && installroot != nullptr ? installroot : "").append(path);
}

std::string configPath(std::string_view name) {
  return name.starts_with('/') ? rooted(name) : rooted(configFolder).append(name);
}

std::string logPath(std::string_view name) {
  return name.starts_with('/') ? rooted(name) : rooted(logFolder).append(name);
}

bool readWholeFile(const std::string &path, size_t largest, std::string *content, std::string *error) {
  content->clear();
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ssize_t count = fd < 0 ? -1 : 0;
  char block[16384];
  while (fd >= 0 && content->size() <= largest && (count = read(fd, block, sizeof block)) > 0)
    content->append(block, static_cast<size_t>(count));
  if (count < 0) *error = std::string("cannot be read: ") + std::strerror(errno);
  if (fd >= 0) close(fd);
  if (count >= 0 && content->size() > largest) *error = "is larger than " + std::to_string(largest) + " bytes";
  return count >= 0 && content->size() <= largest;
}

std::string makeFolder(const std::string &path, unsigned mode) {
  if (isFolder(path)) return "";
  if (std::string parent = parentOf(path); parent != path) {
    if (std::string error = makeFolder(parent, 0755); !error.empty()) return error;
  }
  if (mkdir(path.c_str(), mode) == 0 || errno == EEXIST) return "";
  return path + " cannot be made: " + std::strerror(errno);
}

std::string folderTrouble(const std::string &path, bool writable, bool mayBeMissing) {
  if (!exists(path)) {
    if (!mayBeMissing) return "does not exist";
    std::string above = parentOf(path);
    while (!exists(above)) above = parentOf(above);
    return mayAccess(above, W_OK | X_OK) ? "" : "does not exist and cannot be made in " + above;
  }
  if (!isFolder(path)) return "is no folder";
  if (!mayAccess(path, X_OK)) return "cannot be entered: check its owner and mode";
  return writable && !mayAccess(path, W_OK) ? "cannot be written: check its owner and mode" : "";
}

bool mayAccess(const std::string &path, int mode) { return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0; }

bool exists(const std::string &path) { return mayAccess(path, F_OK) || (errno != ENOENT && errno != ENOTDIR); }

}  // namespace netsift::host
