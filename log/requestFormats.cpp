#include "log/requestFormats.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "util/escape.h"

namespace netsift {
namespace {

/* What became of it: in words, and as squid has it. */
struct OutcomeName {
  const char *verdict, *squid;
};
constexpr OutcomeName outcomeNames[NETSIFT_REQUEST_OUTCOMES] = {
    {"aborted", "TCP_MISS_ABORTED"}, {"delivered", "TCP_MISS"}, {"blocked", "TCP_DENIED"},       {"error", "TCP_MISS"},
    {"tunneled", "TCP_TUNNEL"},      {"relayed", "TCP_TUNNEL"}, {"aborted", "TCP_MISS_ABORTED"},
};

constexpr const char *blockNames[NETSIFT_BLOCK_KINDS] = {
    "",     "port",   "tunnel",  "local address", "address",   "ads",      "list",   "upload",
    "type", "rating", "phrases", "virus",         "unscanned", "unjudged", "access",
};

constexpr const char *scanNames[] = {"", "clean", "failed", "infected"};

const OutcomeName &outcomeOf(const RequestRecord &record) { return outcomeNames[record.figures.outcome]; }

/* A number, filled from the left to a width. */
void padded(std::string &line, uint64_t value, size_t width, char fill = '0') {
  const std::string digits = std::to_string(value);
  if (digits.size() < width) line.append(width - digits.size(), fill);
  line += digits;
}

std::string orDash(const std::string &text) { return text.empty() ? "-" : urlEscape(text); }

/* Time of day, as the time zone has it, and the zone's distance from UTC. */
struct LocalTime {
  char text[64];
  size_t length;
  uint64_t milliseconds;
  char sign;
  uint64_t hours, minutes;
};

enum class Style { web, iso };

LocalTime localTime(int64_t microseconds, Style style) {
  const time_t seconds = static_cast<time_t>(microseconds / 1'000'000);
  tm parts{};
  localtime_r(&seconds, &parts);
  LocalTime local{};
  local.length = style == Style::iso ? std::strftime(local.text, sizeof local.text, "%Y-%m-%dT%H:%M:%S", &parts)
                                     : std::strftime(local.text, sizeof local.text, "%d/%b/%Y:%H:%M:%S ", &parts);
  local.milliseconds = static_cast<uint64_t>(microseconds / 1000 % 1000);
  const long distance = std::labs(parts.tm_gmtoff) / 60;
  local.sign = parts.tm_gmtoff < 0 ? '-' : '+';
  local.hours = static_cast<uint64_t>(distance / 60);
  local.minutes = static_cast<uint64_t>(distance % 60);
  return local;
}

/* "23/Nov/2026:18:04:11 +0100" */
void appendWebTime(std::string &line, int64_t microseconds) {
  const LocalTime local = localTime(microseconds, Style::web);
  line.append(local.text, local.length) += local.sign;
  padded(line, local.hours * 100 + local.minutes, 4);
}

/* "2026-11-23T18:04:11.123+01:00" */
void appendIsoTime(std::string &line, int64_t microseconds) {
  const LocalTime local = localTime(microseconds, Style::iso);
  line.append(local.text, local.length) += '.';
  padded(line, local.milliseconds, 3);
  line += local.sign;
  padded(line, local.hours, 2);
  line += ':';
  padded(line, local.minutes, 2);
}

uint64_t milliseconds(const RequestRecord &record) { return record.figures.microseconds / 1000; }

void appendStatus(const RequestRecord &record, std::string &line) {
  padded(line, static_cast<uint64_t>(std::max(record.figures.status, 0)), 3);
}

/* A request that could not be read has neither method nor URL, and squid's words for that. */
void writeSquid(const RequestRecord &record, std::string &line) {
  const bool wasAsked = !record.method.empty();
  padded(line, static_cast<uint64_t>(record.began / 1'000'000), 10, ' ');
  line += '.';
  padded(line, static_cast<uint64_t>(record.began / 1000 % 1000), 3);
  line += ' ';
  padded(line, milliseconds(record), 6, ' ');
  line.append(" ").append(orDash(record.client)).append(" ").append(wasAsked ? outcomeOf(record).squid : "NONE") += '/';
  appendStatus(record, line);
  line.append(" ").append(std::to_string(record.figures.bytes)) += ' ';
  line += wasAsked ? urlEscape(record.method) + " " + orDash(record.url) : "NONE error:invalid-request";
  line.append(" ").append(orDash(record.user));
  const std::string host = urlEscape(record.upstream.substr(0, record.upstream.rfind(':')));
  const char *way = record.viaProxy ? " FIRSTUP_PARENT/" : " HIER_DIRECT/";
  line += record.upstream.empty() ? " HIER_NONE/-" : way + host;
  line.append(" ").append(orDash(record.type)) += '\n';
}

void writeCombined(const RequestRecord &record, std::string &line) {
  const bool wasAsked = !record.method.empty();
  line.append(orDash(record.client)).append(" - ").append(orDash(record.user)).append(" [");
  appendWebTime(line, record.began);
  line += "] \"";
  line += wasAsked ? urlEscape(record.method) + " " + orDash(record.url) + " HTTP/1.1" : "-";
  line += "\" ";
  appendStatus(record, line);
  line.append(" ").append(std::to_string(record.figures.bytes)).append(" \"").append(orDash(record.referer));
  line.append("\" \"").append(record.agent.empty() ? "-" : logEscape(record.agent)).append("\"\n");
}

/* -- JSON -- */

void key(std::string &line, const char *name) { line.append(line.back() == '{' ? "\"" : ",\"").append(name) += "\":"; }

void text(std::string &line, const char *name, const std::string &value) {
  key(line, name);
  line += '"' + jsonEscape(value) + '"';
}

/* Left out where there is none. */
void given(std::string &line, const char *name, const std::string &value) {
  if (!value.empty()) text(line, name, value);
}

void orNull(std::string &line, const char *name, const std::string &value) {
  if (!value.empty()) return text(line, name, value);
  key(line, name);
  line += "null";
}

void number(std::string &line, const char *name, uint64_t value) {
  key(line, name);
  line += std::to_string(value);
}

void writeJsonPhrases(const RequestRecord &record, std::string &line) {
  key(line, "score");
  line += std::to_string(record.score);
  key(line, "phrases");
  line += '[';
  for (const FoundPhrase &found : record.phrases) {
    if (line.back() != '[') line += ',';
    line += "{\"phrase\":\"" + jsonEscape(found.text) + "\",\"weight\":" + std::to_string(found.weight) + "}";
  }
  line += ']';
}

bool isOfCategory(int32_t blocked) {
  return blocked == NETSIFT_BLOCK_LIST || blocked == NETSIFT_BLOCK_RATING || blocked == NETSIFT_BLOCK_PHRASES;
}

void writeJsonVerdict(const RequestRecord &record, std::string &line) {
  const NetsiftRequestFigures &figures = record.figures;
  text(line, "verdict", outcomeOf(record).verdict);
  given(line, "block", blockNames[figures.blocked]);
  given(line, isOfCategory(figures.blocked) ? "category" : "detail", record.detail);
  if (!record.phrases.empty()) writeJsonPhrases(record, line);
  if (figures.cache != NETSIFT_CACHE_NONE) text(line, "cache", figures.cache == NETSIFT_CACHE_HIT ? "hit" : "miss");
  given(line, "scan", scanNames[figures.scan]);
  if (figures.scan != NETSIFT_SCANNED_NOT) {
    key(line, "engine_ms");
    line.append(std::to_string(figures.engineMicroseconds / 1000)) += '.';
    padded(line, figures.engineMicroseconds % 1000, 3);
  }
  given(line, "virus", record.signature);
  if (record.unscanned) text(line, "passed", "unscanned");
  if (record.unjudged && !record.unscanned) text(line, "passed", "unjudged");
  given(line, "reference", record.reference);
}

void writeJson(const RequestRecord &record, std::string &line) {
  line += '{';
  key(line, "time");
  line += '"';
  appendIsoTime(line, record.began);
  line += '"';
  text(line, "client", record.client);
  orNull(line, "user", record.user);
  orNull(line, "method", record.method);
  orNull(line, "url", record.url);
  number(line, "status", static_cast<uint64_t>(std::max(record.figures.status, 0)));
  number(line, "bytes", record.figures.bytes);
  number(line, "ms", milliseconds(record));
  orNull(line, "type", record.type);
  orNull(line, "upstream", record.upstream);
  writeJsonVerdict(record, line);
  line += "}\n";
}

using Write = void (*)(const RequestRecord &, std::string &);
constexpr Write formats[NETSIFT_LOG_FORMATS] = {writeSquid, writeCombined, writeJson};

}  // namespace

void formatRecord(int32_t format, const RequestRecord &record, std::string &line) { formats[format](record, line); }

}  // namespace netsift
