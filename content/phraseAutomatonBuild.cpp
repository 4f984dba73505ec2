/* Building the automaton: the beginnings are gathered from the look-up tables of all categories at once, each before
   those that it leads to; then, the shortest first, each finds its suffix and its steps. */
#include <sys/mman.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "content/openMatch.h"
#include "content/phraseAutomaton.h"
#include "content/phraseTable.h"
#include "log/debugLog.h"
#include "state/settings.h"

namespace netsift {
namespace {

constexpr size_t bytesPerPhraseByte = 100;
constexpr size_t bytesAlways = 65536; /* what an automaton may take however small its lists are */
constexpr size_t hugePage = 2 * 1024 * 1024;

struct Free {
  void operator()(void *memory) const { std::free(memory); }
};

/* An array with room for as many elements as make() was told. */
template <typename T>
struct Array {
  std::unique_ptr<T[], Free> items;
  size_t count = 0;

  bool make(size_t room) {
    items.reset(static_cast<T *>(std::malloc((room + 1) * sizeof(T))));
    return items != nullptr;
  }
  T &operator[](size_t i) { return items[i]; }
  void add(const T &item) { items[count++] = item; }
};

/* A beginning that phrases share. */
struct Node {
  uint32_t firstEdge, firstOutput;
  uint32_t suffix;                       /* its longest */
  uint8_t edgeCount, outputCount, depth; /* at most 255 next bytes, categories, bytes */
  uint8_t matches;                       /* that it stands for: one, and those of its suffix */
};

struct Edge {
  uint32_t node;
  signed char byte;
};

/* What the phrases of a category go on with at a node. */
struct Source {
  PhraseRange range;
  uint8_t category;
  uint8_t edge; /* the range's next */
};

struct Builder {
  PhraseAutomaton automaton{};
  int categories = 0;
  Array<Node> nodes;
  Array<Edge> edges;
  Array<PhraseOutput> outputs; /* the first is none */
  Array<Source> sources;       /* of the node being added and of those that lead to it */
  Array<AutomatonState> states;
  Array<uint32_t> firstOutputs;
  Array<uint32_t> rows;
  size_t rowRoom = 0, rowLimit = 0;
  unsigned classCount = 1;
};

constexpr int noByte = INT_MAX;

int nextByte(const Source &source, unsigned depth) {
  const auto &[first, end, group] = source.range;
  if (group != nullptr) return source.edge < group->count ? group->bytes[source.edge] : noByte;
  if (source.edge > 0 || first == end || depth == matchedLimit || first->phrase[depth] == '\0') return noByte;
  return static_cast<signed char>(first->phrase[depth]);
}

PhraseRange nextRange(const Source &source) {
  return source.range.group == nullptr ? source.range : source.range.group->ranges[source.edge];
}

void addOutput(Builder &builder, Node &node, const Source &source, unsigned depth) {
  const PhraseGroup *group = source.range.group;
  const bool whole = group != nullptr ? group->firstIsWhole : source.range.first->phrase[depth] == '\0';
  if (!whole) return;
  const bool hides = group != nullptr && group->count > 0 && group->bytes[0] < 0;
  builder.outputs.add({source.range.first, 0, source.category, static_cast<uint8_t>(depth), hides});
  node.outputCount++;
}

/* Adds the bytes that any of the sources goes on with, ascending. */
void addEdges(Builder &builder, Node &node, std::span<Source> sources) {
  for (;;) {
    int lowest = noByte;
    for (const Source &source : sources) lowest = std::min(lowest, nextByte(source, node.depth));
    if (lowest == noByte) break;
    builder.edges.add({0, static_cast<signed char>(lowest)});
    node.edgeCount++;
    for (Source &source : sources) source.edge += nextByte(source, node.depth) == lowest ? 1 : 0;
  }
  for (Source &source : sources) source.edge = 0;
}

/* Adds the node of the sources from `first` on, and all that it leads to; its number. */
uint32_t addNode(Builder &builder, size_t first, unsigned depth) {
  const auto number = static_cast<uint32_t>(builder.nodes.count);
  const std::span<Source> sources(&builder.sources[first], builder.sources.count - first);
  builder.nodes.add({static_cast<uint32_t>(builder.edges.count), static_cast<uint32_t>(builder.outputs.count), 0, 0, 0,
                     static_cast<uint8_t>(depth), 0});
  Node &node = builder.nodes[number];
  for (const Source &source : sources) addOutput(builder, node, source, depth);
  addEdges(builder, node, sources);
  for (size_t i = node.firstEdge; i < node.firstEdge + node.edgeCount; i++) {
    Edge &edge = builder.edges[i];
    const size_t next = builder.sources.count;
    for (Source &source : sources) {
      if (nextByte(source, depth) != edge.byte) continue;
      builder.sources.add({nextRange(source), source.category, 0});
      source.edge++;
    }
    edge.node = addNode(builder, next, depth + 1);
    builder.sources.count = next;
  }
  builder.automaton.longest = std::max(builder.automaton.longest, depth);
  return number;
}

/* The empty beginning; the tables say what it leads to. */
void addAllNodes(Builder &builder, const PhraseTable *const *tables) {
  builder.nodes.add({});
  builder.outputs.add({});
  const auto addRun = [&](int byte) {
    for (int i = 0; i < builder.categories; i++) {
      const PhraseRange *range = tables[i] == nullptr ? nullptr : &tables[i]->byFirstByte[byte & 0xff];
      if (range != nullptr && range->first != nullptr) builder.sources.add({*range, static_cast<uint8_t>(i), 0});
    }
    return builder.sources.count > 0;
  };
  size_t edge = 0;
  for (int pass = 0; pass < 2; pass++) { /* their number has to be known before those that they lead to */
    for (int byte = SCHAR_MIN; byte <= SCHAR_MAX; byte++) {
      if (!addRun(byte)) continue;
      if (pass == 0) builder.edges.add({0, static_cast<signed char>(byte)});
      if (pass == 1) builder.edges[edge++].node = addNode(builder, 0, 1);
      builder.sources.count = 0;
    }
    if (pass == 0) builder.nodes[0].edgeCount = static_cast<uint8_t>(builder.edges.count);
  }
}

uint8_t &classOf(Builder &builder, const Edge &edge) {
  return builder.automaton.classes[static_cast<uint8_t>(edge.byte)];
}

void numberClasses(Builder &builder) {
  for (size_t i = 0; i < builder.edges.count; i++) classOf(builder, builder.edges[i]) = 1;
  for (uint8_t &byteClass : builder.automaton.classes) {
    if (byteClass != 0) byteClass = static_cast<uint8_t>(builder.classCount++);
  }
}

/* Takes over what the suffix of a node has found, and returns the step to the node. */
uint32_t finishSuffix(Builder &builder, uint32_t number, uint32_t suffix) {
  Node &node = builder.nodes[number];
  node.suffix = suffix;
  node.matches = static_cast<uint8_t>(std::min(builder.nodes[suffix].matches + 1, 255));
  uint32_t &first = builder.firstOutputs[number];
  first = builder.firstOutputs[suffix];
  for (uint32_t i = node.firstOutput + node.outputCount; i-- > node.firstOutput; first = i)
    builder.outputs[i].next = first;
  if (node.matches > poolSize) first = crowded;
  return number | (first != 0 ? hitBit : 0);
}

/* A row that is like another one but for these steps; false when there is no room. */
bool addRow(Builder &builder, AutomatonState &state, std::span<const uint32_t> steps) {
  Array<uint32_t> &rows = builder.rows;
  if (rows.count + builder.classCount > builder.rowRoom) {
    builder.rowRoom = std::min(2 * builder.rowRoom + 64 * builder.classCount, builder.rowLimit);
    if (rows.count + builder.classCount > builder.rowRoom) return false;
    auto *grown = static_cast<uint32_t *>(std::realloc(rows.items.get(), builder.rowRoom * sizeof(uint32_t)));
    if (grown == nullptr) return false;
    static_cast<void>(rows.items.release());
    rows.items.reset(grown);
  }
  uint32_t *row = &rows[rows.count];
  if (rows.count == 0) {
    std::fill_n(row, builder.classCount, 0);
  } else {
    std::copy_n(&rows[state.row], builder.classCount, row);
  }
  for (const uint32_t step : steps) row[step >> classShift] = step & stepBits;
  state = {static_cast<uint32_t>(rows.count), {}};
  rows.count += builder.classCount;
  return true;
}

/* Finds the suffixes of the nodes that a node leads to, and makes its state. */
bool finishNode(Builder &builder, uint32_t number) {
  const Node &node = builder.nodes[number];
  AutomatonState &state = builder.states[number];
  uint32_t steps[256];
  size_t count = 0;
  for (const Edge &edge : std::span(&builder.edges[node.firstEdge], node.edgeCount)) {
    const uint32_t byteClass = classOf(builder, edge);
    const uint32_t suffix =
        number == 0 ? 0
                    : follow(builder.states.items.get(), builder.rows.items.get(), node.suffix, byteClass) & stateBits;
    steps[count++] = finishSuffix(builder, edge.node, suffix) | byteClass << classShift;
  }
  state = {};
  if (number == 0) return addRow(builder, state, std::span(steps, count));

  const AutomatonState &suffix = builder.states[node.suffix];
  state.row = suffix.row;
  const size_t edges = count;
  for (const uint32_t step : suffix.steps) {
    const auto sameClass = [&](uint32_t own) { return own >> classShift == step >> classShift; };
    if (step != 0 && std::none_of(steps, steps + edges, sameClass)) steps[count++] = step;
  }
  if (count > ownSteps) return addRow(builder, state, std::span(steps, count));
  std::copy_n(steps, count, state.steps);
  return true;
}

/* Finishes the nodes, the shortest beginnings first. */
bool finishAllNodes(Builder &builder) {
  Array<uint32_t> order;
  if (!order.make(builder.nodes.count)) return false;
  size_t ends[matchedLimit + 2] = {};
  for (size_t i = 0; i < builder.nodes.count; i++) ends[builder.nodes[i].depth + 1]++;
  for (size_t depth = 1; depth < std::size(ends); depth++) ends[depth] += ends[depth - 1];
  for (size_t i = 0; i < builder.nodes.count; i++) order[ends[builder.nodes[i].depth]++] = static_cast<uint32_t>(i);
  builder.firstOutputs[0] = 0;
  for (size_t i = 0; i < builder.nodes.count; i++) {
    if (!finishNode(builder, order[i])) return false;
  }
  return true;
}

/* The automaton in use, in one piece of memory. */
PhraseAutomaton built;
void *builtMemory;

template <typename T>
T *moveBehind(char *&place, const Array<T> &array) {
  T *moved = reinterpret_cast<T *>(place);
  std::copy_n(array.items.get(), array.count, moved);
  place += array.count * sizeof(T);
  return moved;
}

size_t sizeWithoutRows(const Builder &builder) {
  return builder.nodes.count * (sizeof(AutomatonState) + sizeof(uint32_t)) +
         builder.outputs.count * sizeof(PhraseOutput);
}

/* In memory that the processor finds with few look-ups, when there is much of it. */
bool keep(Builder &builder) {
  PhraseAutomaton &automaton = builder.automaton;
  automaton.size = sizeWithoutRows(builder) + builder.rows.count * sizeof(uint32_t);
  const bool isLarge = automaton.size >= hugePage;
  if (posix_memalign(&builtMemory, isLarge ? hugePage : alignof(std::max_align_t), automaton.size) != 0) {
    builtMemory = nullptr;
    return false;
  }
  if (isLarge) madvise(builtMemory, automaton.size, MADV_HUGEPAGE);

  auto *place = static_cast<char *>(builtMemory);
  automaton.states = moveBehind(place, builder.states);
  automaton.outputs = moveBehind(place, builder.outputs);
  automaton.rows = moveBehind(place, builder.rows);
  automaton.firstOutputs = moveBehind(place, builder.firstOutputs);
  built = automaton;
  return true;
}

/* What bounds the arrays: the phrases of all lists, and their bytes. */
struct Volume {
  size_t phrases = 0, bytes = 0;
};

Volume volumeOf(int categories) {
  Volume volume;
  for (int i = 0; i < categories; i++) {
    for (const PhraseNode *node = phraselists[i]; node != nullptr; node = node->next) {
      volume.phrases++;
      volume.bytes += std::strlen(node->phrase);
    }
  }
  return volume;
}

bool makeRoom(Builder &builder, const Volume &volume) {
  const auto categories = static_cast<size_t>(builder.categories);
  return builder.nodes.make(volume.bytes + 1) && builder.edges.make(volume.bytes) &&
         builder.outputs.make(volume.phrases + 1) && builder.sources.make(categories * (matchedLimit + 2));
}

const PhraseTable *tableOf(int category) {
  const InitialEntry *index = initiallists == nullptr ? nullptr : initiallists[category];
  return index == nullptr ? nullptr : findPhraseTable(index);
}

bool build(Builder &builder) {
  const int categories = phraseSlots();
  const PhraseTable *tables[maxPhraseCategories] = {};
  builder.categories = categories;
  for (int i = 0; i < categories; i++) {
    tables[i] = tableOf(i);
    builder.automaton.serials[i] = tables[i] == nullptr ? 0 : tables[i]->serial;
  }
  const Volume volume = volumeOf(categories);
  if (volume.bytes == 0 || volume.bytes > stateBits || !makeRoom(builder, volume)) return false;
  addAllNodes(builder, tables);
  numberClasses(builder);
  const size_t nodes = builder.nodes.count;
  builder.states.count = builder.firstOutputs.count = nodes;
  builder.rowLimit = (bytesPerPhraseByte * volume.bytes + bytesAlways - sizeWithoutRows(builder)) / sizeof(uint32_t);
  if (!builder.states.make(nodes) || !builder.firstOutputs.make(nodes) || !finishAllNodes(builder)) return false;
  return keep(builder);
}

}  // namespace

void buildPhraseAutomaton() {
  freePhraseAutomaton();
  Builder builder;
  if (!build(builder)) return;
  dprintf(6, "phrase automaton: %zu beginnings, %zu rows of %u, %zu bytes\n", builder.nodes.count,
          builder.rows.count / builder.classCount, builder.classCount, built.size);
}

void freePhraseAutomaton() {
  std::free(builtMemory);
  builtMemory = nullptr;
  built = {};
}

const PhraseAutomaton *findPhraseAutomaton() {
  if (builtMemory == nullptr || numcategories1 > phraseSlots()) return nullptr;
  for (int i = 0; i < numcategories1; i++) {
    const PhraseTable *table = tableOf(i);
    const bool none = initiallists == nullptr || initiallists[i] == nullptr;
    if (none ? built.serials[i] != 0 : table == nullptr || table->serial != built.serials[i]) return nullptr;
  }
  return &built;
}

}  // namespace netsift
