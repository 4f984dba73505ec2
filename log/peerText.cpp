#include "log/peerText.h"

#include <array>
#include <string>

#include "log/debugLog.h"
#include "state/settings.h"
#include "util/escape.h"

namespace netsift {
namespace {

/* Of the 1023 bytes of a log record, so that the other words, the longest debug string and the line end have room. */
constexpr size_t longestShown = 280; /* a record has up to three of them */
constexpr size_t longestLine = 900;

void cut(std::string &text, size_t longest) {
  if (text.size() > longest) text.replace(longest, text.npos, "...");
}

}  // namespace

const char *peerText(const char *text) {
  static std::array<std::string, 8> shown; /* more than one message prints */
  static size_t next = 0;
  if (text == nullptr) return "";
  if (EscapeText != 1) return text;
  std::string &slot = shown[next++ % shown.size()];
  slot = logEscape(text);
  cut(slot, longestShown);
  return slot.c_str();
}

void tracePeerLine(int level, const char *line) {
  if (line == nullptr) return;
  if (EscapeText != 1) {
    dprintf(level, "%s", line);
    return;
  }
  if (level > netsift_debugThreshold) return;
  const std::string_view text = line;
  std::string shown = logEscape(text.substr(0, text.find_last_not_of("\r\n") + 1));
  cut(shown, longestLine);
  dprintf(level, "%s\n", shown.c_str());
}

void traceHeadLines(const Header &header) {
  for (const HeaderLine *line = header.first; line != nullptr; line = line->next) tracePeerLine(5, line->text);
}

}  // namespace netsift
