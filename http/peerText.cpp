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

void traceHeadLines(const Header &header) {
  for (const HeaderLine *line = header.first; line != nullptr; line = line->next) {
    if (EscapeText != 1) {
      dprintf(5, "%s", line->text == nullptr ? "" : line->text);
    } else if (line->text != nullptr) {
      const std::string_view text = line->text;
      dprintf(5, "%s\n", logEscape(text.substr(0, text.find_last_not_of("\r\n") + 1)).c_str());
    }
  }
}

}  // namespace netsift
