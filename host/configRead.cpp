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
  Problems &problems;
};

void storeGiven(const Reading &reading, const toml::table &table, const std::string &prefix) {
  for (auto &&[name, node] : table) {
    std::string key = prefix + std::string(name.str());
    int line = static_cast<int>(name.source().begin.line);
    if (const Setting *setting = findSetting(key)) {
      storeSetting(*setting, node, reading.path, reading.problems);
    } else if (!isSection(key)) {
      reading.problems.push_back({true, reading.path, line, key, unknownKeyMessage(key)});
    } else if (const toml::table *section = node.as_table()) {
      storeGiven(reading, *section, key + ".");
    } else {
      reading.problems.push_back({true, reading.path, line, key, "expected the section [" + key + "]"});
    }
  }
}

void storeDefaults(const toml::table &given, Problems &problems) {
  toml::parse_result defaults = toml::parse(defaultConfiguration());
  for (const Setting &setting : settings()) {
    std::string key = fullKey(setting);
    if (given.at_path(key)) continue;
    storeSetting(setting, *defaults.table().at_path(key).node(), "defaults", problems);
  }
}

}  // namespace

void readConfiguration(const std::string &path, Problems &problems) {
  std::string content, error;
  if (!readWholeFile(path, largestConfiguration, &content, &error)) {
    problems.push_back({true, path, 0, "", error});
    return;
  }
  toml::parse_result parsed = toml::parse(content, path);
  if (!parsed) {
    const toml::parse_error &refusal = parsed.error();
    problems.push_back(
        {true, path, static_cast<int>(refusal.source().begin.line), "", std::string(refusal.description())});
    return;
  }
  releaseSettings();
  Problems found;
  storeGiven({path, found}, parsed.table(), "");
  storeDefaults(parsed.table(), found);
  std::ranges::stable_sort(found, {}, &Problem::line);
  problems.insert(problems.end(), found.begin(), found.end());
}

}  // namespace netsift::host
