#include "host/listCheck.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "host/files.h"
#include "host/listFiles.h"
#include "host/listFormat.h"
#include "host/phraseCheck.h"
#include "state/settings.h"

namespace netsift::host {

namespace {

constexpr size_t longestDomain = 1021;
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF"; /* warned of as such */
constexpr char endByte = '\xFF';                           /* ends a list of URLs or domains, wherever it stands */

void warn(Problems &problems, const std::string &path, int line, const std::string &message) {
  problems.push_back({false, path, line, "", message});
}

void refuse(Problems &problems, const std::string &path, int line, const std::string &message) {
  problems.push_back({true, path, line, "", message});
}

/* The file's text; none, with a problem, when it cannot be read or is no text. */
std::optional<std::string> readText(const std::string &path, Problems &problems) {
  std::string content, error;
  if (!readWholeFile(path, largestList, &content, &error)) {
    refuse(problems, path, 0, error);
    return {};
  }
  bool wide = content.starts_with("\xFF\xFE") || content.starts_with("\xFE\xFF");
  if (wide || content.find('\0') != content.npos) {
    refuse(problems, path, 0, "is UTF-16 or no text, and would be as good as empty; save it as UTF-8");
    return {};
  }
  if (content.starts_with(byteOrderMark) && listFormat(content) == ListFormat::none)
    warn(problems, path, 1, "a byte order mark makes the first entry another one; save the file without it");
  return content;
}

bool hasCapital(std::string_view text) {
  return std::ranges::any_of(text, [](char c) { return c >= 'A' && c <= 'Z'; });
}

bool endsList(std::string_view line, const std::string &path, int number, Problems &problems) {
  bool ends = line.find(endByte) != line.npos;
  if (ends)
    refuse(problems, path, number, "a byte of 255 ends the list: what follows would not be loaded; take it out");
  return ends;
}

/* What people write into lists, and what it takes to have it read. */
const char *writtenFault(std::string_view line) {
  if (line.starts_with('#'))
    return "is an entry, and matches nothing, unless the first line of the file names a format, as \"# format: "
           "domains\"";
  if (line.starts_with("||")) return "never matches; let the first line of the file be \"# format: adblock\"";
  return nullptr;
}

/* The same of an entry's host. Hosts are looked up in lower case, without port and last ".". */
const char *hostFault(std::string_view host) {
  const size_t last = host.find_last_not_of(" \t"); /* a blank at an end makes no difference to a domain */
  const size_t blank = host.find_first_of(" \t", std::min(host.find_first_not_of(" \t"), host.size()));
  if (last != host.npos && blank < last)
    return "never matches with a blank in it; of a hosts file, let the first line be \"# format: hosts\"";
  if (host.find(':') != host.npos && !host.starts_with('['))
    return "never matches with a port, which is not looked up; an IPv6 address stands in brackets";
  const bool isAscii = std::ranges::all_of(host, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (!isAscii && !host.starts_with(byteOrderMark) && (StrictHttp & STRICT_HTTP) != 0)
    return "matches no host, since requests have theirs in ASCII; write \"xn--\" and so on, or let the first line name "
           "a "
           "format";
  return nullptr;
}

/* Why a domain never matches, null when it may. */
const char *domainFault(std::string_view line) {
  if (const char *fault = writtenFault(line)) return fault;
  if (line.find_first_of("/*") != line.npos) return "a domain has no \"/\" and no \"*\"; it never matches";
  if (line.size() > longestDomain) return "a domain of more than 1021 bytes never matches; shorten it";
  if (line.starts_with('.')) return "never matches with a \".\" at its front; without, all hosts below match too";
  if (line.ends_with('.')) return "never matches with a \".\" at its end; leave it out";
  if (hasCapital(line)) return "matches no host, since requests have theirs in lower case; write it so";
  return hostFault(line);
}

bool isHexadecimal(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool hasEscape(std::string_view text) {
  for (size_t at = text.find('%'); at != text.npos && at + 2 < text.size(); at = text.find('%', at + 1)) {
    if (isHexadecimal(text[at + 1]) && isHexadecimal(text[at + 2])) return true;
  }
  return false;
}

/* The same of an entry of URLs: host and path, without what the request's URL has taken off. */
const char *urlFault(std::string_view line) {
  if (const char *fault = writtenFault(line)) return fault;
  if (line.starts_with("http://") || line.starts_with("https://"))
    return "an entry begins with the host, without \"http://\"; it never matches";
  std::string_view host = line.substr(0, line.find_first_of("/*?"));
  bool exact = line.find('*') == line.npos, hostEnds = host.size() == line.size() || line[host.size()] != '*';
  if (host.starts_with('.')) return "never matches with a \".\" at its front; leave it out, or put \"*\" before it";
  if (host.ends_with('.') && hostEnds) return "never matches with a \".\" at its host's end; leave it out";
  if (hasCapital(host)) return "matches no host, since requests have theirs in lower case; write its host so";
  if (const char *fault = hostFault(host)) return fault;
  if (exact && line.ends_with('/')) return "never matches with a \"/\" at its end; leave it out, or write \"/*\"";
  if (hostEnds && line.substr(host.size()).starts_with('?') && (StrictHttp & STRICT_HTTP) != 0)
    return "never matches with a \"?\" right behind its host; put a \"/\" before it";
  if (exact && hasEscape(line))
    return "is compared with URLs whose percent-encoding is undone; write what it stands for";
  return nullptr;
}

/* A text whose first line names a format, and what of it has no meaning then. False: it names none. */
bool checkFormat(const std::string &path, std::string_view text, bool isUrls, bool blocks, Problems &problems) {
  constexpr size_t mostNamed = 20;
  const ListFormat format = listFormat(text);
  if (format == ListFormat::none) return false;
  if (const char *fault = formatFault(format, isUrls)) {
    refuse(problems, path, 1, fault);
    return true;
  }
  const std::vector<LeftOut> leftOut = convertList(text, format, blocks).leftOut;
  for (size_t i = 0; i < std::min(leftOut.size(), mostNamed); i++)
    warn(problems, path, leftOut[i].line, std::string("left out: ") + leftOut[i].why);
  if (leftOut.size() > mostNamed)
    warn(problems, path, leftOut[mostNamed].line,
         "left out: this line and " + std::to_string(leftOut.size() - mostNamed - 1) + " more");
  return true;
}

void checkEntries(const std::string &path, std::string_view text, const char *(*fault)(std::string_view),
                  Problems &problems) {
  eachLine(text, [&](std::string_view line, int number) {
    if (endsList(line, path, number, problems)) return;
    if (const char *message = fault(line)) warn(problems, path, number, message);
  });
}

void checkDomains(const std::string &path, bool blocks, Problems &problems) {
  auto text = readText(path, problems);
  if (text && !checkFormat(path, *text, false, blocks, problems)) checkEntries(path, *text, domainFault, problems);
}

/* A last line without line end: what is made of the phrases is joined to it, and it is no pattern where nothing is. */
void checkUrls(const std::string &path, bool patternsFollow, bool blocks, Problems &problems) {
  auto text = readText(path, problems);
  if (!text || checkFormat(path, *text, true, blocks, problems)) return;
  checkEntries(path, *text, urlFault, problems);
  if (text->empty() || text->back() == '\n') return;
  int line = static_cast<int>(std::ranges::count(*text, '\n')) + 1;
  if (patternsFollow)
    warn(problems, path, line,
         "the last line has no line end; the first pattern made from the phrases is joined to it");
  else if (text->find('*', text->rfind('\n') + 1) != text->npos)
    warn(problems, path, line, "the last line has a \"*\" and no line end, and is not loaded; end it");
}

/* The phrase file as a source of URL patterns: a record with a blank in it makes none. */
void checkPatterns(const std::string &path, Problems &problems) {
  auto text = readText(path, problems);
  if (!text) return;
  eachLine(*text, [&](std::string_view line, int number) {
    if (line.find(' ') == line.npos) endsList(line, path, number, problems);
  });
}

/* What is used although it should be made anew; not when it was cut. */
void checkStanding(const ListFiles &files, Problems &problems) {
  struct stat standing, original;
  warn(problems, files.url, 0,
       "is used as it stands: it is made anew only when it and its folder can be written, and " + files.original +
           " and " + files.phrase + " can be read and written");
  bool known = stat(files.url.c_str(), &standing) == 0 && stat(files.original.c_str(), &original) == 0;
  bool isCopied = listFormatOf(files.original) == ListFormat::none; /* and not made shorter as it is read */
  if (known && isCopied && standing.st_size < original.st_size)
    refuse(problems, files.url, 0,
           "is shorter than " + files.original + ", of which it is made; let it be made anew, or remove both sources");
}

void checkUrlFiles(const ListFiles &files, bool blocks, Problems &problems) {
  if (exists(files.reported)) checkUrls(files.reported, true, blocks, problems);
  if (canBeMade(files)) {
    checkPatterns(files.phrase, problems);
    return checkUrls(files.original, true, blocks, problems);
  }
  if (exists(files.url)) {
    if (hasSources(files)) checkStanding(files, problems);
    return checkUrls(files.url, false, blocks, problems);
  }
  const char *cause = hasSources(files)
                          ? "does not exist and cannot be made from .url.orig and .phrase: all need reading and "
                            "writing, and so does their folder"
                          : "does not exist, nor both .url.orig and .phrase from which it is made";
  refuse(problems, files.url, 0, cause);
}

void checkPhraseFile(int category, Problems &problems) {
  std::string path = configPath(std::string(categfiles1[category]) + ".phrase");
  auto text = readText(path, problems);
  if (!text) return;
  if (text->empty())
    warn(problems, path, 0, "is empty: it judges nothing, and neither does the last category of the configuration");
  checkPhrases(*text, path, problems);
}

/* A reported URL goes to the blacklist of the same base name, by the phrase category's place. */
void checkSharedPlaces(Problems &problems) {
  for (int i = 0; addurltolist != 0 && i < numcategories1; i++) {
    for (int j = 0; j < numcategories; j++) {
      if (i == j || std::strcmp(categfiles1[i], categfiles[j]) != 0) continue;
      problems.push_back(
          {false, "", 0, "content.category",
           std::string("\"") + categfiles1[i] + "\" is number " + std::to_string(i + 1) + " here and number " +
               std::to_string(j + 1) +
               " in lists.category: reported URLs are only looked up right at the same place; move one"});
    }
  }
}

void checkSkipList(const char *name, Problems &problems) {
  std::string path = configPath(name);
  if (!exists(path)) return warn(problems, path, 0, "does not exist, which counts as empty");
  auto text = readText(path, problems);
  int number = 1;
  for (size_t at = 0; text && at < text->size(); number++) {
    size_t end = std::min(text->find('\n', at), text->size());
    if (text->find_first_not_of(" \t\r\v\f", at) >= end)
      warn(problems, path, number, "an empty line exempts everything from scanning; take it out");
    if (end == text->size()) warn(problems, path, number, "a last line without a line end is ignored; end it");
    at = end + 1;
  }
}

/* A phrase file is looked at as a category and as a source of URLs; both speak of the file as a whole alone. */
void dropRepeated(Problems &problems) {
  std::set<std::string> seen;
  std::erase_if(problems, [&seen](const Problem &problem) {
    return problem.line <= 1 && !seen.insert(problemLine(problem)).second;
  });
}

}  // namespace

void checkLists(Problems &problems) {
  for (const std::string &name : loadedLists()) {
    ListFiles files = listFiles(name);
    checkUrlFiles(files, isBlocking(name), problems);
    checkDomains(files.domain, isBlocking(name), problems);
  }
  for (int i = 0; i < numcategories1; i++) checkPhraseFile(i, problems);
  checkSharedPlaces(problems);
  if (virusscan != 0 && VirWL_Domain != 0) checkSkipList("viruswhite_dom.conf", problems);
  if (virusscan != 0 && VirWL_MimeType != 0) checkSkipList("viruswhite.conf", problems);
  dropRepeated(problems);
}

}  // namespace netsift::host
