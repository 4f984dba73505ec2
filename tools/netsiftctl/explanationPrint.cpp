#include <algorithm>
#include <cstdio>

#include "netsift.h"
#include "tools/netsiftctl/command.h"
#include "tools/netsiftctl/explanation.h"

namespace netsift::ctl {

namespace {

constexpr const char *plain = "\033[0m", *red = "\033[1;31m", *green = "\033[1;32m", *yellow = "\033[1;33m";

struct Paper {
  bool isColoured;
  std::string text;
  void add(std::string_view piece) { text.append(piece); }
  void addMarked(const char *colour, std::string_view piece) {
    if (isColoured) text.append(colour);
    text.append(piece);
    if (isColoured) text.append(plain);
  }
};

const char *colourOf(Verdict verdict) {
  return verdict == Verdict::allowed ? green : verdict == Verdict::blocked ? red : yellow;
}

std::string padded(std::string text, size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

std::string categoryTitle(int category) {
  const bool isNamed = categname1 != nullptr && category < numcategories1 && categname1[category] != nullptr;
  return isNamed ? categname1[category] : std::to_string(category + 1);
}

const char *vocabularies(int violated) {
  switch (violated) {
    case 0:
      return "none exceeds its limits";
    case 1:
      return "ICRA's limits are exceeded";
    case 2:
      return "RSACi's limits are exceeded";
    default:
      return "SafeSurf's limits are exceeded";
  }
}

/* What a check found, beside that it went on. */
std::string outcomeOf(const Explanation &explanation, const Check &check) {
  if (!check.goesOn) return explanation.verdict == Verdict::blocked ? "blocks" : "is the last";
  return check.note.empty() ? "passed" : check.note;
}

void addChecks(Paper &paper, const Explanation &explanation) {
  paper.add("Checks, in their order:\n");
  bool isMarked = false;
  for (const Check &check : explanation.served.record.checks) {
    const bool decides = !check.goesOn && !isMarked;
    isMarked |= decides;
    const std::string line = padded(check.step, 20) + outcomeOf(explanation, check);
    paper.add(decides ? "> " : "  ");
    if (decides)
      paper.addMarked(colourOf(explanation.verdict), line);
    else
      paper.add(line);
    paper.add("\n");
  }
}

void addMatches(Paper &paper, const Explanation &explanation) {
  if (explanation.served.record.questions.empty()) return;
  paper.add(explanation.matches.empty() ? "No list entry matches.\n" : "List entries that match:\n");
  for (const Match &match : explanation.matches) {
    const std::string line = shown(match.title) + ": " + match.kind + " " + shown(match.entry) + "  (" + match.file +
                             ":" + std::to_string(match.line) + ")";
    paper.add(match.isDecisive ? "> " : "  ");
    if (match.isDecisive)
      paper.addMarked(colourOf(explanation.verdict), line);
    else
      paper.add(line);
    paper.add("\n");
  }
}

void addPage(Paper &paper, const Explanation &explanation) {
  const Record &record = explanation.served.record;
  if (explanation.type.empty()) return;
  paper.add("Type: " + shown(explanation.type) + "\n");
  if (record.isRated) paper.add(std::string("Labels: ") + vocabularies(record.violated) + "\n");
  if (!record.phrases.empty()) paper.add("Phrases found:\n");
  for (const FoundPhrase &found : record.phrases) {
    paper.add("  " + shown(categoryTitle(found.category)) + ": \"" + shown(found.phrase) + "\" weighs " +
              std::to_string(found.weight) + ", " + std::to_string(found.count) + " times, first in \"" +
              shown(found.around) + "\"\n");
  }
  if (!record.scores.empty()) paper.add("Scores (" + std::to_string(allowedweight) + " blocks):\n");
  for (const Score &score : record.scores) {
    const std::string reading = score.reading == 0 ? "" : ", read in another charset";
    const bool blocks = score.score >= allowedweight;
    const std::string line = shown(categoryTitle(score.category)) + ": " + std::to_string(score.score) + reading;
    paper.add(blocks ? "> " : "  ");
    if (blocks)
      paper.addMarked(red, line);
    else
      paper.add(line);
    paper.add("\n");
  }
}

std::string member(const char *name, std::string_view text) {
  return std::string("\"") + name + "\": " + host::jsonText(text);
}

std::string member(const char *name, int number) { return std::string("\"") + name + "\": " + std::to_string(number); }

std::string flag(const char *name, bool value) {
  return std::string("\"") + name + "\": " + (value ? "true" : "false");
}

template <typename Record, typename Member>
std::string array(const char *name, const std::vector<Record> &records, Member asMembers) {
  std::string text = std::string("\"") + name + "\": [";
  for (const Record &record : records) text += (&record == records.data() ? "{" : ", {") + asMembers(record) + "}";
  return text + "]";
}

}  // namespace

void printExplanation(const Explanation &explanation, bool isColoured) {
  Paper paper{isColoured, ""};
  paper.add(shown(explanation.method + " " + explanation.url) + " by " + explanation.client + ": ");
  paper.addMarked(colourOf(explanation.verdict), verdictName(explanation.verdict));
  paper.add("\nThe user sees " + shown(whatIsSeen(explanation)) + "\n");
  addChecks(paper, explanation);
  addMatches(paper, explanation);
  addPage(paper, explanation);
  std::fputs(paper.text.c_str(), stdout);
}

void printExplanationJson(const Explanation &explanation) {
  const Record &record = explanation.served.record;
  std::string text = "{" + member("url", explanation.url) + ", " + member("method", explanation.method) + ", " +
                     member("client", explanation.client) + ", " + member("verdict", verdictName(explanation.verdict)) +
                     ", " + member("step", explanation.step) + ", " + member("sees", whatIsSeen(explanation)) + ", " +
                     member("reason", explanation.verdict == Verdict::allowed ? "" : explanation.served.reason) + ", ";
  text += array("checks", record.checks, [](const Check &check) {
    return member("step", check.step) + ", " + flag("goes_on", check.goesOn) + ", " + member("note", check.note);
  });
  text += ", " + array("matches", explanation.matches, [](const Match &match) {
            return member("list", match.list) + ", " + member("category", match.title) + ", " +
                   member("kind", match.kind) + ", " + member("entry", match.entry) + ", " +
                   member("file", match.file) + ", " + member("line", match.line) + ", " +
                   flag("decisive", match.isDecisive);
          });
  if (!explanation.type.empty()) {
    text += ", " + member("type", explanation.type) + ", " + member("threshold", allowedweight) + ", ";
    if (record.isRated) text += member("labels", vocabularies(record.violated)) + ", ";
    text += array("phrases", record.phrases, [](const FoundPhrase &found) {
      return member("category", categoryTitle(found.category)) + ", " + member("phrase", found.phrase) + ", " +
             member("weight", found.weight) + ", " + member("count", found.count) + ", " +
             member("around", found.around) + ", " + member("reading", found.reading);
    });
    text += ", " + array("scores", record.scores, [](const Score &score) {
              return member("category", categoryTitle(score.category)) + ", " + member("score", score.score) + ", " +
                     member("reading", score.reading);
            });
  }
  std::puts((text + "}").c_str());
}

}  // namespace netsift::ctl
