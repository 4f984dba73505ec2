#include "tools/netsiftctl/listEntries.h"

#include "host/files.h"
#include "host/listFiles.h"
#include "host/listFormat.h"
#include "netsift.h"

namespace netsift::ctl {

namespace {

constexpr char endByte = '\xFF';

void add(ListEntries &list, std::string_view text, int line, bool isDomain) {
  list.entries.push_back({std::string(text), static_cast<int>(list.files.size()) - 1, line, isDomain});
}

void addFile(ListEntries &list, const std::string &path, bool isDomain) {
  std::string text, error;
  if (!host::exists(path) || !host::readWholeFile(path, host::largestList, &text, &error)) return;
  list.files.push_back(path);
  const host::ListFormat format = host::listFormat(text);
  const bool blocks = host::isBlocking(list.name);
  if (format == host::ListFormat::none) {
    text.resize(std::min(text.find(endByte), text.size()));
    host::eachLine(text, [&](std::string_view line, int number) { add(list, line, number, isDomain); });
    return;
  }
  host::eachLine(text, [&](std::string_view line, int number) {
    if (number == 1) return;
    const host::Converted converted = host::convertLine(line, number, format, blocks);
    host::eachLine(converted.entries, [&](std::string_view entry, int) { add(list, entry, number, isDomain); });
  });
}

/* A record's single word, as the library makes patterns of it. */
void addPatterns(ListEntries &list, const std::string &path) {
  std::string text, error;
  if (!host::readWholeFile(path, host::largestList, &text, &error)) return;
  list.files.push_back(path);
  host::eachLine(text, [&](std::string_view line, int number) {
    if (line.find(' ') != line.npos) return;
    const size_t start = std::min(line.find_first_not_of("<>"), line.size());
    std::string word(line.substr(start, line.find_first_of("<>", start) - start));
    word = trim(word.data());
    if (word.empty()) return;
    if (phraseinurl != 0) return add(list, "*" + word + "*", number, false);
    add(list, word + "*", number, false);
    add(list, "www." + word + "*", number, false);
  });
}

}  // namespace

ListEntries readEntries(const std::string &name) {
  ListEntries list{name, {}, {}};
  const host::ListFiles files = host::listFiles(name);
  const bool isMade = host::canBeMade(files);
  addFile(list, isMade ? files.original : files.url, false);
  if (isMade) addPatterns(list, files.phrase);
  addFile(list, files.reported, false);
  addFile(list, files.domain, true);
  return list;
}

bool isMet(const ListEntry &entry, const std::string &url, const std::string &host, bool isAddress) {
  if (!entry.isDomain) {
    return entry.text.find('*') == entry.text.npos ? entry.text == url
                                                   : isMatching(url.c_str(), entry.text.c_str()) == 1;
  }
  if (entry.text.find_first_not_of(" \t\n\v\f\r") == entry.text.npos) return false;
  std::string asked = host, domain = entry.text;
  return isDomainMatching(asked.data(), domain.data(), isAddress ? 1 : 0) == 1;
}

}  // namespace netsift::ctl
