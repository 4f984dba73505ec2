#include "host/madeLists.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "host/files.h"
#include "host/listFiles.h"
#include "host/listFormat.h"
#include "netsift.h"
#include "util/installPath.h"

namespace netsift::host {

namespace {

/* One loading at a time: the supervisor starts no second one. */
constexpr std::string_view loadingFolder = "loading";

std::string freshName(const std::string &path) { return path + ".new"; }

void report(Problems &problems, const std::string &file, const std::string &message) {
  problems.push_back({true, file, 0, "", message});
}

off_t sizeOf(const std::string &path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

/* Owner and mode of the file whose place another is to take. Only root may give a file away. */
void keepOwner(const std::string &place, const std::string &fresh) {
  struct stat status;
  if (stat(place.c_str(), &status) != 0) return;
  if (chown(fresh.c_str(), status.st_uid, status.st_gid) == 0) chmod(fresh.c_str(), status.st_mode & 07777);
}

/* A source as the library reads it: the file itself or, where its first line names a format, what it means then, written
   to `place`. */
struct Source {
  std::string path, trouble;
};

Source sourceOf(const std::string &file, const std::string &place, bool isUrls, bool blocks) {
  ListFormat format = listFormatOf(file);
  if (format == ListFormat::none) return {file, ""};
  if (const char *fault = formatFault(format, isUrls)) return {"", fault};
  std::string text, error;
  if (!readWholeFile(file, largestList, &text, &error)) return {"", error};
  return {place, writeNewFile(place, convertList(text, format, blocks).entries)};
}

/* Makes the file anew as `fresh`. Returns what is wrong, "" when it is whole. */
std::string makeFresh(const ListFiles &files, const std::string &fresh) {
  off_t least = sizeOf(files.original);
  unlink(fresh.c_str());
  errno = 0;
  if (readPhrase1(files.phrase.c_str(), fresh.c_str(), files.original.c_str()) != 0)
    return systemTrouble(("cannot be made of " + files.original + " and " + files.phrase).c_str());
  if (sizeOf(fresh) <= least) /* a line end at least is added to the source */
    return "comes out shorter than " + files.original + ", of which it is made; load again when that is complete";
  std::vector<std::string> reported;
  if (exists(files.reported)) reported.push_back(files.reported);
  return appendFiles(fresh, reported);
}

/* Beside its place. */
std::string makeBeside(const ListFiles &files) {
  std::string fresh = freshName(files.url);
  std::string trouble = makeFresh(files, fresh);
  if (trouble.empty()) keepOwner(files.url, fresh);
  return trouble;
}

/* In the root, which the library takes for the system's meanwhile: it gives the configuration folder to its user. */
std::string makeAside(const ListFiles &files, const std::string &fresh, std::string root) {
  char *own = std::exchange(installroot, root.data());
  const int32_t strict = std::exchange(StrictHttp, StrictHttp | STRICT_HTTP); /* quiet where there is no such user */
  std::string trouble = makeFresh(files, fresh);
  StrictHttp = strict;
  installroot = own;
  return trouble;
}

/* What the library is to find in a list's place. */
void show(const std::string &target, const std::string &place, Problems &problems) {
  if (symlink(target.c_str(), place.c_str()) != 0) report(problems, place, systemTrouble("cannot be made"));
}

void makeList(const std::string &name, MadeLists &lists, Problems &problems) {
  ListFiles files = listFiles(name);
  std::string shown = lists.root + configFolder + name, trouble;
  const bool blocks = isBlocking(name), made = canBeMade(files);
  const Source domain = sourceOf(files.domain, shown + ".dom", false, blocks);
  if (!domain.trouble.empty()) return report(problems, files.domain, domain.trouble);
  if (domain.path == files.domain) show(files.domain, shown + ".dom", problems);
  std::string &urls = made ? files.original : files.url;
  const Source source = sourceOf(urls, shown + ".written", true, blocks);
  if (!source.trouble.empty()) return report(problems, urls, source.trouble);
  urls = source.path;
  if (made && lists.isAside) {
    trouble = makeAside(files, shown + ".url", lists.root);
  } else if (made) {
    lists.made.push_back(files.url);
    trouble = makeBeside(files);
    show(freshName(files.url), shown + ".url", problems);
  } else if (exists(files.reported)) {
    trouble = appendFiles(shown + ".url", {files.url, files.reported});
  } else {
    show(files.url, shown + ".url", problems);
  }
  if (!trouble.empty()) report(problems, files.url, trouble);
}

}  // namespace

namespace {

MadeLists makeIn(MadeLists lists, Problems &problems) {
  if (std::string trouble = makeFolder(lists.root + configFolder, 0755); !trouble.empty())
    report(problems, lists.root, trouble);
  for (const std::string &name : loadedLists()) {
    if (!anyFatal(problems)) makeList(name, lists, problems);
  }
  return lists;
}

}  // namespace

MadeLists makeLists(Problems &problems) {
  MadeLists lists;
  lists.root = rooted(runFolder).append(loadingFolder);
  dropLists(lists); /* of a loading that was killed */
  return makeIn(std::move(lists), problems);
}

MadeLists makeListsAside(const std::string &root, Problems &problems) { return makeIn({root, {}, true}, problems); }

void placeLists(const MadeLists &lists, Problems &problems) {
  for (const std::string &path : lists.made) {
    if (std::rename(freshName(path).c_str(), path.c_str()) != 0)
      report(problems, path, systemTrouble("cannot be replaced"));
  }
  int folder = open(rooted(configFolder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0 || fsync(folder) != 0)
    report(problems, rooted(configFolder), systemTrouble("cannot be written to the disk"));
  if (folder >= 0) close(folder);
}

void dropLists(const MadeLists &lists) {
  std::error_code ignored; /* what stays is removed before the next loading */
  std::filesystem::remove_all(lists.root, ignored);
  for (const std::string &path : lists.made) unlink(freshName(path).c_str());
}

}  // namespace netsift::host
