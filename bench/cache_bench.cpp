/* What the verdict cache costs a response: look-ups and stores a second, alone and with 8 processes at one file of
   10000 URLs. `done` is the share that got through: an operation that meets another's lock is a miss, or a lost store.
   Stores are synced, so they measure the disk under the temporary folder. */
#include <benchmark/benchmark.h>
#include <gdbm.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>

#include "cache/dbcache.h"
#include "util/installPath.h"

namespace {

using benchmark::State;

constexpr int urls = 10000;
constexpr const char *date = "Sun, 06 Nov 1994 08:49:37 GMT";

std::string urlOf(int number) { return "www.example.org/archive/page" + std::to_string(number) + ".html"; }

/* A scratch folder with a filled cache, made the installroot; removed with the object. */
struct Cache {
  std::string root = std::filesystem::temp_directory_path() / "netsift-bench-XXXXXX";

  Cache() {
    if (mkdtemp(root.data()) == nullptr) std::abort();
    installroot = root.data();
    std::filesystem::create_directories(root + "/opt/Velmora/var");
    const std::string value = std::to_string(convertTimeToEpoch(date)) + "17000000000";
    GDBM_FILE file = gdbm_open((root + "/opt/Velmora/var/nscache.db").c_str(), 2048, GDBM_NEWDB, 0666, nullptr);
    if (file == nullptr) std::abort();
    for (int number = 0; number < urls; number++) {
      std::string url = urlOf(number), copy = value;
      gdbm_store(file, {url.data(), static_cast<int>(url.size()) + 1}, {copy.data(), static_cast<int>(copy.size()) + 1},
                 GDBM_INSERT);
    }
    gdbm_close(file);
  }
  ~Cache() {
    installroot = nullptr;
    std::filesystem::remove_all(root);
  }
};

/* Lets state.range(0) processes do `count` operations each, all at once; each iteration is one such race. */
void race(State &state, int count, bool (*operation)(int number)) {
  const Cache cache;
  const auto processes = static_cast<int>(state.range(0));
  void *shared = mmap(nullptr, sizeof(std::atomic<int64_t>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto &done = *new (shared) std::atomic<int64_t>(0);
  for (auto _ : state) {
    int start[2];
    if (pipe(start) != 0) std::abort();
    for (int process = 0; process < processes; process++) {
      if (fork() != 0) continue;
      close(start[1]);
      char nothing;
      (void)!read(start[0], &nothing, 1); /* until the parent closes its end */
      int64_t mine = 0;
      for (int i = 0; i < count; i++) mine += operation((process * 1237 + i * 7) % urls) ? 1 : 0;
      done += mine;
      _exit(0);
    }
    const auto begin = std::chrono::steady_clock::now();
    close(start[0]);
    close(start[1]);
    for (int process = 0; process < processes; process++) wait(nullptr);
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  }
  const auto tried = static_cast<int64_t>(state.iterations()) * processes * count;
  state.SetItemsProcessed(done);
  state.counters["done"] = static_cast<double>(done) / static_cast<double>(tried);
  munmap(shared, sizeof(std::atomic<int64_t>));
}

void lookUps(State &state) {
  race(state, 2000, [](int number) { return if_url_scanned_check_ok(urlOf(number).c_str(), date) == 0; });
}
BENCHMARK(lookUps)->Arg(1)->Arg(8)->UseManualTime()->Unit(benchmark::kMillisecond);

void stores(State &state) {
  race(state, 100, [](int number) { return addto_urlcache_db(urlOf(number).c_str(), date, 1) == 1; });
}
BENCHMARK(stores)->Arg(1)->Arg(8)->UseManualTime()->Unit(benchmark::kMillisecond);

/* One store among every twenty look-ups, as a busy filter has them. */
void mixed(State &state) {
  race(state, 400, [](int number) {
    const std::string url = urlOf(number);
    return number % 20 == 0 ? addto_urlcache_db(url.c_str(), date, 0) == 1
                            : if_url_scanned_check_ok(url.c_str(), date) == 0;
  });
}
BENCHMARK(mixed)->Arg(1)->Arg(8)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
