#include "host/listCheck.h"

#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "host/files.h"
#include "host/phraseCheck.h"
#include "state/settings.h"
#include "util/installPath.h"

namespace netsift::host {

namespace {

constexpr size_t longestDomain = 1021;

bool read(const std::string &path, std::string *content, Problems &problems) {
  std::string error;
  bool done = readWholeFile(path, largestList, content, &error);
  if (!done) problems.push_back({true, path, 0, "", error});
  return done;
}

/* Calls for each line that is not empty, with its number; LF or CR ends a line. */
void eachLine(std::string_view text, const std::function<void(std::string_view line, int number)> &call) {
  for (int number = 1; !text.empty();) {
    size_t end = std::min(text.find_first_of("\r\n"), text.size());
    if (end > 0) call(text.substr(0, end), number);
    number += end < text.size() && text[end] == '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void checkDomains(const std::string &path, Problems &problems) {
  std::string content;
  if (!read(path, &content, problems)) return;
  eachLine(content, [&](std::string_view line, int number) {
    const char *fault = line.find_first_of("/*") != line.npos ? "a domain has no \"/\" and no \"*\"; it never matches"
                        : line.size() > longestDomain         ? "a domain of more than 1021 bytes never matches"
                                                              : nullptr;
    if (fault != nullptr) problems.push_back({false, path, number, "", fault});
  });
}

void checkUrls(const std::string &path, bool patternsFollow, Problems &problems) {
  std::string content;
  if (!read(path, &content, problems)) return;
  int last = 0;
  eachLine(content, [&](std::string_view line, int number) {
    last = number;
    if (line.starts_with("http://") || line.starts_with("https://"))
      problems.push_back({false, path, number, "",
                          "an entry begins with the host, without \"http://\"; it never "
                          "matches"});
  });
  if (patternsFollow && !content.empty() && content.back() != '\n')
    problems.push_back({false, path, last, "",
                        "the last line has no line end; the first pattern made from the phrases is joined to it"});
}

/* The list's .url file is made anew at every load where both sources stand; else the file that stands is used. */
void checkUrlFiles(const std::string &base, Problems &problems) {
  const std::string made = base + ".url", sources[] = {base + ".url.orig", base + ".phrase"};
  bool canBeMade = true;
  std::string obstacle;
  for (const std::string &source : sources) {
    canBeMade = canBeMade && exists(source);
    if (exists(source) && !mayAccess(source, R_OK | W_OK)) obstacle = source;
  }
  bool targetWritable = exists(made) ? mayAccess(made, W_OK) : mayAccess(rooted(configFolder), W_OK);
  if (canBeMade && obstacle.empty() && targetWritable) return checkUrls(sources[0], true, problems);

  if (!exists(made)) {
    const char *cause = canBeMade
                            ? "does not exist and cannot be made from .url.orig and .phrase: all need reading and "
                              "writing"
                            : "does not exist, nor both .url.orig and .phrase from which it is made";
    problems.push_back({true, made, 0, "", cause});
    return;
  }
  if (canBeMade)
    problems.push_back({false, made, 0, "",
                        "is used as it stands: it is made anew only when it can be written, and " + sources[0] +
                            " and " + sources[1] + " can be read and written"});
  checkUrls(made, false, problems);
}

void checkUrlList(const std::string &name, Problems &problems) {
  std::string base = configPath(name);
  checkUrlFiles(base, problems);
  checkDomains(base + ".dom", problems);
}

void checkPhraseFile(int category, Problems &problems) {
  std::string path = configPath(std::string(categfiles1[category]) + ".phrase"), content;
  if (!read(path, &content, problems)) return;
  if (content.empty())
    problems.push_back(
        {false, path, 0, "", "is empty: it judges nothing, and neither does the last category of the configuration"});
  checkPhrases(content, path, problems);
}

/* A reported URL goes to the blacklist of the same base name, by the phrase category's place. */
void checkSharedPlaces(Problems &problems) {
  for (int i = 0; addurltolist != 0 && i < numcategories1; i++) {
    for (int j = 0; j < numcategories; j++) {
      if (i == j || std::strcmp(categfiles1[i], categfiles[j]) != 0) continue;
      problems.push_back({false, "", 0, "content.category",
                          std::string("\"") + categfiles1[i] + "\" is number " + std::to_string(i + 1) +
                              " here and number " + std::to_string(j + 1) +
                              " in lists.category: reported URLs are only looked up right at the same place"});
    }
  }
}

void checkSkipList(const char *name, Problems &problems) {
  std::string path = configPath(name), content;
  if (!exists(path)) {
    problems.push_back({false, path, 0, "", "does not exist, which counts as empty"});
    return;
  }
  if (!read(path, &content, problems)) return;
  int number = 1;
  for (size_t at = 0; at < content.size(); number++) {
    size_t end = std::min(content.find('\n', at), content.size());
    if (content.find_first_not_of(" \t\r\v\f", at) >= end)
      problems.push_back({false, path, number, "", "an empty line exempts everything from scanning"});
    if (end == content.size())
      problems.push_back({false, path, number, "", "a last line without a line end is ignored"});
    at = end + 1;
  }
}

}  // namespace

void checkLists(Problems &problems) {
  for (const char *name : {"whitelist", "adserver", "popup"}) checkUrlList(name, problems);
  for (int i = 0; i < numcategories; i++) checkUrlList(categfiles[i], problems);
  for (int i = 0; i < numcategories1; i++) checkPhraseFile(i, problems);
  checkSharedPlaces(problems);
  if (virusscan != 0 && VirWL_Domain != 0) checkSkipList("viruswhite_dom.conf", problems);
  if (virusscan != 0 && VirWL_MimeType != 0) checkSkipList("viruswhite.conf", problems);
}

}  // namespace netsift::host
