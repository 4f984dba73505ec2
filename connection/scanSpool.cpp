#include "connection/scanSpool.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/debugLog.h"
#include "scan/scanTunnel.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {

bool prepareSpool() {
  closeSpool();
  if (virusscan == 0 || !nameScanFile()) return true;
  if (unlink(virfilename) == 0 || errno == ENOENT) return true;
  dprintf(5, "error in removing existing virus file %s::%s\n", virfilename, strerror(errno));
  return false;
}

bool appendToSpool(const char *piece, size_t length) {
  if (virfile == nullptr) {
    virfile = fopen(virfilename, "a+e");
    if (virfile == nullptr) {
      dprintf(1, "error creating virus scan file\n");
      return false;
    }
    setvbuf(virfile, nullptr, _IONBF, 0); /* the engines read the file by its path */
  }
  if (fwrite(piece, 1, length, virfile) == length) return true;
  dprintf(1, "error writing to virus file\n");
  return false;
}

int32_t scanSpool(char (&virusName)[virusNameSize]) {
  virusName[0] = '\0';
  const int32_t verdict = isVirusInfection(virfilename, virusName, DoVlavScan, DoClamScan);
  if (DoVlavScan == 1 && DoClamScan != 1) dprintf(7, "Virus found is ------ [ %s ]\n", virusName);
  return verdict;
}

int32_t scanSpoolByAll(char (&virusName)[virusNameSize]) {
  virusName[0] = '\0';
  const int32_t first = isVirusInfection(virfilename, virusName, DoVlavScan, 0);
  if (first == 1) return first;
  const int32_t second = isVirusInfection(virfilename, virusName, 0, DoClamScan);
  return second == 1 || first == 0 ? second : first;
}

size_t readFromSpool(uint64_t offset, char *piece, size_t length) {
  if (virfile == nullptr) return 0;
  const ssize_t count = pread(fileno(virfile), piece, length, static_cast<off_t>(offset));
  return count < 0 ? 0 : static_cast<size_t>(count);
}

void closeSpool() {
  if (virfile != nullptr) fclose(virfile);
  virfile = nullptr;
}

void removeSpool() {
  closeSpool();
  if (virfilename[0] != '\0') unlink(virfilename);
}

}  // namespace netsift
