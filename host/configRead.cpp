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
  for (const Setting &setting : settings()) {
    if (!given.table().at_path(fullKey(setting))) storeDefault(reading, setting);
  }
  std::ranges::stable_sort(found, {}, &Problem::line);
  problems.insert(problems.end(), found.begin(), found.end());
  return true;
}

}  // namespace netsift::host
