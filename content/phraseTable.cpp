#include "content/phraseTable.h"

#include <algorithm>
#include <climits>
#include <cstdint>

#include "state/settings.h"

namespace netsift {
namespace {

/* Its address marks a terminating entry that tables follow. */
PhraseNode tableMark;

uint32_t lastSerial;

PhraseNode **madeLists;
int madeSlots;

/* Counts groups and ranges, and writes them too when it has been given the room. */
struct Builder {
  PhraseGroup *groups = nullptr;
  PhraseRange *ranges = nullptr;
  signed char *bytes = nullptr;
  size_t groupCount = 0, rangeCount = 0;
};

/* A walk over the next bytes of a range's phrases. */
struct Walk {
  PhraseNode *at, *end;
  int depth;
  int highest; /* of the bytes passed so far */
};

signed char byteAt(const PhraseNode *node, int depth) { return static_cast<signed char>(node->phrase[depth]); }

bool ended(const Walk &walk) { return walk.at == walk.end || walk.at == nullptr; }

Walk startWalk(PhraseNode *first, PhraseNode *end, int depth) {
  return {byteAt(first, depth) == 0 ? first->next : first, end, depth, SCHAR_MIN - 1};
}

/* The next stretch that a text byte can lead to; its first is null after the last one. */
PhraseRange nextStretch(Walk &walk) {
  while (!ended(walk)) {
    PhraseNode *first = walk.at;
    const signed char byte = byteAt(first, walk.depth);
    do walk.at = walk.at->next;
    while (!ended(walk) && byteAt(walk.at, walk.depth) == byte);
    if (byte <= walk.highest) continue;
    walk.highest = byte;
    if (byte != 0) return {first, walk.at, nullptr};
  }
  return {};
}

/* Describes a range whose phrases agree in `depth` bytes, and what it leads to. The depth is at most matchedLimit. */
const PhraseGroup *addGroup(Builder &builder, PhraseNode *first, PhraseNode *end, int depth) {
  if (first == end || first->next == end || first->next == nullptr || depth == matchedLimit) return nullptr;

  const size_t place = builder.groupCount++;
  const size_t start = builder.rangeCount;
  for (Walk walk = startWalk(first, end, depth); nextStretch(walk).first != nullptr;) builder.rangeCount++;
  const size_t count = builder.rangeCount - start;

  uint64_t mask = 0;
  Walk walk = startWalk(first, end, depth);
  for (size_t i = start; i < start + count; i++) {
    PhraseRange range = nextStretch(walk);
    mask |= maskBit(byteAt(range.first, depth));
    range.group = addGroup(builder, range.first, range.end, depth + 1);
    if (builder.groups == nullptr) continue;
    builder.ranges[i] = range;
    builder.bytes[i] = byteAt(range.first, depth);
  }
  if (builder.groups == nullptr) return nullptr;
  builder.groups[place] = {first, builder.bytes + start,       builder.ranges + start,
                           mask,  static_cast<uint8_t>(count), first->phrase[depth] == '\0'};
  return &builder.groups[place];
}

/* Notes which second and third bytes a match of this run can count or go on with. */
void noteThirds(uint32_t (&thirds)[32 * 32], const PhraseRange &run) {
  const unsigned first = slide(0, run.first->phrase[0]);
  if (run.first->phrase[1] == '\0') std::fill_n(thirds + slide(first, 0), 32, ~uint32_t{0});
  Walk seconds = startWalk(run.first, run.end, 1);
  for (PhraseRange second; (second = nextStretch(seconds)).first != nullptr;) {
    uint32_t &bits = thirds[slide(first, second.first->phrase[1])];
    if (second.first->phrase[2] == '\0') bits = ~uint32_t{0};
    Walk walk = startWalk(second.first, second.end, 2);
    for (PhraseRange third; (third = nextStretch(walk)).first != nullptr;) {
      bits |= uint32_t{1} << slide(0, third.first->phrase[2]);
    }
  }
}

/* The first run of a byte is the one that an index is searched for. */
void addRuns(Builder &builder, std::span<const InitialEntry> runs, PhraseTable *table) {
  bool seen[256] = {};
  for (const InitialEntry &run : runs) {
    const uint8_t byte = static_cast<uint8_t>(run.firstByte);
    if (seen[byte]) continue;
    seen[byte] = true;
    const PhraseGroup *group = addGroup(builder, run.first, run.end, 1);
    if (table == nullptr) continue;
    table->byFirstByte[byte] = {run.first, run.end, group};
    noteThirds(table->thirds, table->byFirstByte[byte]);
  }
}

}  // namespace

bool listsAreMade() { return phraselists != nullptr && phraselists == madeLists; }

int phraseSlots() { return listsAreMade() ? madeSlots : numcategories1; }

void noteMadeLists(PhraseNode **lists, int slots) {
  madeLists = lists;
  madeSlots = slots;
}

size_t phraseTableSize(std::span<const InitialEntry> runs) {
  Builder counter;
  addRuns(counter, runs, nullptr);
  return sizeof(PhraseTable) + counter.groupCount * sizeof(PhraseGroup) +
         counter.rangeCount * (sizeof(PhraseRange) + sizeof(signed char));
}

void writePhraseTable(InitialEntry *index, size_t runs) {
  const std::span<const InitialEntry> all(index, runs);
  Builder counter;
  addRuns(counter, all, nullptr);

  InitialEntry *terminator = index + runs;
  auto *table = reinterpret_cast<PhraseTable *>(terminator + 1);
  *table = {};
  table->serial = ++lastSerial == 0 ? ++lastSerial : lastSerial;
  Builder writer;
  writer.groups = reinterpret_cast<PhraseGroup *>(table + 1);
  writer.ranges = reinterpret_cast<PhraseRange *>(writer.groups + counter.groupCount);
  writer.bytes = reinterpret_cast<signed char *>(writer.ranges + counter.rangeCount);
  addRuns(writer, all, table);
  *terminator = {0, reinterpret_cast<PhraseNode *>(table), &tableMark};
}

const PhraseTable *findPhraseTable(const InitialEntry *index) {
  while (index->firstByte != 0) index++;
  const auto *behind = reinterpret_cast<const PhraseTable *>(index + 1);
  const bool marked = index->end == &tableMark && reinterpret_cast<const PhraseTable *>(index->first) == behind;
  return marked ? behind : nullptr;
}

}  // namespace netsift
