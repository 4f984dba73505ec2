#include "tools/netsiftctl/explanation.h"

#include <algorithm>
#include <cstring>

#include "netsift.h"

namespace netsift::ctl {

namespace {

constexpr int levelsServed = 2; /* of the access rules; clients above it are refused */

const char *kindOf(const ListEntry &entry) {
  if (entry.isDomain) return "domain";
  return entry.text.find('*') == entry.text.npos ? "url" : "pattern";
}

/* In the order in which a look-up tries them. */
int rankOf(const Match &match) {
  constexpr std::string_view order[] = {"url", "pattern", "domain"};
  return static_cast<int>(std::ranges::find(order, match.kind) - std::begin(order));
}

/* The category's number where the base name is one of a category of URLs, else 0. */
int categoryOf(const std::string &list) {
  for (int i = 0; i < numcategories; i++) {
    if (list == categfiles[i]) return i + 1;
  }
  return 0;
}

bool isSameQuestion(const Question &a, const Question &b) {
  return a.url == b.url && a.host == b.host && a.isAddress == b.isAddress;
}

/* Each form of the request that lists were asked for, once. */
std::vector<Question> formsAsked(const Record &record) {
  std::vector<Question> forms;
  for (const Question &question : record.questions) {
    const bool isNew = std::ranges::none_of(forms, [&](const Question &one) { return isSameQuestion(one, question); });
    if (isNew) forms.push_back(question);
  }
  return forms;
}

/* The look-up that decided, and the base name of its list; null when none did. */
const Question *decidingQuestion(const Explanation &explanation, std::string &list) {
  const std::vector<Question> &questions = explanation.served.record.questions;
  list = explanation.step == "ad server" ? "adserver" : explanation.step == "blacklists" ? "blacklists" : "whitelist";
  const bool isExempt = list == "whitelist" && std::ranges::all_of(questions, [](const Question &one) {
                          return one.list != "whitelist" || one.answer != 0;
                        });
  if (list == "whitelist" && (!isExempt || explanation.verdict != Verdict::allowed)) return nullptr;
  for (const Question &question : questions) {
    if (question.list != list || question.answer == 0) continue;
    if (list == "blacklists") list = question.answer <= numcategories ? categfiles[question.answer - 1] : "";
    return &question;
  }
  return nullptr;
}

void addMatches(Explanation &explanation, const ListEntries &list, const std::vector<Question> &forms,
                const Question *deciding) {
  const int category = categoryOf(list.name);
  const std::string title = category != 0 ? categname[category - 1] : list.name;
  const size_t first = explanation.matches.size();
  Match *decisive = nullptr;
  std::vector<Match> found;
  for (const ListEntry &entry : list.entries) {
    const auto meets = [&](const Question &form) { return isMet(entry, form.url, form.host, form.isAddress); };
    if (std::ranges::none_of(forms, meets)) continue;
    const bool mayDecide = deciding != nullptr && meets(*deciding);
    found.push_back({list.name, title, kindOf(entry), entry.text, list.files[static_cast<size_t>(entry.file)],
                     entry.line, mayDecide});
  }
  std::ranges::stable_sort(found, {}, rankOf);
  explanation.matches.insert(explanation.matches.end(), found.begin(), found.end());
  for (size_t i = first; i < explanation.matches.size(); i++) { /* of those that could, the one that is met first */
    Match &match = explanation.matches[i];
    if (match.isDecisive && decisive == nullptr)
      decisive = &match;
    else
      match.isDecisive = false;
  }
}

}  // namespace

const char *verdictName(Verdict verdict) {
  switch (verdict) {
    case Verdict::allowed:
      return "allowed";
    case Verdict::blocked:
      return "blocked";
    default:
      return "failed";
  }
}

void conclude(Explanation &explanation, const std::vector<ListEntries> &lists, int accessLevel) {
  const Record &record = explanation.served.record;
  const auto left = std::ranges::find(record.checks, false, &Check::goesOn);
  if (left != record.checks.end()) explanation.step = left->step;
  if (accessLevel > levelsServed) {
    explanation.verdict = Verdict::blocked;
    explanation.step = "access";
  } else if (record.isRefused) {
    explanation.verdict = record.status > 0 ? Verdict::failed : Verdict::blocked;
  } else {
    explanation.verdict = explanation.served.isPassed ? Verdict::allowed : Verdict::failed;
  }
  std::string decidingList;
  const Question *deciding = decidingQuestion(explanation, decidingList);
  const std::vector<Question> forms = formsAsked(record);
  for (const ListEntries &list : lists) {
    addMatches(explanation, list, forms, list.name == decidingList ? deciding : nullptr);
  }
}

std::string whatIsSeen(const Explanation &explanation) {
  const Record &record = explanation.served.record;
  if (explanation.verdict == Verdict::allowed) {
    const bool isTunnel = explanation.method == "CONNECT";
    return isTunnel ? "the site, through a tunnel that is not read" : "the site's answer";
  }
  if (!record.isRefused && explanation.step != "access") return "the connection is closed without an answer";
  const std::string &got = explanation.served.received;
  if (got.starts_with("HTTP/1.1 200") && explanation.method == "CONNECT") return "the tunnel is closed";
  const std::string line = got.substr(0, got.find('\r'));
  const size_t space = line.find(' ');
  const std::string status = space == line.npos ? "" : " (status " + line.substr(space + 1, 3) + ")";
  if (record.status < 0) return "nothing: an empty answer" + status;
  const bool isError = record.status > 0 || explanation.step == "access";
  return std::string(isError ? "the error page" : "the block page") + status + ": " + explanation.served.reason;
}

}  // namespace netsift::ctl
