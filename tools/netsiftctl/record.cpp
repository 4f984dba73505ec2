#include "tools/netsiftctl/record.h"

#include <algorithm>
#include <string_view>

#include "netsift.h"

namespace netsift::ctl {

namespace {

constexpr int aroundBytes = 32; /* before and behind a phrase */

/* A phrase counted or, without text, a score. */
struct Event {
  int reading, category;
  int32_t number;
  std::string phrase, around;
};

Record record;
std::vector<Event> events;
std::vector<size_t> marks; /* the innermost trial last; one that decides is never dropped */
int readingNow;
uint8_t addressesChecked, categoriesChecked;
Observer observer;

void noteStep(const char *step, int goesOn) {
  Check check{step, "", goesOn != 0};
  if (check.step == "address patterns") {
    if (blockip == 0 && addressesChecked != 0) check.note = "exempt: neither addresses nor categories are checked";
    if (blockip != 0 && urlcheck == 0 && categoriesChecked != 0) check.note = "named among the refused addresses";
  }
  addressesChecked = blockip;
  categoriesChecked = urlcheck;
  record.checks.push_back(std::move(check));
}

void noteQuestion(const char *list, const char *url, const char *host, int isIP, int answer) {
  record.questions.push_back({list, url, host, isIP != 0, answer});
}

void noteRefusal(int status) {
  if (!record.isRefused) record.status = status;
  record.isRefused = true;
}

void noteRating(int violated) {
  record.isRated = true;
  record.violated |= violated;
}

void notePhrase(int category, const char *phrase, int32_t weight, const char *text, int end) {
  const std::string_view whole(text + 1, static_cast<size_t>(std::max(end - 1, 0)));
  const size_t length = std::string_view(phrase).size();
  const size_t start = whole.size() - std::min(whole.size(), length + aroundBytes);
  std::string around(whole.substr(start));
  for (int i = end; i < end + aroundBytes && text[i] != '\0'; i++) around += text[i];
  events.push_back({readingNow, category, weight, phrase, around});
}

void noteScore(int category, int32_t score) { events.push_back({readingNow, category, score, "", ""}); }

void dropTrial() {
  if (marks.empty()) return;
  events.resize(marks.back());
  marks.pop_back();
}

void addPhrase(const Event &event) {
  for (FoundPhrase &found : record.phrases) {
    const bool isSame = found.reading == event.reading && found.category == event.category;
    if (isSame && found.phrase == event.phrase && found.weight == event.number) {
      found.count++;
      return;
    }
  }
  record.phrases.push_back({event.reading, event.category, event.phrase, event.around, event.number, 1});
}

void addScore(const Event &event) {
  for (Score &score : record.scores) {
    if (score.reading != event.reading || score.category != event.category) continue;
    score.score = std::max(score.score, event.number);
    return;
  }
  record.scores.push_back({event.reading, event.category, event.number});
}

}  // namespace

void beginRecord(int (*connect)()) {
  record = {};
  events.clear();
  marks.clear();
  readingNow = 0;
  addressesChecked = blockip;
  categoriesChecked = urlcheck;
  observer = {noteStep,
              noteQuestion,
              noteRefusal,
              noteRating,
              [](int number) { readingNow = number; },
              notePhrase,
              noteScore,
              [] { marks.push_back(events.size()); },
              dropTrial,
              connect};
  netsift_observer = &observer;
}

Record endRecord() {
  netsift_observer = nullptr;
  for (const Event &event : events) event.phrase.empty() ? addScore(event) : addPhrase(event);
  return std::move(record);
}

}  // namespace netsift::ctl
