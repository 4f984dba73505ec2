#include "scan/scanSpool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/debugLog.h"
#include "log/requestRecord.h"
#include "scan/scanTunnel.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {

void nameSpool() {
  childpid = static_cast<int32_t>(getpid());
  const int folderLength = static_cast<int>(strnlen(VIRFILE_DIR, sizeof VIRFILE_DIR));
  const int length =
      std::snprintf(virfilename, sizeof virfilename, "%.*sscanfile.%d", folderLength, VIRFILE_DIR, childpid);
  if (length >= 0 && static_cast<size_t>(length) < sizeof virfilename) return;
  virfilename[0] = '\0';
  dprintf(1, "path of the virus scan file is too long: %.*sscanfile.%d\n", folderLength, VIRFILE_DIR, childpid);
}

bool clearSpool() {
  struct stat found;
  if (virfilename[0] == '\0' || lstat(virfilename, &found) != 0) return true; /* whatever the reason is */
  if (unlink(virfilename) == 0) return true;
  dprintf(5, "error in removing existing virus file %s::%s\n", virfilename, std::strerror(errno));
  return false;
}

bool appendToSpool(const char *piece, size_t length) {
  virfile = std::fopen(virfilename, "ae");
  if (virfile == nullptr) {
    dprintf(1, "error creating virus scan file\n");
    return false;
  }
  std::setvbuf(virfile, nullptr, _IONBF, 0); /* a piece goes out as one write */
  const bool whole = std::fwrite(piece, 1, length, virfile) == length;
  std::fclose(virfile);
  virfile = nullptr;
  if (!whole) dprintf(1, "error writing to virus file\n");
  return whole;
}

int createSpool() {
  const int file = open(virfilename, O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (file < 0) dprintf(1, "error creating virus scan file\n");
  return file;
}

bool writeSpool(int file, uint64_t size, const char *piece, size_t length) {
  for (size_t written = 0; written < length;) {
    const ssize_t count = write(file, piece + written, length - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      dprintf(1, "error writing to virus file\n");
      static_cast<void>(!ftruncate(file, static_cast<off_t>(size)));
      return false;
    }
    written += static_cast<size_t>(count);
  }
  return true;
}

bool isSpoolInPlace(int file, uint64_t size) {
  struct stat own, found;
  return fstat(file, &own) == 0 && lstat(virfilename, &found) == 0 && own.st_dev == found.st_dev &&
         own.st_ino == found.st_ino && own.st_size == static_cast<off_t>(size);
}

int32_t scanSpool(char (&virusName)[virusNameSize]) {
  virusName[0] = '\0';
  const int64_t start = timingStart();
  const int32_t verdict = isVirusInfection(virfilename, virusName, DoVlavScan, DoClamScan);
  noteScan(verdict, start);
  if (DoVlavScan == 1 && DoClamScan != 1) dprintf(7, "Virus found is ------ [ %s ]\n", virusName);
  return verdict;
}

int32_t scanSpoolByAll(char (&virusName)[virusNameSize]) {
  virusName[0] = '\0';
  const int64_t start = timingStart();
  int32_t verdict = isVirusInfection(virfilename, virusName, DoVlavScan, 0);
  if (verdict != 1) {
    virusName[0] = '\0'; /* an engine that failed leaves a word there too */
    const int32_t second = isVirusInfection(virfilename, virusName, 0, DoClamScan);
    if (second == 1 || verdict == 0) verdict = second;
  }
  noteScan(verdict, start);
  return verdict;
}

int openSpool() { return open(virfilename, O_RDONLY | O_CLOEXEC); }

size_t readSpool(int file, uint64_t offset, char *piece, size_t length) {
  if (file < 0) return 0;
  const ssize_t count = pread(file, piece, length, static_cast<off_t>(offset));
  return count < 0 ? 0 : static_cast<size_t>(count);
}

void closeSpool(int file) {
  if (file >= 0) close(file);
}

}  // namespace netsift
