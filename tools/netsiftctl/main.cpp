/* netsiftctl's command line: the table of commands, and what stands before them. */
#include <cstdio>

#include "netsift.h"
#include "tools/netsiftctl/command.h"

using namespace netsift::ctl;

namespace {

constexpr AddCommand commands[] = {addExplain};

int parseAndRun(int argc, char **argv) {
  Globals globals;
  int status = exitFine;
  CLI::App app("netsiftctl, the administrator's command for the filter netsiftd", "netsiftctl");
  app.set_version_flag("--version", std::string("netsiftctl ") + netsift_version());
  app.add_option("--config", globals.configuration,
                 "Configuration file; without it netsiftd.toml in the root's /opt/Velmora/etc/netsift")
      ->type_name("FILE");
  app.add_option("--root", globals.root, "Folder that the system's own paths lie under")->type_name("DIR");
  app.add_flag("--json", globals.json, "Results as JSON on standard output, for programs");
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "Exit status: 0 when all is well, 1 when something was found (blocked, at fault, different), 2 when the command\n"
      "could not do its work. Colours on a terminal only, and not while NO_COLOR is set.");
  for (AddCommand add : commands) add(app, globals, status);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? exitFine : exitTrouble;
  }
  if (std::fflush(stdout) != 0) return fail("standard output cannot be written; is its disk full?");
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return parseAndRun(argc, argv);
  } catch (const std::exception &error) { /* of the command line's library, memory, or no current folder */
    return fail(error.what());
  }
}
