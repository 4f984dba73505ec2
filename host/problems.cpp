#include "host/problems.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace netsift::host {

namespace {

/* Length of the well-formed UTF-8 sequence that the text starts with; 0 when there is none. */
size_t sequenceLength(std::string_view text) {
  auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
  size_t length = byte(0) < 0x80 ? 1 : byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
  if (length == 1) return 1;
  if (byte(0) < 0xC2 || byte(0) > 0xF4 || text.size() < length) return 0;
  for (size_t i = 1; i < length; i++) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

}  // namespace

std::string jsonText(std::string_view text) {
  std::string out = "\"";
  while (!text.empty()) {
    size_t length = sequenceLength(text);
    char c = text.front();
    if (length == 0) {
      out += "\\ufffd";
    } else if (c == '"' || c == '\\') {
      out.append("\\").append(1, c);
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      out += escape;
    } else {
      out.append(text.substr(0, length));
    }
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return out + "\"";
}

bool anyFatal(const Problems &problems) {
  return std::any_of(problems.begin(), problems.end(), [](const Problem &problem) { return problem.fatal; });
}

std::string problemLine(const Problem &problem) {
  std::string out = problem.file;
  if (problem.line > 0) out += ":" + std::to_string(problem.line);
  if (!out.empty()) out += ": ";
  if (!problem.fatal) out += "warning: ";
  if (!problem.key.empty()) out += problem.key + ": ";
  return out + problem.message;
}

std::string problemsJson(const Problems &problems) {
  std::string out = std::string("{\"ok\": ") + (anyFatal(problems) ? "false" : "true") + ", \"problems\": [";
  for (const Problem &problem : problems) {
    out += &problem == problems.data() ? "\n" : ",\n";
    out += std::string("  {\"severity\": ") + (problem.fatal ? "\"error\"" : "\"warning\"");
    out += ", \"file\": " + jsonText(problem.file);
    if (problem.line > 0) out += ", \"line\": " + std::to_string(problem.line);
    if (!problem.key.empty()) out += ", \"key\": " + jsonText(problem.key);
    out += ", \"message\": " + jsonText(problem.message) + "}";
  }
  return out + (problems.empty() ? "]}\n" : "\n]}\n");
}

std::string checkSummary(const Problems &problems) {
  size_t fatal = static_cast<size_t>(std::ranges::count(problems, true, &Problem::fatal));
  size_t warnings = problems.size() - fatal;
  std::string counted = std::to_string(warnings) + (warnings == 1 ? " warning" : " warnings");
  if (fatal > 0) return std::to_string(fatal) + (fatal == 1 ? " error, " : " errors, ") + counted;
  return warnings > 0 ? counted + "; a start would go on all the same" : "everything is in order for a start";
}

void printProblems(const Problems &problems) {
  for (const Problem &problem : problems) say(problemLine(problem));
}

void say(const std::string &message) {
  /* one write, so that lines of several processes do not mix */
  std::string line = "netsiftd: " + message + "\n";
  if (write(STDERR_FILENO, line.data(), line.size()) < 0) return; /* nobody is left to be told */
}

}  // namespace netsift::host
