#include "host/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

const char *remedy(int cause) {
  switch (cause) {
    case EACCES:
    case EPERM:
      return "; check its owner and mode";
    case ENOSPC:
    case EDQUOT:
      return "; free some space there";
    case EFBIG:
      return "; raise the limit on the size of files";
    case EROFS:
      return "; make the file system writable";
    default:
      return "";
  }
}

/* The size of a regular file that was opened to read; -1, with the cause in words, when that failed or it is none. */
off_t regularSize(int fd, std::string *error) {
  struct stat status;
  if (fd < 0 || fstat(fd, &status) != 0) {
    *error = systemTrouble("cannot be read");
    return -1;
  }
  if (S_ISREG(status.st_mode)) return status.st_size;
  *error = S_ISDIR(status.st_mode) ? "is a folder; put a file in its place"
                                   : "is a pipe or device, which may never end; put a regular file in its place";
  return -1;
}

/* A pipe that nobody writes to is opened all the same, and is found out afterwards. */
int openToRead(const std::string &path) { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(count));
  }
  return true;
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

std::string systemTrouble(const char *what) {
  int cause = errno;
  return std::string(what) + ": " + std::strerror(cause) + remedy(cause);
}

std::string fileTrouble(const std::string &path, bool mayBeEmpty) {
  std::string error;
  int fd = openToRead(path);
  off_t size = regularSize(fd, &error);
  if (fd >= 0) close(fd);
  return size == 0 && !mayBeEmpty ? "is empty" : error;
}

bool readWholeFile(const std::string &path, size_t largest, std::string *content, std::string *error) {
  content->clear();
  int fd = openToRead(path);
  ssize_t count = regularSize(fd, error) < 0 ? -1 : 0;
  bool regular = count == 0;
  char block[16384];
  while (regular && content->size() <= largest && (count = read(fd, block, sizeof block)) > 0)
    content->append(block, static_cast<size_t>(count));
  if (regular && count < 0) *error = systemTrouble("cannot be read");
  if (fd >= 0) close(fd);
  if (count >= 0 && content->size() > largest)
    *error = "is larger than " + std::to_string(largest) + " bytes; make it smaller";
  return count >= 0 && content->size() <= largest;
}

std::string startOfFile(const std::string &path, size_t size) {
  std::string bytes(size, '\0'), unused;
  int fd = openToRead(path);
  ssize_t count = regularSize(fd, &unused) < 0 ? 0 : read(fd, bytes.data(), size);
  if (fd >= 0) close(fd);
  bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  return bytes;
}

std::string writeNewFile(const std::string &path, std::string_view bytes) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) return systemTrouble("cannot be made");
  std::string error;
  if (!writeAll(fd, bytes) || fsync(fd) != 0) error = systemTrouble("cannot be written");
  if (close(fd) != 0 && error.empty()) error = systemTrouble("cannot be written");
  return error;
}

std::string appendFiles(const std::string &path, const std::vector<std::string> &parts) {
  int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) return systemTrouble("cannot be made");
  std::string error;
  for (const std::string &part : parts) {
    std::string content;
    if (!readWholeFile(part, largestList, &content, &error)) {
      error.insert(0, "cannot be made: " + part + " ");
      break;
    }
    if (!content.empty() && content.back() != '\n') content += '\n';
    if (!writeAll(fd, content)) error = systemTrouble("cannot be written");
    if (!error.empty()) break;
  }
  if (error.empty() && fsync(fd) != 0) error = systemTrouble("cannot be written");
  if (close(fd) != 0 && error.empty()) error = systemTrouble("cannot be written");
  return error;
}

std::string makeFolder(const std::string &path, unsigned mode) {
  if (isFolder(path)) return "";
  if (std::string parent = parentOf(path); parent != path) {
    if (std::string error = makeFolder(parent, 0755); !error.empty()) return error;
  }
  if (mkdir(path.c_str(), mode) == 0 || errno == EEXIST) return "";
  return systemTrouble((path + " cannot be made").c_str());
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
