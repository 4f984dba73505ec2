#include "host/scanFiles.h"

#include <sys/wait.h>

#include <filesystem>

#include "tests/support/support.h"

using namespace netsift::host;

TEST(ScanFiles, WhatProcessesLeftThatAreGoneIsSweptAndNothingElse) {
  const ScratchRoot root;
  const std::string folder = root.path() + "/", gone = [] {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    return std::to_string(child);
  }();
  std::snprintf(VIRFILE_DIR, sizeof VIRFILE_DIR, "%s", folder.c_str());
  const std::string own = "scanfile." + std::to_string(getpid()), left = "scanfile." + gone;
  const std::string others[] = {own, left + "x", "scanfile.0" + gone, "scanfile.", "scanfile.-" + gone, "x" + left};
  for (const std::string &name : others) writeFile(folder + name, "x");
  writeFile(folder + left, "x");
  sweepScanFiles();
  EXPECT_TRUE(std::filesystem::exists(folder + left)) << "nothing is scanned: the folder is not this daemon's";
  virusscan = 1;
  sweepScanFiles();
  EXPECT_FALSE(std::filesystem::exists(folder + left));
  for (const std::string &name : others) EXPECT_EQ(readFile(folder + name), "x") << name;
  removeScanFile(getpid());
  EXPECT_FALSE(std::filesystem::exists(folder + own));
}
