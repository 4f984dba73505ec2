/* netsiftctl explain: what the filter would do with a request, and why. */
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "host/accessRules.h"
#include "host/files.h"
#include "host/listCheck.h"
#include "host/listFiles.h"
#include "host/load.h"
#include "host/sockets.h"
#include "netsift.h"
#include "tools/netsiftctl/command.h"
#include "tools/netsiftctl/explanation.h"

namespace netsift::ctl {

namespace {

constexpr size_t largestBody = size_t{1} << 28;
constexpr size_t longestName = 255;

struct Options {
  std::vector<std::string> urls;
  std::string client = "127.0.0.1", method = "GET", body, type, serverName;
};

/* What is loaded once for all URLs. */
struct Loaded {
  std::vector<ListEntries> lists;
  std::string body;
  bool hasBody = false;
  int firstDescriptor = -1;
};

/* Nothing that is done here is to be seen elsewhere: no logs, no verdicts, no reports; and no engine is asked. */
void leaveNoTrace() {
  logenable = 0;
  logtunnel = 0;
  disableCache = 1;
  addurltolist = 0;
  virusscan = 0;
  KeepUpstreamSeconds = 0;
}

/* A folder of its own, removed with all that is in it. */
struct ScratchFolder {
  std::string path = (std::filesystem::temp_directory_path() / "netsiftctl.XXXXXX").string();
  bool isMade = mkdtemp(path.data()) != nullptr;
  ScratchFolder() = default;
  ScratchFolder(const ScratchFolder &) = delete;
  ScratchFolder &operator=(const ScratchFolder &) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    if (isMade) std::filesystem::remove_all(path, ignored);
  }
};

bool loadLists(Loaded &loaded) {
  host::Problems problems;
  host::checkLists(problems);
  if (!tellFatal(problems)) return false;
  problems.clear();
  const ScratchFolder folder;
  if (!folder.isMade) {
    fail(folder.path + ": " + host::systemTrouble("cannot be made") + "; TMPDIR names another place");
    return false;
  }
  host::loadAside(folder.path, problems);
  for (const std::string &name : host::loadedLists()) loaded.lists.push_back(readEntries(name));
  return tellFatal(problems);
}

bool loadBody(const Options &options, Loaded &loaded) {
  std::string error;
  loaded.hasBody = !options.body.empty();
  if (!loaded.hasBody || host::readWholeFile(options.body, largestBody, &loaded.body, &error)) return true;
  fail("--body " + options.body + ": " + error);
  return false;
}

/* As most servers would name it. */
std::string typeOf(const Options &options) {
  constexpr std::pair<std::string_view, const char *> types[] = {
      {".txt", "text/plain"},      {".json", "application/json"}, {".js", "text/javascript"}, {".css", "text/css"},
      {".xml", "application/xml"}, {".svg", "image/svg+xml"},     {".png", "image/png"},      {".jpg", "image/jpeg"}};
  if (options.body.empty() || !options.type.empty()) return options.type;
  for (const auto &[ending, type] : types) {
    if (options.body.ends_with(ending)) return type;
  }
  return "text/html";
}

/* The request's first line and Host as a browser sends them to its proxy: "https" URLs as CONNECT. Says what is wrong
   with the URL, "" when nothing is. */
std::string makeRequest(const Options &options, std::string url, Explanation &explanation, Scene &scene) {
  const auto isOdd = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7F'; };
  if (url.empty() || std::ranges::any_of(url, isOdd))
    return "is no URL; write blanks and control bytes as %20 and so on";
  explanation.method = options.method;
  const size_t mark = url.find("://");
  const bool isSecure = url.starts_with("https://");
  std::string rest = mark == url.npos ? url : url.substr(mark + 3);
  const std::string authority = rest.substr(0, rest.find_first_of("/?#"));
  scene.isTunnel = isSecure || options.method == "CONNECT";
  std::string target = mark == url.npos ? "http://" + url : url;
  target = target.substr(0, target.find('#'));
  if (scene.isTunnel) {
    const bool hasPort = authority.find(':', authority.starts_with('[') ? authority.find(']') : 0) != authority.npos;
    explanation.method = "CONNECT";
    target = hasPort ? authority : authority + ":443";
    scene.serverName = options.serverName.empty() ? target.substr(0, target.rfind(':')) : options.serverName;
    if (scene.serverName.size() > longestName) return "has a host of more than 255 bytes; shorten it";
  }
  scene.request = explanation.method + " " + target + " HTTP/1.1\r\nHost: " + (scene.isTunnel ? target : authority) +
                  "\r\nConnection: close\r\n";
  const bool sendsBody = explanation.method == "POST" || explanation.method == "PUT";
  scene.request += sendsBody ? "Content-Length: 0\r\n\r\n" : "\r\n";
  return "";
}

/* An address is no server name: browsers send none then. */
void dropAddressName(const Options &options, Scene &scene) {
  SocketAddress address;
  std::string host = scene.serverName;
  if (host.starts_with('[')) host = host.substr(1, host.find(']') - 1);
  if (options.serverName.empty() && parseHost(host, &address)) scene.serverName.clear();
}

std::string answerFor(const Loaded &loaded, const Explanation &explanation) {
  if (!loaded.hasBody) return "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n";
  std::string answer = "HTTP/1.1 200 OK\r\nContent-Type: " + explanation.type +
                       "\r\nContent-Length: " + std::to_string(loaded.body.size()) + "\r\nConnection: close\r\n\r\n";
  return explanation.method == "HEAD" ? answer : answer + loaded.body;
}

int explainOne(const Options &options, const Globals &globals, const Loaded &loaded, const std::string &url) {
  Explanation explanation{};
  Scene scene;
  explanation.url = url;
  explanation.client = options.client;
  explanation.type = typeOf(options);
  if (!parseHost(options.client, &scene.client)) return fail("--client " + options.client + ": is no IP address");
  if (const std::string fault = makeRequest(options, url, explanation, scene); !fault.empty())
    return fail("\"" + shown(url) + "\" " + fault);
  dropAddressName(options, scene);
  scene.answer = answerFor(loaded, explanation);
  const int level = host::accessLevel(scene.client);
  explanation.served = serveScene(scene, loaded.firstDescriptor);
  conclude(explanation, loaded.lists, level);
  if (globals.json)
    printExplanationJson(explanation);
  else
    printExplanation(explanation, onTerminal());
  if (explanation.verdict == Verdict::failed) return exitTrouble;
  return explanation.verdict == Verdict::blocked ? exitFound : exitFine;
}

int explain(const Options &options, const Globals &globals) {
  Loaded loaded;
  if (!readSettings(globals) || !loadBody(options, loaded)) return exitTrouble;
  leaveNoTrace();
  if (!loadLists(loaded)) return exitTrouble;
  loaded.firstDescriptor = host::fillDescriptors();
  int status = exitFine;
  const auto explainNext = [&](const std::string &url) {
    status = std::max(status, explainOne(options, globals, loaded, url));
  };
  for (const std::string &url : options.urls) {
    if (url != "-") {
      explainNext(url);
      continue;
    }
    for (std::string line; std::getline(std::cin, line);) explainNext(line);
  }
  return status;
}

}  // namespace

void addExplain(CLI::App &app, const Globals &globals, int &status) {
  const auto options = std::make_shared<Options>();
  CLI::App *command = app.add_subcommand("explain", "Say what the filter would do with a request, and why");
  command
      ->add_option("URL", options->urls, "What is asked for, several if you like; \"-\" reads them from standard input")
      ->required()
      ->take_all();
  command->add_option("--client", options->client, "Who asks; 127.0.0.1 if not given")->type_name("IP");
  command->add_option("--method", options->method, "How; GET, and CONNECT for https, if not given")->type_name("M");
  command->add_option("--body", options->body, "What the site would answer, to be judged too")->type_name("FILE");
  command->add_option("--type", options->type, "The answer's content type, else told by the file's name")
      ->type_name("TYPE");
  command->add_option("--server-name", options->serverName, "The name asked for in the tunnel, else the URL's host")
      ->type_name("N");
  command->footer(
      "The request is served as the daemon serves one, between a client and a site that are made up: no site is\n"
      "asked, no log written, no engine asked about viruses. Entries come from the lists as they stand now.\n"
      "Exit status: 0 allowed, 1 blocked, 2 when it would fail for another reason or cannot be told.");
  command->callback([options, &globals, &status] { status = explain(*options, globals); });
}

}  // namespace netsift::ctl
