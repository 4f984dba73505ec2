/* What an index answers is what walking the list answers, whatever the list and the question. */
#include <sys/wait.h>

#include <sstream>

#include "content/wildcard.h"
#include "policy/entryList.h"
#include "policy/urlList.h"
#include "tests/support/support.h"
#include "util/symbolStore.h"
#include "util/text.h"

using Strings = std::vector<string>;

/* Few pieces, so that what they are put together to is often alike; lengths that come out at the edges. */
class Words {
 public:
  explicit Words(unsigned seed) : random_(seed) {}

  size_t below(size_t limit) { return random_() % limit; }

  string make(size_t most) {
    string word;
    for (size_t left = below(most + 1); left > 0; left--) word += pieces_[below(std::size(pieces_))];
    return word;
  }

  /* Often one of the list's, or that with something beside it. */
  string question(const Strings &entries) {
    if (entries.empty() || below(4) == 0) return make(6);
    string entry = entries[below(entries.size())];
    for (size_t star; (star = entry.find('*')) != entry.npos;) entry.replace(star, 1, make(2));
    const string others[] = {entry, make(2) + "." + entry, entry + "." + make(2), make(1) + entry + make(1),
                             make(1) + "." + entry.substr(0, std::max<size_t>(entry.size(), 1) - 1)};
    return others[below(5)];
  }

 private:
  std::mt19937 random_;
  const Strings pieces_ = [] {
    std::istringstream shorter("a|b|ab|www.|.|.|.com|..|*|*|/|/ads/|1|10.1| |\t|\xA0|\xC3\xA4|banner");
    Strings pieces;
    for (string piece; std::getline(shorter, piece, '|');) pieces.push_back(piece);
    for (const size_t size : {15U, 50U, 59U, 110U, 128U}) pieces.emplace_back(size, size % 2 == 0 ? 'x' : 'z');
    return pieces;
  }();
};

struct Reference {
  Strings urls, domains; /* as loaded; look-ups trim the domains */

  bool hasUrl(const string &url) const {
    return std::ranges::any_of(urls, [&](const string &entry) {
      return entry.find('*') == entry.npos ? entry == url : isMatching(url.c_str(), entry.c_str()) == 1;
    });
  }
  bool hasHost(string &host, int isIP) {
    for (string &entry : domains) {
      if (entry.find_first_not_of(" \t") == entry.npos) continue;
      const int matches = isDomainMatching(host.data(), entry.data(), isIP);
      entry.resize(strlen(entry.c_str()));
      host.resize(strlen(host.c_str()));
      if (matches == 1) return true;
    }
    return false;
  }
};

Symbol *newestOf(const SymbolTable &table, const string &name) {
  Symbol *symbol = table.symbols;
  while (symbol != nullptr && symbol->name != name) symbol = symbol->next;
  return symbol;
}

string linesOf(const Strings &entries) {
  string lines;
  for (const string &entry : entries) lines += entry + "\n";
  return lines;
}

/* Loads a list of random entries and asks it at random, with additions between. */
void compare(const ScratchRoot &root, unsigned seed, size_t entries, int questions) {
  Words words(seed);
  Reference walked;
  for (size_t i = 0; i < entries; i++) {
    walked.urls.push_back(words.make(7));
    walked.domains.push_back(words.make(words.below(20) == 0 ? 14 : 5));
  }
  const Strings domains = walked.domains;
  writeFile(root.config("n.url"), linesOf(walked.urls));
  writeFile(root.config("n.dom"), linesOf(domains));
  if (entries > 0) walked.urls.push_back(""); /* the end of the last line counts as one more */
  UrlList list;
  ASSERT_EQ(buildURLList("n", &list), 1);
  for (int i = 0; i < questions; i++) {
    const string url = words.question(walked.urls), host = words.question(domains);
    const int isIP = static_cast<int>(words.below(2));
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + url + " | " + host + " | " + std::to_string(isIP));
    ASSERT_EQ(inURLList(list.table, list.wildcards, list.domains, url.c_str()), walked.hasUrl(url));
    ASSERT_EQ(sym_lookup_symbol(list.table, url.c_str()), newestOf(*list.table, url));

    string asked = host, left = host;
    const int answer = inDomainList(list.table, list.wildcards, list.domains, asked.data(), isIP);
    ASSERT_EQ(answer, walked.hasHost(left, isIP));
    ASSERT_STREQ(asked.c_str(), entries > 0 ? trim(left.data()) : host.c_str());
    const size_t step = entries > 1000 ? entries / 7 : 1;
    for (size_t entry = 0; entry < entries; entry += step) {
      ASSERT_EQ(list.domains[entry], walked.domains[entry]) << "trimmed as far as the walk comes";
    }
    if (const string added = words.make(5); words.below(8) == 0 && added.find('*') == added.npos) {
      walked.urls.push_back(added);
      sym_create_symbol_(list.table, added.c_str(), "", nullptr, 0);
    }
  }
  freeURLList(&list);
}

TEST(ListIndex, AnswersAsTheWalkDoes) {
  const ScratchRoot root;
  for (unsigned seed = 0; seed < 150 && !HasFatalFailure(); seed++) compare(root, seed, seed % 5 * seed, 60);
  if (!HasFatalFailure()) compare(root, 1000, 4000, 150);
}

TEST(ListIndex, IsOnlyForTheArraysItWasMadeFor) {
  const ScratchRoot root;
  writeFile(root.config("n.url"), "a.com/*\n");
  writeFile(root.config("n.dom"), "a.com\nb.com\n");
  UrlList list;
  ASSERT_EQ(buildURLList("n", &list), 1);
  char added[] = "c.com", pattern[] = "c.com/*", host[] = "x.c.com";
  char *domains[] = {list.domains[0], added, nullptr}, *wildcards[] = {list.wildcards[0], pattern, nullptr};
  EXPECT_EQ(inDomainList(list.table, list.wildcards, domains, host, 0), 1);
  EXPECT_EQ(inURLList(list.table, wildcards, list.domains, "c.com/x"), 1);
  EXPECT_EQ(inURLList(list.table, list.domains, list.wildcards, "b.com"), 1) << "a domain as a pattern";
  char first[] = "a.com";
  EXPECT_EQ(inDomainList(list.table, list.wildcards, list.domains + 1, first, 0), 0);
  const UrlList gone = list;
  freeURLList(&list);
  EXPECT_EQ(netsift::storeOf(gone.table), nullptr) << "another table may lie there next";
  EXPECT_EQ(netsift::domainIndexOf(gone.domains), nullptr);
}

/* What is large lies in memory that processes share, but what one trims or adds is its own. */
TEST(ListIndex, AForkSeesTheListAsItWasLoaded) {
  const ScratchRoot root;
  string lines = " 10.1\n";
  for (int i = 0; i < 20000; i++) lines += "host" + std::to_string(i) + ".org\n";
  writeFile(root.config("n.url"), lines);
  writeFile(root.config("n.dom"), lines);
  UrlList list;
  ASSERT_EQ(buildURLList("n", &list), 1);
  char address[] = "10.1.2.3", host[] = "x.host19999.org";
  const auto asked = [&] { return inDomainList(list.table, list.wildcards, list.domains, address, 1); };
  for (int child = 0; child < 2; child++) {
    const pid_t pid = fork();
    if (pid == 0) {
      const bool first = asked() == 0, second = asked() == 1;
      sym_create_symbol_(list.table, "added", "", nullptr, 0);
      _exit(first && second && inURLList(list.table, list.wildcards, list.domains, "added") == 1 ? 0 : 1);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(list.domains[0], " 10.1");
    EXPECT_EQ(inURLList(list.table, list.wildcards, list.domains, "added"), 0);
  }
  EXPECT_EQ(inDomainList(list.table, list.wildcards, list.domains, host, 0), 1);
  EXPECT_EQ(inURLList(list.table, list.wildcards, list.domains, "host19999.org"), 1);
  freeURLList(&list);
}
