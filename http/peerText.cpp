#include "http/peerText.h"

#include <array>
#include <string>

#include "http/debugLog.h"
#include "state/settings.h"
#include "util/escape.h"

namespace netsift {

constexpr size_t longestShown = 300; /* three of them leave room for a record's other words, and for its line end */

const char *peerText(const char *text) {
  static std::array<std::string, 8> shown; /* more than one message prints */
  static size_t next = 0;
  if (text == nullptr) return "";
  if (EscapeText != 1) return text;
  std::string &slot = shown[next++ % shown.size()];
  slot = logEscape(text);
  if (slot.size() > longestShown) slot.replace(longestShown, slot.npos, "...");
  return slot.c_str();
}

void tracePeerLine(int level, const char *line) {
  if (line == nullptr) return;
  if (EscapeText != 1) {
    dprintf(level, "%s", line);
    return;
  }
  const std::string_view text = line;
  dprintf(level, "%s\n", logEscape(text.substr(0, text.find_last_not_of("\r\n") + 1)).c_str());
}

void traceHeadLines(const Header &header) {
  for (const HeaderLine *line = header.first; line != nullptr; line = line->next) tracePeerLine(5, line->text);
}

}  // namespace netsift
