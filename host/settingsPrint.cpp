#include "host/settingsPrint.h"

#include <map>
#include <string_view>

#include "host/settingsTable.h"

namespace netsift::host {

namespace {

constexpr size_t lineWidth = 100;

constexpr std::string_view sampleIntroduction =
    "Configuration of netsiftd, in TOML. A key that is left out has the default given with it. An unknown key, a "
    "wrong type or a value out of range stops the start and names the line, and so does a file without any. SIGHUP "
    "loads this file and all lists anew; `netsiftd --config FILE --check` tells beforehand whether that will work. "
    "Paths that begin with /opt/Velmora/ or /var/Velmora/ lie under the folder given with --root.";

constexpr std::string_view referenceIntroduction =
    "# Configuration of netsiftd\n\n"
    "The configuration is a TOML file, given with `--config FILE`. A key that is left out has its default. An unknown\n"
    "key, a wrong type or a value out of range stops the start with a line that names file, line, key and what is\n"
    "expected, and so does a file without any setting; `netsiftd --config FILE --check` reports every problem\n"
    "without starting. SIGHUP loads the file and all lists anew.\n\n"
    "Lists, templates and phrase files lie in `/opt/Velmora/etc/netsift/`, logs in `/var/Velmora/var/log/`, sockets\n"
    "and the verdict cache below `/opt/Velmora/var/`, each of them under the folder given with `--root DIR`. The\n"
    "lists `whitelist`, `adserver` and `popup` are always loaded: each needs its `.dom` file, and its `.url` file or\n"
    "both `.url.orig` and `.phrase`, from which `.url` is made. Paths in the configuration that begin with\n"
    "`/opt/Velmora/` or `/var/Velmora/` lie under the root too; any other absolute path is used as it stands.\n\n"
    "This page is printed by `netsiftd --print-config=markdown`, a sample file by `netsiftd --print-config`.\n";

/* Words broken into comment lines. */
std::string comment(std::string_view text) {
  std::string out, line = "#";
  while (!text.empty()) {
    size_t length = std::min(text.find(' '), text.size());
    if (line.size() + 1 + length > lineWidth) {
      out += line + "\n";
      line = "#";
    }
    line.append(" ").append(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return out + line + "\n";
}

std::string heading(const Setting &setting) {
  return (setting.section.empty() ? "" : setting.section + ".") + setting.key;
}

std::string shownDefault(const Setting &setting) { return isTableArray(setting) ? "none" : setting.value; }

/* One line says all for the many keys that differ in what they rate only. */
bool isRatingLimit(const Setting &setting) { return setting.section.starts_with("ratings."); }

std::string sampleEntry(const Setting &setting) {
  if (isTableArray(setting)) {
    bool shown = !setting.sample.starts_with("#");
    return "\n" + comment(setting.help) + comment("Type: " + expectedType(setting) + ". Default: none.") +
           (shown ? "" : "# ") + "[[" + heading(setting) + "]]\n" + setting.sample;
  }
  std::string line = setting.key + " = " + setting.value;
  if (isRatingLimit(setting)) {
    std::string_view rates = setting.help;
    rates.remove_prefix(rates.find(": ") + 2);
    return line + " # " + std::string(rates.substr(0, rates.size() - 1)) + "\n";
  }
  return "\n" + comment(setting.help) +
         comment("Type: " + expectedType(setting) + ". Default: " + shownDefault(setting) + ".") + line + "\n";
}

std::string cell(std::string_view text) {
  std::string out;
  for (char c : text) out += c == '|' ? std::string("\\|") : std::string(1, c);
  return out;
}

}  // namespace

std::string sampleConfiguration() {
  std::string out = comment(sampleIntroduction), section;
  for (const Setting &setting : settings()) {
    if (setting.section != section) {
      section = setting.section;
      if (!section.empty()) out += "\n[" + section + "]\n";
      if (isRatingLimit(setting))
        out +=
            comment("The highest value of each key let through; 0 lets only 0 through. Type: " + expectedType(setting) +
                    ". Default: 0.");
    }
    out += sampleEntry(setting);
  }
  return out;
}

std::string configurationReference() {
  std::string out(referenceIntroduction), section = "?";
  for (const Setting &setting : settings()) {
    if (setting.section != section) {
      section = setting.section;
      out += "\n## " + (section.empty() ? "Top level" : "[" + section + "]") + "\n\n";
      out += "| Key | Type | Default | Meaning |\n|---|---|---|---|\n";
    }
    out += "| `" + (isTableArray(setting) ? "[[" + heading(setting) + "]]" : setting.key) + "` | " +
           cell(expectedType(setting)) + " | " + (isTableArray(setting) ? "none" : "`" + cell(setting.value) + "`") +
           " | " + cell(setting.help) + " |\n";
  }
  return out;
}

std::string defaultConfiguration() {
  std::string out, section;
  for (const Setting &setting : settings()) { /* what stands in no section must come before the first one */
    if (setting.section.empty()) out += setting.key + " = " + setting.value + "\n";
  }
  for (const Setting &setting : settings()) {
    if (setting.section.empty()) continue;
    if (setting.section != section) {
      section = setting.section;
      out += "[" + section + "]\n";
    }
    out += setting.key + " = " + setting.value + "\n";
  }
  return out;
}

}  // namespace netsift::host
