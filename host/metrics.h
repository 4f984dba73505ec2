/* Figures for whoever watches the daemon, counted by every process of every generation in memory that they share: plain
   relaxed atomics, no lock and no system call. They stay when a process is killed, and only grow. */
#ifndef NETSIFT_HOST_METRICS_H
#define NETSIFT_HOST_METRICS_H

#include <atomic>
#include <cstdint>
#include <iterator>
#include <string>

#include "log/requestLog.h"

namespace netsift::host {

constexpr int metricShards = 64;          /* processes count apart, so that none waits for another's cache line */
constexpr int mostMetricCategories = 512; /* names, of lists and of phrases, that were ever loaded; 0: any more */

/* Upper limits of a request's time in milliseconds; what takes longer is counted behind them. */
constexpr uint32_t durationLimits[] = {5, 10, 25, 50, 100, 250, 500, 1000, 2500, 5000, 10000, 60000};
constexpr int durationBuckets = static_cast<int>(std::size(durationLimits)) + 1;

using Count = std::atomic<uint64_t>;

struct alignas(64) MetricShard {
  Count outcomes[NETSIFT_REQUEST_OUTCOMES], blocks[NETSIFT_BLOCK_KINDS], cache[3], scans[4];
  Count categories[mostMetricCategories];
  Count durations[durationBuckets], microseconds, engineMicroseconds, bytes;
};

struct MetricCategory {
  bool isPhrases;
  char name[101];
};

enum class LoadedList { whitelist, adserver, popup, categories, phrases, count };

struct Metrics {
  MetricShard shards[metricShards];
  MetricCategory names[mostMetricCategories];
  std::atomic<int32_t> nameCount{1}; /* of which the first has no name */
  std::atomic<uint64_t> sizes[static_cast<int>(LoadedList::count)];
  Count loads, failedLoads;
  std::atomic<bool> lastLoadFailed;
  std::atomic<int64_t> loadedAt, startedAt; /* seconds since 1970 */
};

struct Board;

/* A generation that has loaded: its categories and the sizes of its lists, and all that it and its processes serve from
   now on is counted. Generations load one after the other. */
void countInto(Metrics &metrics);

/* The share of the memory that this process counts in: any number. */
void useMetricShard(int number);

/* The result of a loading. */
void noteLoading(Metrics &metrics, bool done);

/* The figures in the text format of Prometheus, version 0.0.4. */
std::string metricsText(const Metrics &metrics, const Board &board);

}  // namespace netsift::host

#endif
