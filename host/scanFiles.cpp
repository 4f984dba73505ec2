#include "host/scanFiles.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <memory>
#include <string>
#include <string_view>

#include "host/problems.h"
#include "netsift.h"

namespace netsift::host {

namespace {

constexpr std::string_view scanFileName = "scanfile.";

/* The process that a file of the spool folder belongs to, 0 when it is no scan file. */
int ownerOf(std::string_view name) {
  if (!name.starts_with(scanFileName)) return 0;
  name.remove_prefix(scanFileName.size());
  int pid = 0;
  auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
  bool whole = error == std::errc{} && end == name.data() + name.size();
  return whole && pid > 0 && name.front() != '0' ? pid : 0;
}

bool isGone(int pid) { return kill(pid, 0) != 0 && errno == ESRCH; }

std::string scanFilePath(int pid) { return std::string(VIRFILE_DIR) + std::string(scanFileName) + std::to_string(pid); }

}  // namespace

void removeScanFile(int pid) {
  if (virusscan != 0) unlink(scanFilePath(pid).c_str());
}

void sweepScanFiles() {
  if (virusscan == 0) return;
  std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(VIRFILE_DIR), closedir);
  if (!folder) return; /* the check has told of it */
  int removed = 0;
  while (const dirent *entry = readdir(folder.get())) {
    int pid = ownerOf(entry->d_name);
    if (pid > 0 && isGone(pid) && unlink(scanFilePath(pid).c_str()) == 0) removed++;
  }
  if (removed > 0) say("scan files of processes that are gone: " + std::to_string(removed) + " removed");
}

}  // namespace netsift::host
