#include "policy/urlList.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "content/wildcardMatch.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "policy/domainMatch.h"
#include "policy/entryList.h"
#include "state/settings.h"
#include "state/strict.h"
#include "util/installPath.h"
#include "util/ownedText.h"
#include "util/symbolStore.h"
#include "util/text.h"

namespace {

using netsift::addEntry;
using netsift::configFolder;
using netsift::installPath;
using netsift::Text;
using std::string_view;

constexpr int endByte = 0xFF;           /* ends a list file, as EOF would if it were a character */
constexpr size_t phraseLineSize = 1000; /* a longer phrase line is read as several */
constexpr size_t firstLineSize = 31;    /* of readURL's buffer */
constexpr size_t lineGrowth = 15;       /* at least */

struct CloseStream {
  void operator()(FILE *stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

/* ---- Files ---- */

int nextByte(FILE *stream) {
  const int byte = getc_unlocked(stream);
  return byte == endByte ? EOF : byte;
}

/* Counts leave room for the arrays' terminators. */
int asCount(long long count) { return static_cast<int>(std::min<long long>(count, INT_MAX - 1)); }

bool copyBytes(FILE *from, FILE *to) {
  char block[65536];
  for (size_t count; (count = std::fread(block, 1, sizeof block, from)) > 0;) {
    if (std::fwrite(block, 1, count, to) != count) return false;
  }
  return std::ferror(from) == 0;
}

void writePatterns(char *line, FILE *to) {
  if (std::strchr(line, ' ') != nullptr) return;
  char *rest;
  char *word = strtok_r(line, "<>", &rest);
  if (word == nullptr || *trim(word) == '\0') return;
  if (phraseinurl != 0) {
    std::fprintf(to, "*%s*\n", word);
  } else {
    std::fprintf(to, "%s*\nwww.%s*\n", word, word);
  }
}

/* `text` as one word of the shell's, whatever it holds; nothing stays nothing. */
std::string shellQuoted(const char *text) {
  if (text == nullptr || *text == '\0') return "";
  std::string quoted = "'";
  for (; *text != '\0'; text++) {
    if (*text == '\'') {
      quoted += "'\\''";
    } else {
      quoted += *text;
    }
  }
  return quoted + "'";
}

/* On a machine without that user the folder stays its owner's. */
void giveFolderToItsUser() {
  std::string folder(configFolder);
  folder.pop_back(); /* its "/" */
  const std::string command = "/bin/chown vlconf.vlconf " + shellQuoted(installroot) + folder;
  const char *quiet = netsift::strictHttp() ? " 2>/dev/null" : ""; /* or each list complains at each load */
  for (const char *files : {"", "/*"}) {
    /* NOLINTNEXTLINE(cert-env33-c): the shell expands the "*" */
    if (std::system((command + files + quiet).c_str()) == -1) dprintf(4, "error running %s\n", command.c_str());
  }
}

/* ---- Loading ---- */

/* Bytes of all lines together, as a rule: the file may grow while it is read. */
size_t bytesOf(FILE *stream) {
  struct stat file {};
  return fstat(fileno(stream), &file) == 0 ? static_cast<size_t>(file.st_size) : 0;
}

bool refuseForMemory() {
  dprintf(1, "memory allocation failed in buildURLList\n");
  return false;
}

void insertExact(SymbolTable *table, const char *line) {
  if (sym_create_symbol_(table, line, "", nullptr, 0) == nullptr) {
    dprintf(1, "\n not enough memory in sym_create_symbol\n");
  }
}

bool loadUrls(const char *path, UrlList *list) {
  const Stream stream(std::fopen(path, "r"));
  if (!stream) {
    dprintf(1, "url file %s not found %s\n", path, std::strerror(errno));
    return false;
  }
  const auto lines = static_cast<size_t>(numLines(stream.get()));
  const auto wildcardLines = static_cast<size_t>(numWildCardLines(stream.get()));
  list->wildcards = netsift::newWildcards(wildcardLines, bytesOf(stream.get()));
  list->table = sym_create_table_(nullptr, 0);
  if (list->wildcards == nullptr || list->table == nullptr) return refuseForMemory();
  netsift::reserveSymbols(list->table, lines, bytesOf(stream.get()));
  for (size_t i = 0; i < lines; i++) {
    Text line(readURL(stream.get()));
    if (!line) continue;
    if (std::strchr(line.get(), '*') == nullptr) {
      insertExact(list->table, line.get());
    } else {
      addEntry(list->wildcards, std::move(line)); /* as many as were counted */
    }
  }
  return (netsift::indexSymbols(list->table) && netsift::indexWildcards(list->wildcards)) || refuseForMemory();
}

bool loadDomains(const char *path, UrlList *list) {
  const Stream stream(std::fopen(path, "r"));
  if (!stream) {
    dprintf(1, "domain file %s not found %s", path, std::strerror(errno));
    return false;
  }
  const auto lines = static_cast<size_t>(numLines(stream.get()));
  list->domains = netsift::newDomains(lines, bytesOf(stream.get()));
  if (list->domains == nullptr) return refuseForMemory();
  for (size_t i = 0; i < lines; i++) {
    Text line(readURL(stream.get()));
    if (!line) return false;
    addEntry(list->domains, std::move(line));
  }
  return netsift::indexDomains(list->domains) || refuseForMemory();
}

void traceFirstTwo(const char *kind, char **entries) {
  for (int i = 0; i < 2 && entries[i] != nullptr; i++) dprintf(7, "%s %s\n", kind, entries[i]);
}

/* ---- Look-up ---- */

bool isListed(const UrlList &list, const char *url, char *host, int isIP) {
  return inURLList(list.table, list.wildcards, list.domains, url) != 0 ||
         inDomainList(list.table, list.wildcards, list.domains, host, isIP) != 0;
}

}  // namespace

char *readURL(FILE *stream) {
  size_t size = firstLineSize, length = 0;
  Text line(static_cast<char *>(std::malloc(size)));
  if (!line) return nullptr;
  for (int byte; (byte = nextByte(stream)) != EOF && byte != '\n' && byte != '\r';) {
    if (length + 1 == size) {
      size += std::max(lineGrowth, size / 2);
      char *grown = static_cast<char *>(std::realloc(line.get(), size));
      if (grown == nullptr) return nullptr;
      static_cast<void>(line.release()); /* realloc took it */
      line.reset(grown);
    }
    line.get()[length++] = static_cast<char>(byte);
  }
  line.get()[length] = '\0';
  return line.release();
}

int numLines(FILE *stream) {
  long long count = 0;
  int last = '\0';
  for (int byte; (byte = nextByte(stream)) != EOF; last = byte) {
    if (byte == '\n' || byte == '\r') count++;
  }
  std::rewind(stream);
  return asCount(last == '\0' ? count : count + 1);
}

int numWildCardLines(FILE *stream) {
  long long count = 0;
  bool star = false;
  for (int byte; (byte = nextByte(stream)) != EOF;) {
    if (byte == '*') {
      star = true;
    } else if (byte == '\n') {
      if (star) count++;
      star = false;
    }
  }
  std::rewind(stream);
  return asCount(count);
}

int readPhrase1(const char *phrasePath, const char *urlPath, const char *origPath) {
  Stream phrases(std::fopen(phrasePath, "r+"));
  Stream original(std::fopen(origPath, "r+"));
  if (!phrases || !original) return -1;
  Stream urls(std::fopen(urlPath, "w+"));
  if (!urls) return -1;

  bool written = copyBytes(original.get(), urls.get());
  char line[phraseLineSize];
  while (std::fgets(line, sizeof line, phrases.get()) != nullptr) writePatterns(line, urls.get());
  std::fputc('\n', urls.get());
  written = written && std::ferror(urls.get()) == 0;
  if (std::fclose(urls.release()) != 0 || !written) {
    dprintf(1, "error writing url file %s\n", urlPath);
    return -1;
  }
  phrases.reset();
  original.reset();
  giveFolderToItsUser();
  return 0;
}

int buildURLList(const char *name, UrlList *list) {
  *list = UrlList{};
  const Text url = installPath({configFolder, name, ".url"});
  const Text phrase = installPath({configFolder, name, ".phrase"});
  const Text original = installPath({configFolder, name, ".url.orig"});
  const Text domain = installPath({configFolder, name, ".dom"});
  if (!url || !phrase || !original || !domain) {
    dprintf(1, "memory allocation failed in buildURLList\n");
    return -1;
  }
  readPhrase1(phrase.get(), url.get(), original.get());
  return loadUrls(url.get(), list) && loadDomains(domain.get(), list) ? 1 : -1;
}

void freeURLList(UrlList *list) {
  netsift::freeEntries(list->wildcards);
  sym_delete_table(list->table, nullptr, 0);
  netsift::freeEntries(list->domains);
  *list = UrlList{};
}

int makeWhiteList(void) {
  if (buildURLList("whitelist", &whitelist) == -1) {
    dprintf(7, "build urlList -1\n");
    return -1;
  }
  if (netsift_debugThreshold < 7) return 1; /* the table may be long */
  traceFirstTwo("domain", whitelist.domains);
  traceFirstTwo("wildcard", whitelist.wildcards);
  for (Symbol *symbol = whitelist.table->symbols; symbol != nullptr; symbol = symbol->next) {
    dprintf(7, "url %s\n", symbol->name);
  }
  return 1;
}

int makeADList(void) { return buildURLList("adserver", &adlist); }

int makePOPUPList(void) { return buildURLList("popup", &popuplist); }

int makeBlackLists(void) {
  categories = static_cast<UrlList *>(std::calloc(std::max<size_t>(numcategories, 1), sizeof(UrlList)));
  if (categories == nullptr) {
    dprintf(1, "memory allocation failed in makeBlackLists\n");
    return -1;
  }
  for (int i = 0; i < numcategories; i++) {
    if (buildURLList(categfiles[i], &categories[i]) == -1) return -1;
  }
  return 1;
}

void freeWhiteList(void) { freeURLList(&whitelist); }

void freeADList(void) { freeURLList(&adlist); }

void freePOPUPList(void) { freeURLList(&popuplist); }

void freeBlackLists(void) {
  if (categories == nullptr) return;
  for (int i = 0; i < numcategories; i++) freeURLList(&categories[i]);
  std::free(categories);
  categories = nullptr;
}

int inURLList(SymbolTable *table, char **wildcards, char **, const char *url) {
  if (url == nullptr) return 0;
  if (table != nullptr && sym_lookup_symbol(table, url) != nullptr) return 1;
  if (wildcards == nullptr) return 0;
  const string_view text(url);
  const netsift::WildcardIndex *index = netsift::wildcardIndexOf(wildcards);
  if (index != nullptr && text.size() <= netsift::longestIndexedText) {
    return netsift::matchesSomeWildcard(*index, wildcards, text) ? 1 : 0;
  }
  for (; *wildcards != nullptr; wildcards++) {
    if (netsift::matchesPattern(text, *wildcards)) return 1;
  }
  return 0;
}

int inDomainList(SymbolTable *, char **, char **domains, char *host, int isIP) {
  if (domains == nullptr || host == nullptr) return 0;
  if (*domains == nullptr) return 0; /* it takes an entry for the host to be trimmed */
  const string_view trimmedHost = netsift::trimmed(host, std::strlen(host));
  if (const netsift::DomainIndex *index = netsift::domainIndexOf(domains)) {
    return netsift::matchesSomeDomain(*index, domains, trimmedHost, isIP != 0) ? 1 : 0;
  }
  for (; *domains != nullptr; domains++) {
    if (!netsift::isBlank(*domains) && netsift::matchesDomain(trimmedHost, *domains, isIP != 0)) return 1;
  }
  return 0;
}

int isDomainMatching(char *host, char *entry, int isIP) {
  const string_view trimmedHost = netsift::trimmed(host, std::strlen(host));
  return netsift::matchesDomain(trimmedHost, entry, isIP != 0) ? 1 : 0;
}

int inWhiteList(const char *url, char *host, int isIP) {
  if (isListed(whitelist, url, host, isIP)) return 1;
  dprintf(7, "In WhiteList----------------------------------------\n");
  return 0;
}

int inADList(const char *url, char *host, int isIP) { return isListed(adlist, url, host, isIP) ? 1 : 0; }

int inPOPUPList(const char *url, char *host, int isIP) { return isListed(popuplist, url, host, isIP) ? 1 : 0; }

signed char inBlackLists(const char *url, char *host, int isIP) {
  if (categories == nullptr) return 0;
  for (int i = 0; i < numcategories; i++) {
    const UrlList &list = categories[i];
    if (inURLList(list.table, list.wildcards, list.domains, url) != 0) {
      dprintf(4, "%s in blacklisted url", netsift::peerText(url));
    } else if (inDomainList(list.table, list.wildcards, list.domains, host, isIP) != 0) {
      dprintf(4, "%s in blacklisted domain", netsift::peerText(host));
    } else {
      continue;
    }
    return static_cast<signed char>(i + 1);
  }
  return 0;
}
