#include "content/phraseList.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "content/openMatch.h"
#include "content/phraseAutomaton.h"
#include "content/phraseTable.h"
#include "content/phraseWords.h"
#include "log/debugLog.h"
#include "state/settings.h"
#include "state/strict.h"
#include "util/file.h"
#include "util/installPath.h"

using netsift::configFolder;
using netsift::installPath;
using netsift::nameAt;
using netsift::phraseIndexLimit;
using netsift::Text;

namespace {

constexpr int phraseLimit = 126;

enum class Record { read, endOfFile, broken, noMemory };

/* The phrase up to its ">", cut to phraseLimit bytes; false when the file ends first. */
bool readPhraseText(FILE *stream, char phrase[phraseLimit + 1]) {
  int count = 0;
  for (int byte; (byte = std::getc(stream)) != '>';) {
    if (byte == EOF) return false;
    if (count < phraseLimit) phrase[count++] = static_cast<char>(byte);
  }
  phrase[count] = '\0';
  if (count > 0 && phrase[0] == '"' && phrase[count - 1] == '"') phrase[0] = phrase[count - 1] = ' ';
  return true;
}

/* First byte that is no white space, left in the stream. */
int skipWhiteSpace(FILE *stream) {
  int byte;
  do byte = std::getc(stream);
  while (byte == ' ' || (byte >= '\t' && byte <= '\r'));
  return byte == EOF ? EOF : std::ungetc(byte, stream);
}

/* An optionally signed decimal integer and the white space around it; 0, with the white space after it left unread,
   when there is none. Digits beyond 32 bits wrap. */
int32_t readWeight(FILE *stream) {
  int byte = skipWhiteSpace(stream);
  const bool negative = byte == '-';
  if (byte == '-' || byte == '+') std::getc(stream);
  uint32_t value = 0;
  bool digits = false;
  while ((byte = std::getc(stream)) >= '0' && byte <= '9') {
    value = value * 10 + static_cast<uint32_t>(byte - '0');
    digits = true;
  }
  if (byte != EOF) std::ungetc(byte, stream);
  if (digits) skipWhiteSpace(stream);
  return static_cast<int32_t>(negative ? 0 - value : value);
}

PhraseNode *makeNode(const char *phrase) {
  auto *node = static_cast<PhraseNode *>(std::malloc(sizeof(PhraseNode)));
  char *copy = strdup(phrase);
  if (node == nullptr || copy == nullptr) {
    dprintf(2, "memory allocation failed in readPhrase\n");
    std::free(node);
    std::free(copy);
    return nullptr;
  }
  *node = {copy, 0, nullptr};
  return node;
}

Record readRecord(FILE *stream, PhraseNode **node) {
  if (std::getc(stream) == EOF) return Record::endOfFile;
  char phrase[phraseLimit + 1];
  if (!readPhraseText(stream, phrase)) {
    dprintf(1, "phrase record without its \">\"\n");
    return Record::broken;
  }
  *node = makeNode(phrase);
  if (*node == nullptr) return Record::noMemory;
  (*node)->weight = readWeight(stream);
  return Record::read;
}

/* Loads one category; 1 done or nothing to load, else makePhraseLists' failure result. */
int loadCategory(int category, int *loaded) {
  const char *name = nameAt(categfiles1, category);
  const Text path = installPath({configFolder, name, ".phrase"});
  if (!path) {
    dprintf(2, "memory allocation failed in buildList\n");
    return 0;
  }
  if (get_file_size(path.get()) <= 0) {
    --*loaded;
    return 1;
  }
  dprintf(4, "category filename %s category name is %s\n", name, nameAt(categname1, category));
  phraselists[category] = buildList(name);
  if (phraselists[category] == nullptr) return -1;
  if (netsift::matchesWords()) phraselists[category] = netsift::wordList(phraselists[category]);
  initiallists[category] = buildIniList(phraselists[category]);
  return initiallists[category] == nullptr ? 0 : 1;
}

void releaseLists(int count) {
  for (int i = 0; i < count; i++) {
    if (phraselists != nullptr) freeList(phraselists[i]);
    if (initiallists != nullptr) std::free(initiallists[i]);
  }
  std::free(phraselists);
  std::free(initiallists);
  std::free(categweight);
  phraselists = nullptr;
  initiallists = nullptr;
  categweight = nullptr;
  netsift::noteMadeLists(nullptr, 0);
  netsift::freePhraseAutomaton();
  netsift::forgetFoundPhrases();
}

template <typename Slot>
Slot *makeSlots(int count) {
  return static_cast<Slot *>(std::calloc(static_cast<size_t>(count) + 1, sizeof(Slot)));
}

/* The runs of a list, at most phraseIndexLimit of them; their count. An empty phrase ends a run and opens none: its
   first byte would end the index before the runs that follow. */
int findRuns(PhraseNode *list, InitialEntry *runs) {
  int count = 0;
  InitialEntry *open = nullptr;
  PhraseNode *last = nullptr;
  for (PhraseNode *node = list; node != nullptr; last = node, node = node->next) {
    const auto byte = static_cast<int8_t>(node->phrase[0]);
    if (open != nullptr && open->firstByte == byte) continue;
    if (open != nullptr) open->end = node;
    open = nullptr;
    if (byte == 0) continue;
    if (count == phraseIndexLimit) break;
    open = &runs[count++];
    *open = {byte, node, nullptr};
  }
  if (open != nullptr) open->end = last;
  return count;
}

}  // namespace

int makePhraseLists(void) {
  if (netsift::listsAreMade()) releaseLists(netsift::phraseSlots());
  const int count = numcategories1;
  dprintf(6, "inside makePhraseLists, %d categories\n", count);
  phraselists = makeSlots<PhraseNode *>(count);
  initiallists = makeSlots<InitialEntry *>(count);
  categweight = makeSlots<int32_t>(count);
  netsift::noteMadeLists(phraselists, count);
  if (phraselists == nullptr || initiallists == nullptr || categweight == nullptr) {
    dprintf(2, "memory allocation failed in makePhraseLists\n");
    releaseLists(count);
    return 0;
  }

  int loaded = count;
  for (int i = 0; i < count; i++) {
    const int result = loadCategory(i, &loaded);
    if (result != 1) return result;
  }
  numcategories1 = static_cast<uint8_t>(loaded);
  netsift::buildPhraseAutomaton();
  return 1;
}

void freePhraseLists(void) {
  releaseLists(netsift::phraseSlots());
  freeFifo();
}

PhraseNode *buildList(const char *name) {
  const Text path = installPath({configFolder, name, ".phrase"});
  if (!path) {
    dprintf(2, "memory allocation failed in buildList\n");
    return nullptr;
  }
  FILE *stream = std::fopen(path.get(), "r");
  if (stream == nullptr) {
    dprintf(1, "error opening phrase file %s %s", path.get(), std::strerror(errno));
    return nullptr;
  }
  PhraseNode *list = nullptr;
  PhraseNode **end = &list;
  Record record;
  while ((record = readRecord(stream, end)) == Record::read) end = &(*end)->next;
  std::fclose(stream);
  if (record != Record::endOfFile) {
    dprintf(1, "phrase file %s not loaded\n", path.get());
    *end = nullptr;
    freeList(list);
    return nullptr;
  }
  return sortList(list);
}

PhraseNode *readPhrase(FILE *stream) {
  PhraseNode *node = nullptr;
  return readRecord(stream, &node) == Record::read ? node : nullptr;
}

PhraseNode *sortList(PhraseNode *list) { return list; }

InitialEntry *buildIniList(PhraseNode *list) {
  InitialEntry runs[phraseIndexLimit];
  const size_t count = static_cast<size_t>(findRuns(list, runs));
  const size_t indexSize = (count + 1) * sizeof(InitialEntry);
  auto *index = static_cast<InitialEntry *>(std::malloc(indexSize + netsift::phraseTableSize(std::span(runs, count))));
  if (index == nullptr) {
    dprintf(2, "memory allocation failed in buildIniList\n");
    return nullptr;
  }
  if (count > 0) std::memcpy(index, runs, count * sizeof(InitialEntry));
  netsift::writePhraseTable(index, count);
  return index;
}

void freeList(PhraseNode *list) {
  while (list != nullptr) {
    PhraseNode *next = list->next;
    std::free(list->phrase);
    std::free(list);
    list = next;
  }
}
