/* The one table of everything that can be configured: the reader, the sample file and the reference page are made from
   it, so that none of them can say something else. */
#ifndef NETSIFT_HOST_SETTINGSTABLE_H
#define NETSIFT_HOST_SETTINGSTABLE_H

#include <cstdint>
#include <span>
#include <string>
#include <variant>

#include "state/settings.h"

namespace netsift::host {

/* Where a value goes; the alternative says which TOML type is expected and how it is stored. */
struct Flag { /* true stores 1 */
  std::variant<uint8_t *, int32_t *> variable;
  bool inverted = false; /* true stores 0: the variable switches the thing off */
};
struct Bit { /* one bit of StrictHttp: off with the first value, on with the second; both booleans, numbers or words */
  int32_t *variable;
  int32_t bit;
  const char *off, *on; /* as TOML */
};
struct Choice { /* one of some words; stores its place among them */
  int32_t *variable;
  std::span<const char *const> words;
};
struct Number {
  int32_t *variable;
  int32_t minimum, maximum;
  const char *unit; /* "" for a plain number */
};
struct HostText { /* at most `longest` bytes */
  std::string *variable;
  size_t longest;
};
struct LibraryText { /* the variable gets a copy that lasts until the next reading */
  char **variable;
  size_t longest;
  bool isFileName = false; /* 1 byte or more, without "/" */
};
struct Texts { /* at most 100 texts of 1 to 99 bytes; the first empty entry ends the list */
  char (*variable)[100][100];
};
struct Ports { /* at most 100 numbers from 1 to 65535; the first 0 ends the list */
  int32_t (*variable)[100];
};
struct Patterns { /* an address, or the start of one followed by "*" */
  IpPattern **variable;
};
struct TextList { /* any number of texts, and their count */
  TextNode **variable;
  int32_t *count;
};
struct ListenAddresses {}; /* ADDRESS:PORT, or up to mostListeners of them, into hostConfig.listen */
struct UpstreamAddress {}; /* ADDRESS:PORT into ProxyPresent, proxyip and proxyport; empty: direct */
struct MetricsAddress {};  /* ADDRESS:PORT into hostConfig.metricsListen, or empty */
struct Folder {            /* the spool folder into VIRFILE_DIR, with "/" at its end */
  size_t longest;
};
struct Categories { /* tables of a display name and the base name of a list's files */
  const char *fileKey;
  uint8_t *count;
  char ***files, ***names;
};
struct AccessRules {}; /* tables of network, from, to, level: into acllist and numacllist, or hostConfig.sixRules */

using Target = std::variant<Flag, Bit, Choice, Number, HostText, LibraryText, Texts, Ports, Patterns, TextList,
                            ListenAddresses, UpstreamAddress, MetricsAddress, Folder, Categories, AccessRules>;

struct Setting {
  std::string section; /* dotted; "" for [[access]] */
  std::string key;
  Target target;
  std::string value;  /* what holds when the key is absent, as TOML */
  std::string help;   /* what it does, in plain words; lines are broken where it is printed */
  std::string sample; /* array tables only: what the sample file shows */
};

/* Every setting, grouped by section, in the order in which the sample file shows them. */
std::span<const Setting> settings();

/* "section.key", or the key alone when it stands in no section. */
std::string fullKey(const Setting &setting);

/* The expected type with its limits and unit, for example "number of seconds, 0 to 3600". */
std::string expectedType(const Setting &setting);

/* Whether it is written as [[section.key]] tables. */
bool isTableArray(const Setting &setting);

constexpr size_t mostListeners = 16;
constexpr int32_t mostCategories = 255;     /* their count is 8 bits wide */
constexpr int32_t highestRating = 10;       /* a page's value above it counts as 0 */
constexpr size_t longestSpoolFolder = 33;   /* with "scanfile.", a process id and the NUL it fills virfilename */
constexpr size_t longestSocketPath = 107;   /* sun_path */
constexpr size_t longestDebugTag = 40;      /* with a connection's number, of 50 that begin a line */
constexpr size_t longestCategoryName = 100; /* block reasons are 200 bytes */

}  // namespace netsift::host

#endif
