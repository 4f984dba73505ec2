/* Files and folders of the installation, under the root. */
#ifndef NETSIFT_HOST_FILES_H
#define NETSIFT_HOST_FILES_H

#include <string>
#include <string_view>
#include <vector>

namespace netsift::host {

constexpr std::string_view varFolder = "/opt/Velmora/var/";
constexpr std::string_view runFolder = "/opt/Velmora/var/run/";
constexpr std::string_view notifySocket = "/opt/Velmora/var/run/netsift.sock";
constexpr std::string_view secondEngineLink = "/opt/Velmora/var/run/vlcavd.sock";
constexpr std::string_view cacheDatabase = "/opt/Velmora/var/nscache.db";

constexpr size_t largestList = size_t{1} << 30;

/* Where a path lies: under the root when it is one of the system's own ("/opt/Velmora/...", "/var/Velmora/..."). */
std::string rooted(std::string_view path);

/* A file of the configuration folder or of the log folder; an absolute name is only rooted. */
std::string configPath(std::string_view name);
std::string logPath(std::string_view name);

/* "WHAT: CAUSE", the cause being errno's, and the remedy where one cause has one: "cannot be read: Permission denied;
   check its owner and mode". */
std::string systemTrouble(const char *what);

/* What is wrong with a file that is to be read, "" when nothing is. Only a regular file is in order: a pipe or a device
   may keep who opens it waiting for ever. It is opened without waiting. */
std::string fileTrouble(const std::string &path, bool mayBeEmpty);

/* Reads a regular file of at most `largest` bytes. False, with the cause in words, when it is none, cannot be read or
   is larger. */
bool readWholeFile(const std::string &path, size_t largest, std::string *content, std::string *error);

/* Its first bytes, at most `size`; none where it is no regular file or cannot be read. */
std::string startOfFile(const std::string &path, size_t size);

/* Writes a new file. Returns what is wrong, "" when it is whole and on the disk. */
std::string writeNewFile(const std::string &path, std::string_view bytes);

/* Writes regular files, one behind the other, to the end of a file that is made when missing; a last line without line
   end gets one. Returns what is wrong, "" when all of it is on the disk. */
std::string appendFiles(const std::string &path, const std::vector<std::string> &parts);

/* Makes a folder, and those above it with mode 0755. Returns what is wrong, "" when it stands. */
std::string makeFolder(const std::string &path, unsigned mode);

/* What is wrong with a folder's use by this process, "" when nothing is: it must stand and let in, and be writable when
   asked. A folder that is missing but could be made is in order when `mayBeMissing`. */
std::string folderTrouble(const std::string &path, bool writable, bool mayBeMissing);

/* Whether this process may do something with a file (R_OK, W_OK, as access(2) has it), under its effective user. */
bool mayAccess(const std::string &path, int mode);
bool exists(const std::string &path);

}  // namespace netsift::host

#endif
