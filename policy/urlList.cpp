#include "policy/urlList.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "content/wildcardMatch.h"
#include "log/debugLog.h"
#include "log/peerText.h"
#include "state/settings.h"
#include "state/strict.h"
#include "util/installPath.h"
#include "util/ownedText.h"
#include "util/text.h"

namespace {

using netsift::configFolder;
using netsift::installPath;
using netsift::Text;
using std::string_view;

constexpr int endByte = 0xFF;              /* ends a list file, as EOF would if it were a character */
constexpr size_t phraseLineSize = 1000;    /* a longer phrase line is read as several */
constexpr size_t firstLineSize = 31;       /* of readURL's buffer */
constexpr size_t lineGrowth = 15;          /* at least */
constexpr size_t domainPatternSize = 1024; /* an entry and "*." or ".*" */
constexpr size_t maxDomainEntry = domainPatternSize - sizeof "*.";
constexpr size_t maxWholeRun = 110; /* with its dot, the longest run that isMatching does not cut */

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

char **newEntries(int count) {
  return static_cast<char **>(std::calloc(static_cast<size_t>(count) + 1, sizeof(char *)));
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
  const int lines = numLines(stream.get());
  const int wildcardLines = numWildCardLines(stream.get());
  list->wildcards = newEntries(wildcardLines);
  list->table = sym_create_table_(nullptr, 0);
  if (list->wildcards == nullptr || list->table == nullptr) {
    dprintf(1, "memory allocation failed in buildURLList\n");
    return false;
  }
  int stored = 0;
  for (int i = 0; i < lines; i++) {
    Text line(readURL(stream.get()));
    if (!line) continue;
    if (std::strchr(line.get(), '*') == nullptr) {
      insertExact(list->table, line.get());
    } else if (stored < wildcardLines) {
      list->wildcards[stored++] = line.release();
    }
  }
  return true;
}

bool loadDomains(const char *path, UrlList *list) {
  const Stream stream(std::fopen(path, "r"));
  if (!stream) {
    dprintf(1, "domain file %s not found %s", path, std::strerror(errno));
    return false;
  }
  const int lines = numLines(stream.get());
  list->domains = newEntries(lines);
  if (list->domains == nullptr) {
    dprintf(1, "memory allocation failed in buildURLList\n");
    return false;
  }
  for (int i = 0; i < lines; i++) {
    list->domains[i] = readURL(stream.get());
    if (list->domains[i] == nullptr) return false;
  }
  return true;
}

void freeEntries(char **entries) {
  if (entries == nullptr) return;
  for (char **entry = entries; *entry != nullptr; entry++) std::free(*entry);
  std::free(entries);
}

void traceFirstTwo(const char *kind, char **entries) {
  for (int i = 0; i < 2 && entries[i] != nullptr; i++) dprintf(7, "%s %s\n", kind, entries[i]);
}

/* ---- Look-up ---- */

/* As trim sees it. ASCII's visible bytes are white in no locale, and a walk over many entries asks twice of each. */
bool isWhite(char c) { return !(c > ' ' && c < '\x7f') && std::isspace(static_cast<unsigned char>(c)) != 0; }

/* `text` trimmed in place. A text that needs no trimming is not written: entries lie on pages shared with the host. */
string_view trimmed(char *text, size_t length) {
  if (length == 0 || (!isWhite(text[0]) && !isWhite(text[length - 1]))) return {text, length};
  return trim(text);
}

bool matchesDomain(string_view host, char *entry, bool isIP) {
  const size_t storedLength = std::strlen(entry);
  const string_view domain = trimmed(entry, storedLength);
  if (host == domain) return true;
  if (storedLength > maxDomainEntry) return false;

  char pattern[domainPatternSize];
  if (isIP) {
    /* Behind blanks that were cut off, the ".*" lies beyond the pattern's end. */
    std::memcpy(pattern, domain.data(), domain.size() + 1);
    std::memcpy(pattern + storedLength, ".*", sizeof ".*");
  } else {
    /* Nearly every entry ends here, unless it has a "*" or is so long that its end does not count. */
    if (!host.ends_with(domain) && domain.size() <= maxWholeRun && domain.find('*') == string_view::npos) return false;
    pattern[0] = '*';
    pattern[1] = '.';
    std::memcpy(pattern + 2, domain.data(), domain.size() + 1);
  }
  return netsift::matchesPattern(host, pattern);
}

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
  freeEntries(list->wildcards);
  sym_delete_table(list->table, nullptr, 0);
  freeEntries(list->domains);
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
  for (; *wildcards != nullptr; wildcards++) {
    if (netsift::matchesPattern(text, *wildcards)) return 1;
  }
  return 0;
}

int inDomainList(SymbolTable *, char **, char **domains, char *host, int isIP) {
  if (domains == nullptr || host == nullptr) return 0;
  if (*domains == nullptr) return 0; /* it takes an entry for the host to be trimmed */
  const string_view trimmedHost = trimmed(host, std::strlen(host));
  for (; *domains != nullptr; domains++) {
    const char *entry = *domains;
    while (isWhite(*entry)) entry++;
    if (*entry == '\0') continue; /* or it would match every host that ends in a dot */
    if (matchesDomain(trimmedHost, *domains, isIP != 0)) return 1;
  }
  return 0;
}

int isDomainMatching(char *host, char *entry, int isIP) {
  const string_view trimmedHost = trimmed(host, std::strlen(host));
  return matchesDomain(trimmedHost, entry, isIP != 0) ? 1 : 0;
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
