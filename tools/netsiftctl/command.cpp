#include "tools/netsiftctl/command.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "host/configRead.h"
#include "netsift.h"
#include "util/installPath.h"

namespace netsift::ctl {

namespace {

std::string absoluteRoot(const std::string &root) {
  if (root.empty()) return "";
  std::string path = std::filesystem::absolute(root).lexically_normal().string();
  while (path.ends_with('/')) path.pop_back();
  return path;
}

}  // namespace

int fail(std::string_view message) {
  std::fprintf(stderr, "netsiftctl: %.*s\n", static_cast<int>(message.size()), message.data());
  return exitTrouble;
}

bool tellFatal(const host::Problems &problems) {
  for (const host::Problem &problem : problems) {
    if (problem.fatal) fail(host::problemLine(problem));
  }
  return !host::anyFatal(problems);
}

bool readSettings(const Globals &globals) {
  installroot = strdup(absoluteRoot(globals.root).c_str());
  std::string path = globals.configuration;
  if (path.empty()) path = std::string(installroot) + configFolder + "netsiftd.toml";
  host::Problems problems;
  host::readConfiguration(path, problems);
  return tellFatal(problems);
}

bool onTerminal() {
  const char *term = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr && term != nullptr &&
         std::strcmp(term, "dumb") != 0;
}

std::string shown(std::string_view text) {
  std::string result(text);
  for (char &c : result) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7F') c = '?';
  }
  return result;
}

}  // namespace netsift::ctl
