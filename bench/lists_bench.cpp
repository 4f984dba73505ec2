/* What the size of the lists costs: loading them, a decision about a request that no list has (the dearest), and the
   fork of a process that holds them. The lists lie in a temporary folder. Run it alone for figures of memory. */
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "policy/urlList.h"
#include "util/installPath.h"

namespace {

using benchmark::State;
using std::string;

/* A word of `syllables` syllables that depends on the number alone. */
string wordOf(uint64_t number, int syllables) {
  number = (number + 1) * 0x9E3779B97F4A7C15U;
  string word;
  for (; syllables > 0; syllables--, number = number << 7 | number >> 57) {
    word += "bdfgklmnprstvz"[(number >> 40) % 14];
    word += "aeiou"[(number >> 20) % 5];
  }
  return word;
}

/* 20 bytes on average. */
string domainOf(uint64_t number) {
  static constexpr const char *tops[] = {".com", ".net", ".org", ".info"};
  return wordOf(number, 3 + static_cast<int>(number % 4)) + std::to_string(number) + tops[number % 4];
}

string urlOf(uint64_t number) { return "www." + domainOf(number) + "/" + wordOf(number / 3, 5); }

string wildcardOf(uint64_t number) {
  const string word = wordOf(number, 4) + std::to_string(number % 1000);
  static constexpr const char *after[] = {"*", "*", "/*", "*.gif"};
  return (number % 4 == 0 ? "ads." : "*") + word + after[number % 4];
}

/* A scratch folder with the list "adserver", loaded from it; both gone with the object. */
struct Lists {
  string root = std::filesystem::temp_directory_path() / "netsift-bench-XXXXXX";
  bool isLoaded = false;

  Lists(uint64_t domains, uint64_t urls, uint64_t wildcards) {
    if (mkdtemp(root.data()) == nullptr) std::abort();
    installroot = root.data();
    const string folder = root + configFolder();
    std::filesystem::create_directories(folder);
    std::ofstream domainFile(folder + "adserver.dom"), urlFile(folder + "adserver.url");
    for (uint64_t number = 0; number < domains; number++) domainFile << domainOf(number) << '\n';
    for (uint64_t number = 0; number < urls; number++) urlFile << urlOf(number) << '\n';
    for (uint64_t number = 0; number < wildcards; number++) urlFile << wildcardOf(number) << '\n';
  }
  ~Lists() {
    if (isLoaded) freeADList();
    installroot = nullptr;
    std::filesystem::remove_all(root);
  }
  static string configFolder() { return netsift::configFolder; }
  void load() {
    if (makeADList() != 1) std::abort();
    isLoaded = true;
  }
  void release() {
    freeADList();
    isLoaded = false;
  }
};

size_t residentBytes() {
  size_t size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

/* Reads every page that the list lies in, an index's included: a page counts as resident when it was read. */
size_t touchAll() {
  std::ifstream maps("/proc/self/maps");
  size_t sum = 0;
  for (string line; std::getline(maps, line);) {
    if (line.find("netsift-list") == line.npos) continue;
    char *end = nullptr;
    const auto *byte = reinterpret_cast<const volatile char *>(std::strtoull(line.c_str(), &end, 16));
    const auto *last = reinterpret_cast<const volatile char *>(std::strtoull(end + 1, nullptr, 16));
    for (; byte < last; byte += 4096) sum += static_cast<unsigned char>(*byte);
  }
  return sum;
}

void loading(State &state) {
  const auto domains = static_cast<uint64_t>(state.range(0)), urls = static_cast<uint64_t>(state.range(1));
  Lists lists(domains, urls, 0);
  const size_t before = residentBytes();
  for (auto _ : state) {
    if (lists.isLoaded) lists.release();
    lists.load();
  }
  benchmark::DoNotOptimize(touchAll());
  state.counters["MB"] = static_cast<double>(residentBytes() - before) / 1e6;
  state.counters["bytes_an_entry"] =
      static_cast<double>(residentBytes() - before) / static_cast<double>(domains + urls);
}
BENCHMARK(loading)->Args({1000000, 0})->Args({0, 1000000})->Iterations(1)->Unit(benchmark::kMillisecond);

/* Domains, URLs and wildcards. */
void deciding(State &state) {
  const auto domains = static_cast<uint64_t>(state.range(0));
  Lists lists(domains, static_cast<uint64_t>(state.range(1)), static_cast<uint64_t>(state.range(2)));
  lists.load();
  constexpr size_t requests = 4096;
  std::vector<string> hosts, urls;
  for (size_t i = 0; i < requests; i++) {
    hosts.push_back("www." + domainOf(domains + i * 977));
    urls.push_back(hosts.back() + "/" + wordOf(i, 6) + "/" + wordOf(i * 3, 8) + "/page" + std::to_string(i) + ".html");
  }
  size_t next = 0, listed = 0;
  for (auto _ : state) {
    listed += inADList(urls[next].c_str(), hosts[next].data(), 0) != 0 ? 1 : 0;
    next = (next + 1) % requests;
  }
  state.counters["listed"] = static_cast<double>(listed) / static_cast<double>(state.iterations());
}
BENCHMARK(deciding)->Args({100, 100, 100})->Args({100000, 100000, 1000})->Args({5000000, 1000000, 10000});

/* A fork, a decision in the child, its end. */
void forking(State &state) {
  Lists lists(static_cast<uint64_t>(state.range(0)), static_cast<uint64_t>(state.range(1)), 0);
  lists.load();
  char host[] = "www.example.org";
  for (auto _ : state) {
    const pid_t child = fork();
    if (child == 0) _exit(inADList("www.example.org/page", host, 0));
    waitpid(child, nullptr, 0);
  }
}
BENCHMARK(forking)->Args({0, 0})->Args({5000000, 0})->Args({5000000, 1000000})->Unit(benchmark::kMicrosecond);

}  // namespace
