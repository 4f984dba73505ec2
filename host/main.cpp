/* netsiftd's command line. */
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "host/configRead.h"
#include "host/hostConfig.h"
#include "host/installCheck.h"
#include "host/settingsPrint.h"
#include "host/settingsTable.h"
#include "host/supervisor.h"
#include "state/settings.h"
#include "util/socketAddress.h"

using namespace netsift;
using namespace netsift::host;

namespace {

struct Arguments {
  std::string configuration, root, print;
  std::vector<std::string> listen;
  bool check = false, json = false;
};

/* The root as it is put before every path: absolute, without "/" at its end. */
std::string absoluteRoot(const std::string &root) {
  if (root.empty()) return "";
  std::string path = std::filesystem::absolute(root).lexically_normal().string();
  while (path.ends_with('/')) path.pop_back();
  return path;
}

int printConfiguration(const std::string &form) {
  std::string text = form == "markdown" ? configurationReference() : sampleConfiguration();
  return std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? exitTrouble : 0;
}

/* Reports all that a start would stumble over, and changes nothing. */
int check(const Arguments &arguments, const std::vector<SocketAddress> &listen) {
  Problems problems;
  const bool isRead = readConfiguration(arguments.configuration, problems);
  if (!listen.empty()) hostConfig.listen = listen;
  if (isRead) checkInstallation(problems);
  if (arguments.json)
    std::fputs(problemsJson(problems).c_str(), stdout);
  else
    printProblems(problems);
  if (!arguments.json) std::puts(("netsiftd: " + checkSummary(problems)).c_str());
  return anyFatal(problems) ? exitConfiguration : 0;
}

bool parseListen(const std::vector<std::string> &texts, std::vector<SocketAddress> &listen) {
  for (const std::string &text : texts) {
    if (parseEndpoint(text, &listen.emplace_back())) continue;
    say("--listen: expected ADDRESS:PORT, an IPv6 address in brackets, not \"" + text + "\"");
    return false;
  }
  if (listen.size() <= mostListeners) return true;
  say("--listen: at most " + std::to_string(mostListeners) + " addresses, not " + std::to_string(listen.size()));
  return false;
}

int run(const Arguments &arguments) {
  if (!arguments.print.empty()) return printConfiguration(arguments.print);
  std::vector<SocketAddress> listen;
  if (!parseListen(arguments.listen, listen)) return exitConfiguration;
  std::string root = absoluteRoot(arguments.root);
  installroot = strdup(root.c_str());
  return arguments.check ? check(arguments, listen) : supervise(arguments.configuration, listen);
}

int parseAndRun(int argc, char **argv) {
  Arguments arguments;
  CLI::App app("netsiftd, a filtering web front proxy");
  auto *configuration = app.add_option("--config", arguments.configuration, "Configuration file")->type_name("FILE");
  app.add_option("--root", arguments.root, "Folder that the system's own paths lie under")->type_name("DIR");
  app.add_option("--listen", arguments.listen,
                 "Where clients connect, instead of what the configuration says; may be given several times")
      ->type_name("ADDRESS:PORT")
      ->allow_extra_args(false);
  auto *check = app.add_flag("--check", arguments.check, "Report every problem a start would have, then end");
  app.add_flag("--json", arguments.json, "With --check: as JSON on standard output")->needs(check);
  auto *print = app.add_option("--print-config", arguments.print, "Print a complete sample configuration, then end")
                    ->type_name("[markdown]")
                    ->expected(0, 1)
                    ->default_str("toml")
                    ->check(CLI::IsMember({"toml", "markdown"}));
  app.footer(
      "SIGHUP loads configuration and lists anew; SIGUSR1 opens the request log anew; SIGTERM and SIGINT end after "
      "drain_seconds, a second one at "
      "once.\nExit status: 0 after an orderly end, 2 when something named above is not in order, 1 otherwise.");
  try {
    app.parse(argc, argv);
    if (print->count() > 0 && arguments.print.empty()) arguments.print = "toml";
    if (configuration->count() == 0 && print->count() == 0) throw CLI::RequiredError("--config");
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? 0 : exitConfiguration;
  }
  return run(arguments);
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return parseAndRun(argc, argv);
  } catch (const std::exception &error) { /* of the command line's library, or no current folder */
    std::fprintf(stderr, "netsiftd: %s\n", error.what());
    return exitTrouble;
  }
}
