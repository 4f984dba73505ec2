#include "host/metrics.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "host/pool.h"
#include "netsift.h"

namespace netsift::host {

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

/* Of this process: where it counts, and where the categories that it has loaded stand among the names. */
Metrics *counted;
MetricShard *shard;
int32_t listNames[256], phraseNames[256];

/* 0 when there is no place left. */
int32_t placeOf(Metrics &metrics, const char *name, bool isPhrases) {
  const int32_t count = metrics.nameCount.load(relaxed);
  for (int32_t i = 1; i < count; i++) {
    if (metrics.names[i].isPhrases == isPhrases && std::strcmp(metrics.names[i].name, name) == 0) return i;
  }
  if (count == mostMetricCategories) return 0;
  metrics.names[count].isPhrases = isPhrases;
  std::snprintf(metrics.names[count].name, sizeof metrics.names[count].name, "%s", name);
  metrics.nameCount.store(count + 1, std::memory_order_release);
  return count;
}

uint64_t sizeOf(const UrlList &list) {
  uint64_t size = list.table == nullptr ? 0 : static_cast<uint64_t>(list.table->symbolCount);
  for (char **entries : {list.wildcards, list.domains}) {
    for (; entries != nullptr && *entries != nullptr; entries++) size++;
  }
  return size;
}

uint64_t phraseCount() {
  uint64_t count = 0;
  for (int i = 0; phraselists != nullptr && i < numcategories1; i++) {
    for (const PhraseNode *phrase = phraselists[i]; phrase != nullptr; phrase = phrase->next) count++;
  }
  return count;
}

void noteSizes(Metrics &metrics) {
  uint64_t listed = 0;
  for (int i = 0; categories != nullptr && i < numcategories; i++) listed += sizeOf(categories[i]);
  const uint64_t sizes[] = {sizeOf(whitelist), sizeOf(adlist), sizeOf(popuplist), listed, phraseCount()};
  static_assert(std::size(sizes) == static_cast<size_t>(LoadedList::count));
  for (size_t i = 0; i < std::size(sizes); i++) metrics.sizes[i] = sizes[i];
}

int bucketOf(uint64_t microseconds) {
  int bucket = 0;
  while (bucket < durationBuckets - 1 && microseconds > uint64_t{durationLimits[bucket]} * 1000) bucket++;
  return bucket;
}

void add(Count &count, uint64_t by = 1) { count.fetch_add(by, relaxed); }

void countRequest(const NetsiftRequestFigures *figures) {
  add(shard->outcomes[figures->outcome]);
  add(shard->bytes, figures->bytes);
  add(shard->microseconds, figures->microseconds);
  add(shard->durations[bucketOf(figures->microseconds)]);
  if (figures->cache != NETSIFT_CACHE_NONE) add(shard->cache[figures->cache]);
  if (figures->scan != NETSIFT_SCANNED_NOT) {
    add(shard->scans[figures->scan]);
    add(shard->engineMicroseconds, figures->engineMicroseconds);
  }
  if (figures->blocked == NETSIFT_BLOCK_NONE) return;
  add(shard->blocks[figures->blocked]);
  const bool isKnown = figures->category > 0 && figures->category <= 255;
  if (!isKnown) return;
  const bool isPhrases = figures->blocked == NETSIFT_BLOCK_PHRASES;
  add(shard->categories[(isPhrases ? phraseNames : listNames)[figures->category]]);
}

/* -- as text -- */

template <typename Pick>
uint64_t sum(const Metrics &metrics, Pick pick) {
  uint64_t total = 0;
  for (const MetricShard &each : metrics.shards) total += pick(each).load(relaxed);
  return total;
}

void head(std::string &text, const char *name, const char *type, const char *help) {
  text.append("# HELP ").append(name).append(" ").append(help);
  text.append("\n# TYPE ").append(name).append(" ").append(type) += '\n';
}

void value(std::string &text, const std::string &name, uint64_t number) {
  text.append(name).append(" ").append(std::to_string(number)) += '\n';
}

std::string labelled(const std::string &name, const char *label, const std::string &what) {
  return name + "{" + label + "=\"" + what + "\"}";
}

void single(std::string &text, const char *name, const char *type, const char *help, uint64_t number) {
  head(text, name, type, help);
  value(text, name, number);
}

std::string asSeconds(uint64_t microseconds) {
  char number[40];
  std::snprintf(number, sizeof number, "%.6f", static_cast<double>(microseconds) / 1e6);
  return number;
}

/* A label's value, as the format has it. */
std::string escaped(const char *name) {
  std::string made;
  for (; *name != '\0'; name++) {
    if (*name == '"' || *name == '\\') made += '\\';
    made += *name == '\n' ? std::string("\\n") : std::string(1, *name);
  }
  return made;
}

constexpr const char *outcomeLabels[NETSIFT_REQUEST_OUTCOMES] = {nullptr,    "delivered", "blocked", "error",
                                                                 "tunneled", "relayed",   "aborted"};
constexpr const char *blockLabels[NETSIFT_BLOCK_KINDS] = {nullptr,   "port",  "tunnel",    "local_address", "address",
                                                          "ads",     "list",  "upload",    "type",          "rating",
                                                          "phrases", "virus", "unscanned", "unjudged",      "access"};
constexpr const char *cacheLabels[] = {nullptr, "miss", "hit"};
constexpr const char *scanLabels[] = {nullptr, "clean", "failed", "infected"};
constexpr const char *sizeLabels[] = {"whitelist", "adserver", "popup", "categories", "phrases"};

template <size_t size>
void family(std::string &text, const Metrics &metrics, const char *name, const char *label, const char *help,
            Count (MetricShard::*counts)[size], const char *const (&labels)[size]) {
  head(text, name, "counter", help);
  for (size_t i = 1; i < size; i++)
    value(text, labelled(name, label, labels[i]),
          sum(metrics, [=](const MetricShard &each) -> const Count & { return (each.*counts)[i]; }));
}

void categoryFamily(std::string &text, const Metrics &metrics) {
  const char *name = "netsift_category_blocks_total";
  head(text, name, "counter", "Blocks by lists and phrases, by category.");
  const int32_t count = metrics.nameCount.load(std::memory_order_acquire);
  for (int32_t i = 1; i < count; i++) {
    const MetricCategory &category = metrics.names[i];
    const std::string labels = std::string("{by=\"") + (category.isPhrases ? "phrases" : "list") + "\",category=\"" +
                               escaped(category.name) + "\"}";
    value(text, name + labels,
          sum(metrics, [=](const MetricShard &each) -> const Count & { return each.categories[i]; }));
  }
}

void durationFamily(std::string &text, const Metrics &metrics) {
  const std::string name = "netsift_request_duration_seconds";
  head(text, name.c_str(), "histogram", "From a request's first byte to its end, tunnels too.");
  uint64_t all = 0;
  for (int i = 0; i < durationBuckets; i++) {
    all += sum(metrics, [=](const MetricShard &each) -> const Count & { return each.durations[i]; });
    char limit[20];
    std::snprintf(limit, sizeof limit, "%g", i < durationBuckets - 1 ? durationLimits[i] / 1000.0 : 0.0);
    value(text, labelled(name + "_bucket", "le", i < durationBuckets - 1 ? limit : "+Inf"), all);
  }
  const uint64_t spent = sum(metrics, [](const MetricShard &each) -> const Count & { return each.microseconds; });
  text.append(name).append("_sum ").append(asSeconds(spent)) += '\n';
  value(text, name + "_count", all);
}

void loadFamilies(std::string &text, const Metrics &metrics) {
  const uint64_t loads = metrics.loads, failed = metrics.failedLoads;
  head(text, "netsift_loads_total", "counter", "Loadings of configuration and lists, the first one too.");
  value(text, labelled("netsift_loads_total", "result", "done"), loads);
  value(text, labelled("netsift_loads_total", "result", "failed"), failed);
  single(text, "netsift_last_load_successful", "gauge", "1: what was loaded last is in use.",
         metrics.lastLoadFailed ? 0 : 1);
  single(text, "netsift_loaded_timestamp_seconds", "gauge", "When what is in use was loaded.",
         static_cast<uint64_t>(metrics.loadedAt.load()));
  single(text, "netsift_generation", "gauge", "How many loadings were taken into use.", loads);
  head(text, "netsift_list_entries", "gauge", "Entries of the lists that are in use.");
  for (size_t i = 0; i < std::size(sizeLabels); i++)
    value(text, labelled("netsift_list_entries", "list", sizeLabels[i]), metrics.sizes[i]);
  single(text, "process_start_time_seconds", "gauge", "When the daemon was started.",
         static_cast<uint64_t>(metrics.startedAt.load()));
}

}  // namespace

void countInto(Metrics &metrics) {
  counted = &metrics;
  shard = &metrics.shards[0];
  for (int i = 0; categname != nullptr && i < numcategories; i++)
    listNames[i + 1] = placeOf(metrics, categname[i], false);
  for (int i = 0; categname1 != nullptr && i < numcategories1; i++)
    phraseNames[i + 1] = placeOf(metrics, categname1[i], true);
  noteSizes(metrics);
  netsift_countRequest = countRequest;
}

void useMetricShard(int number) {
  if (counted != nullptr) shard = &counted->shards[number % metricShards];
}

void noteLoading(Metrics &metrics, bool done) {
  metrics.lastLoadFailed = !done;
  add(done ? metrics.loads : metrics.failedLoads);
  if (done) metrics.loadedAt = std::time(nullptr);
}

std::string metricsText(const Metrics &metrics, const Board &board) {
  std::string text;
  family(text, metrics, "netsift_requests_total", "outcome", "Requests, by what became of them.",
         &MetricShard::outcomes, outcomeLabels);
  family(text, metrics, "netsift_blocks_total", "kind", "Blocked requests, by what blocked them.", &MetricShard::blocks,
         blockLabels);
  categoryFamily(text, metrics);
  family(text, metrics, "netsift_cache_lookups_total", "result", "Questions to the verdict cache.", &MetricShard::cache,
         cacheLabels);
  family(text, metrics, "netsift_scans_total", "result", "Scanned responses, by what the engines said.",
         &MetricShard::scans, scanLabels);
  head(text, "netsift_scan_seconds_total", "counter", "Time that the engines took.");
  text += "netsift_scan_seconds_total " +
          asSeconds(sum(metrics, [](const MetricShard &each) -> const Count & { return each.engineMicroseconds; })) +
          "\n";
  single(text, "netsift_client_bytes_total", "counter", "Bytes sent to clients.",
         sum(metrics, [](const MetricShard &each) -> const Count & { return each.bytes; }));
  durationFamily(text, metrics);
  single(text, "netsift_connections_total", "counter", "Connections that were served.", board.connections);
  single(text, "netsift_workers", "gauge", "Processes that serve connections or wait for them.",
         static_cast<uint64_t>(allWorkers(board)));
  single(text, "netsift_connections", "gauge", "Connections that are served now.",
         static_cast<uint64_t>(std::max(board.serving.load(), 0)));
  single(text, "netsift_tunnels", "gauge", "Tunnels that are held apart now.",
         static_cast<uint64_t>(allTunnels(board)));
  loadFamilies(text, metrics);
  return text;
}

}  // namespace netsift::host
