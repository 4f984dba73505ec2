/* What the commands of netsiftctl share: what every one of them is told, how they are offered, and how they tell of
   trouble. */
#ifndef NETSIFT_TOOLS_COMMAND_H
#define NETSIFT_TOOLS_COMMAND_H

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

#include "host/problems.h"

namespace netsift::ctl {

/* Of the process. */
constexpr int exitFine = 0, exitFound = 1, exitTrouble = 2;

/* What stands before the command. */
struct Globals {
  std::string configuration; /* "": the one of the root */
  std::string root;
  bool json = false;
};

/* Adds the command's subcommand, which puts into `status` what the process ends with. */
using AddCommand = void (*)(CLI::App &app, const Globals &globals, int &status);

void addExplain(CLI::App &app, const Globals &globals, int &status);

/* One line on standard error, "netsiftctl: ..."; returns exitTrouble. */
int fail(std::string_view message);

/* Reads the configuration into the library's variables, under the root. False, with everything that is wrong with it
   told, when it is not usable. */
bool readSettings(const Globals &globals);

/* Tells those that are fatal, each in a line. False when there are any. */
bool tellFatal(const host::Problems &problems);

/* Whether people look at standard output, who get colours. */
bool onTerminal();

/* Text from files and URLs as a terminal may have it: without control bytes. */
std::string shown(std::string_view text);

}  // namespace netsift::ctl

#endif
