#include "host/configRead.h"

#include <algorithm>

#include "host/files.h"
#include "host/nearestKey.h"
#include "host/settingsPrint.h"
#include "host/settingsTable.h"
#include "host/storeSetting.h"
#include "host/toml.h"

namespace netsift::host {

namespace {

constexpr size_t largestConfiguration = 1 << 20;
constexpr int mostKeyParts = 8;

/* Behind the text in quotes that starts at `from`; an end of line ends what is not closed, the file's end any. */
size_t endOfQuoted(std::string_view text, size_t from) {
  char quote = text[from];
  std::string three(3, quote);
  bool manyLines = text.substr(from).starts_with(three);
  for (size_t i = from + (manyLines ? 3 : 1); i < text.size(); i++) {
    if (text[i] == '\\' && quote == '"') {
      i++;
    } else if (!manyLines && (text[i] == quote || text[i] == '\n')) {
      return text[i] == quote ? i + 1 : i;
    } else if (manyLines && text.substr(i).starts_with(three)) {
      size_t end = i + 3; /* up to two quotes before the closing three are text */
      while (end < std::min(i + 5, text.size()) && text[end] == quote) end++;
      return end;
    }
  }
  return text.size();
}

struct Unreadable {
  int line; /* 0: nothing is */
  const char *what;
};

/* What must not reach the parser. To it each part of a key is a table in a table, and it takes them apart by calling
   itself: a few thousand overflow its stack. And it looks characters beyond ASCII outside quotes up in a table that has
   no place for most of them. */
Unreadable findUnreadable(std::string_view text) {
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  int line = 1, dots = 0;
  size_t next = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
  for (size_t i = next; i < text.size(); i = next) {
    next = i + 1;
    if (text[i] == '"' || text[i] == '\'') next = endOfQuoted(text, i);
    if (text[i] == '#') next = std::min(text.find('\n', i), text.size());
    if (text[i] == '.' && ++dots == mostKeyParts)
      return {line, "a key of more than 8 parts; those of the settings have 3 at most"};
    if (static_cast<unsigned char>(text[i]) >= 0x80)
      return {line, "a character that is not ASCII stands outside quotes; put the text it belongs to in quotes"};
    if (std::string_view("=,[]{}\n").find(text[i]) != std::string_view::npos) dots = 0;
    line += static_cast<int>(std::ranges::count(text.substr(i, next - i), '\n'));
  }
  return {0, ""};
}

const Setting *findSetting(std::string_view key) {
  for (const Setting &setting : settings()) {
    if (fullKey(setting) == key) return &setting;
  }
  return nullptr;
}

bool isSection(const std::string &key) {
  return std::ranges::any_of(settings(), [&key](const Setting &setting) {
    return setting.section == key || setting.section.starts_with(key + ".");
  });
}

std::string unknownKeyMessage(const std::string &key) {
  std::string nearest = nearestKey(key);
  return nearest.empty() ? "unknown key" : "unknown key; did you mean " + nearest + "?";
}

struct Reading {
  const std::string &path;
  const toml::table &defaults;
  Problems &problems;
};

void storeDefault(const Reading &reading, const Setting &setting) {
  storeSetting(setting, *reading.defaults.at_path(fullKey(setting)).node(), "default", reading.problems);
}

void storeGiven(const Reading &reading, const toml::table &table, const std::string &prefix) {
  for (auto &&[name, node] : table) {
    std::string key = prefix + std::string(name.str());
    int line = static_cast<int>(name.source().begin.line);
    if (const Setting *setting = findSetting(key)) {
      size_t before = reading.problems.size();
      storeSetting(*setting, node, reading.path, reading.problems);
      if (reading.problems.size() > before) storeDefault(reading, *setting);
    } else if (!isSection(key)) {
      reading.problems.push_back({true, reading.path, line, key, unknownKeyMessage(key)});
    } else if (const toml::table *section = node.as_table()) {
      storeGiven(reading, *section, key + ".");
    } else {
      reading.problems.push_back({true, reading.path, line, key, "expected the section [" + key + "]"});
    }
  }
}

}  // namespace

bool readConfiguration(const std::string &path, Problems &problems) {
  std::string content, error;
  if (!readWholeFile(path, largestConfiguration, &content, &error)) {
    problems.push_back({true, path, 0, "", error});
    return false;
  }
  if (size_t zero = content.find('\0'); zero != content.npos) { /* no TOML, and the reader asserts that there is none */
    int line = 1 + static_cast<int>(std::count(content.begin(), content.begin() + static_cast<long>(zero), '\n'));
    problems.push_back({true, path, line, "", "holds a NUL byte"});
    return false;
  }
  if (const Unreadable unreadable = findUnreadable(content); unreadable.line > 0) {
    problems.push_back({true, path, unreadable.line, "", unreadable.what});
    return false;
  }
  toml::parse_result given = toml::parse(content, path), defaults = toml::parse(defaultConfiguration());
  if (!given) {
    const toml::parse_error &refusal = given.error();
    problems.push_back(
        {true, path, static_cast<int>(refusal.source().begin.line), "", std::string(refusal.description())});
    return false;
  }
  releaseSettings();
  Problems found;
  Reading reading{path, defaults.table(), found};
  storeGiven(reading, given.table(), "");
  bool empty = found.empty();
  for (const Setting &setting : settings()) {
    if (given.table().at_path(fullKey(setting)))
      empty = false;
    else
      storeDefault(reading, setting);
  }
  if (empty)
    found.push_back(
        {true, path, 0, "", "holds no setting, which would lift every list; --print-config prints a complete one"});
  std::ranges::stable_sort(found, {}, &Problem::line);
  problems.insert(problems.end(), found.begin(), found.end());
  return true;
}

}  // namespace netsift::host
