#include "host/installCheck.h"

#include <fcntl.h>
#include <gdbm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "host/files.h"
#include "host/hostConfig.h"
#include "host/listCheck.h"
#include "host/popupScript.h"
#include "host/settingsTable.h"
#include "host/sockets.h"
#include "util/installPath.h"

namespace netsift::host {

namespace {

constexpr int cacheMode = 0660;
constexpr unsigned spoolMode = 0750; /* what people download is nobody else's business */
constexpr std::string_view madeFolders[] = {logFolder, varFolder, runFolder};
constexpr const char *primaryEngine = "/opt/Velmora/var/run/vlav";

void report(Problems &problems, const std::string &file, const std::string &message, const std::string &key = "") {
  problems.push_back({true, file, 0, key, message});
}

void warn(Problems &problems, const std::string &file, const std::string &message, const std::string &key = "") {
  problems.push_back({false, file, 0, key, message});
}

void checkFolder(const std::string &path, Problems &problems, const std::string &key = "") {
  std::string trouble = folderTrouble(path, true, true);
  if (!trouble.empty()) report(problems, path, trouble, key);
}

void checkFolders(Problems &problems) {
  std::string config = rooted(configFolder);
  if (std::string trouble = folderTrouble(config, false, false); !trouble.empty()) {
    report(problems, config, trouble);
  } else if (!mayAccess(config, W_OK)) {
    warn(problems, config,
         "cannot be written: lists are not made anew, and reported URLs are not kept; check its owner and mode");
  }
  for (std::string_view folder : madeFolders) checkFolder(rooted(folder), problems);
}

void checkPages(Problems &problems) {
  for (const char *name : {"template.htm", "template", "errortemplate.htm"}) {
    std::string path = configPath(name);
    if (std::string trouble = fileTrouble(path, false); !trouble.empty()) report(problems, path, trouble);
  }
  if (blockpopup == 0) return;
  std::string script = configPath(hostConfig.popupScript);
  if (std::string trouble = loadPopupScript(script); !trouble.empty())
    report(problems, script, trouble, "popups.script");
}

/* A pipe as a log is opened as soon as somebody reads it; until then the loading would wait. */
bool isPipe(const std::string &path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

void checkLog(const std::string &path, const char *key, Problems &problems) {
  std::string folder = path.substr(0, path.rfind('/') + 1);
  if (exists(path)) {
    int log = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (log < 0 && errno == ENXIO && isPipe(path))
      report(problems, path, "is a pipe that nobody reads; start its reader first", key);
    else if (log < 0)
      report(problems, path, systemTrouble("cannot be written"), key);
    else
      close(log);
  } else if (folder != rooted(logFolder)) {
    std::string trouble = folderTrouble(folder, true, false);
    if (!trouble.empty()) report(problems, folder, trouble, key);
  }
}

void checkCache(Problems &problems) {
  std::string path = rooted(cacheDatabase);
  if (disableCache != 0 || hostConfig.keepCache == 0 || !exists(path)) return; /* without keepCache it is replaced */
  if (!mayAccess(path, R_OK | W_OK))
    return report(problems, path, "cannot be read and written; check its owner and mode", "cache.enabled");
  if (std::string trouble = fileTrouble(path, true); !trouble.empty())
    return report(problems, path, trouble, "cache.enabled");
  /* no lock: children of an earlier generation may be using it */
  GDBM_FILE database = gdbm_open(path.c_str(), 0, GDBM_READER | GDBM_NOLOCK, 0, nullptr);
  if (database != nullptr)
    gdbm_close(database);
  else
    warn(problems, path,
         std::string("is no usable cache database (") + gdbm_strerror(gdbm_errno) +
             "): no verdict is remembered; remove it and it is made anew");
}

/* Connections open the database by its name for each use: what one is storing meanwhile goes with the old file, and
   none finds a half-made one. */
void replaceCache(const std::string &path, Problems &problems) {
  std::string fresh = path + ".new";
  unlink(fresh.c_str());
  GDBM_FILE database = gdbm_open(fresh.c_str(), 0, GDBM_NEWDB, cacheMode, nullptr);
  bool synced = database != nullptr && gdbm_sync(database) == 0;
  if (database == nullptr || !synced)
    report(problems, path, std::string("cannot be made: ") + gdbm_strerror(gdbm_errno) + ", " + std::strerror(errno),
           "cache.enabled");
  if (database != nullptr) gdbm_close(database);
  if (!synced)
    unlink(fresh.c_str());
  else if (rename(fresh.c_str(), path.c_str()) != 0)
    report(problems, path, systemTrouble("cannot be replaced"), "cache.keep_on_load");
}

void makeCache(Problems &problems) {
  std::string path = rooted(cacheDatabase);
  if (disableCache == 0 && !exists(path)) replaceCache(path, problems);
}

/* The library knows one path of the second engine; a configured one is reached by a link there. */
bool needsEngineLink() {
  return virusscan != 0 && DoClamScan != 0 && rooted(secondEngineLink) != rooted(hostConfig.secondEngineSocket);
}

void checkEngineLink(Problems &problems) {
  std::string link = rooted(secondEngineLink);
  struct stat status;
  if (needsEngineLink() && lstat(link.c_str(), &status) == 0 && !S_ISLNK(status.st_mode))
    report(problems, link, "is no link and is left alone; remove it to use " + hostConfig.secondEngineSocket,
           "scanning.second_engine_socket");
}

void makeEngineLink(Problems &problems) {
  if (!needsEngineLink()) return;
  std::string link = rooted(secondEngineLink), fresh = link + ".new";
  unlink(fresh.c_str());
  if (symlink(rooted(hostConfig.secondEngineSocket).c_str(), fresh.c_str()) != 0 ||
      rename(fresh.c_str(), link.c_str()) != 0)
    report(problems, link, systemTrouble("cannot be made a link"), "scanning.second_engine_socket");
}

void checkEngine(const std::string &path, Problems &problems) {
  int engine = connectLocal(path);
  if (engine < 0)
    warn(problems, path,
         std::string("no scan engine answers here (") + std::strerror(errno) + "); until one does, scans fail");
  if (engine >= 0) close(engine);
}

/* What serves requests while strict_http is off knows IPv4 addresses alone. */
void checkFamilies(Problems &problems) {
  if ((StrictHttp & STRICT_HTTP) != 0) return;
  if (ProxyPresent == 1 && std::strchr(proxyip, ':') != nullptr)
    report(problems, "",
           std::string(proxyip) + " is not reached while strict_http is off; switch that on, or name an IPv4 address",
           "upstream.proxy");
  for (const SocketAddress &address : hostConfig.listen) {
    if (isSix(address))
      report(problems, "",
             endpointText(address) +
                 " takes IPv6 clients, which are not served while strict_http is off; switch that "
                 "on, or listen on IPv4 addresses alone",
             "listen.address");
  }
}

/* The contract's road compares them as they are written, the strict one without regard to case. */
void checkTypes(Problems &problems) {
  for (const auto &entry : blockedcontent) {
    std::string_view type(entry, strnlen(entry, sizeof entry));
    bool capital = std::ranges::any_of(type, [](char c) { return c >= 'A' && c <= 'Z'; });
    if ((StrictHttp & STRICT_HTTP) != 0 || !capital) continue;
    warn(problems, "",
         "\"" + std::string(type) + "\" matches only types with the same capital letters while strict_http is off",
         "content.blocked_types");
  }
}

void checkScanning(Problems &problems) {
  if (virusscan == 0) return;
  if (size_t length = std::strlen(VIRFILE_DIR); length > longestSpoolFolder)
    report(problems, VIRFILE_DIR,
           "is " + std::to_string(length) + " bytes long with the root and \"/\", of at most 33: use a shorter one",
           "scanning.spool_folder");
  else
    checkFolder(VIRFILE_DIR, problems, "scanning.spool_folder");
  if (DoVlavScan == 0 && DoClamScan == 0)
    warn(problems, "", "no engine is selected, so that everything counts as clean; switch one on", "scanning.scan");
  if (DoVlavScan != 0) checkEngine(rooted(primaryEngine), problems);
  if (DoClamScan != 0) {
    checkEngineLink(problems);
    checkEngine(rooted(hostConfig.secondEngineSocket), problems);
  }
}

}  // namespace

void checkInstallation(Problems &problems) {
  checkFolders(problems);
  checkLists(problems);
  checkPages(problems);
  if (hostConfig.debugLevel > 0) checkLog(logPath(hostConfig.debugFile), "log.debug_file", problems);
  if (logenable != 0) checkLog(logPath(logfilename), "log.access_file", problems);
  checkCache(problems);
  checkFamilies(problems);
  checkTypes(problems);
  checkScanning(problems);
  if (!fitsSocketPath(rooted(notifySocket)))
    warn(problems, rooted(notifySocket),
         "is longer than 107 bytes: URLs refused for their phrases cannot be reported; use a shorter root");
}

void makeMissing(Problems &problems) {
  auto make = [&problems](const std::string &folder, unsigned mode) {
    std::string trouble = makeFolder(folder, mode);
    if (!trouble.empty()) report(problems, folder, trouble);
  };
  for (std::string_view folder : madeFolders) make(rooted(folder), 0755);
  if (virusscan != 0) make(VIRFILE_DIR, spoolMode);
  makeCache(problems);
  makeEngineLink(problems);
}

void forgetVerdicts(Problems &problems) {
  if (disableCache == 0 && hostConfig.keepCache == 0) replaceCache(rooted(cacheDatabase), problems);
}

}  // namespace netsift::host
