#include "host/phraseCheck.h"

#include <algorithm>
#include <charconv>

#include "state/strict.h"

namespace netsift::host {

namespace {

constexpr size_t longestPhrase = 126;
constexpr std::string_view whiteSpace = " \t\n\v\f\r";

struct Record {
  int line;
  std::string phrase;
  bool hasWeight;
  long long weight;
};

struct Cursor {
  std::string_view rest;
  int line = 1;
  std::string_view take(size_t count) {
    std::string_view taken = rest.substr(0, count);
    line += static_cast<int>(std::ranges::count(taken, '\n'));
    rest.remove_prefix(taken.size());
    return taken;
  }
};

/* As scanf's "%d\n" reads it: white space, an optional sign, digits, and all white space that follows. */
bool takeWeight(Cursor &cursor, long long *weight) {
  cursor.take(std::min(cursor.rest.find_first_not_of(whiteSpace), cursor.rest.size()));
  std::string_view digits = cursor.rest;
  bool plus = digits.starts_with('+');
  if (plus) digits.remove_prefix(1);
  auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), *weight);
  if (error == std::errc::invalid_argument || (plus && digits.starts_with('-'))) return false;
  cursor.take(static_cast<size_t>(end - cursor.rest.data()));
  cursor.take(std::min(cursor.rest.find_first_not_of(whiteSpace), cursor.rest.size()));
  return true;
}

/* A word in double quotes stands for itself between blanks. */
std::string comparedForm(std::string_view phrase) {
  std::string form(phrase.substr(0, longestPhrase));
  if (!form.empty() && form.front() == '"' && form.back() == '"') form.front() = form.back() = ' ';
  return form;
}

/* The order of the scan: bytes as signed characters. */
bool sortsBefore(std::string_view a, std::string_view b) {
  return std::ranges::lexicographical_compare(
      a, b, [](char x, char y) { return static_cast<signed char>(x) < static_cast<signed char>(y); });
}

/* Whether a byte can be one of a word, where words are matched. */
bool mayBeOfWord(char c) {
  return static_cast<signed char>(c) < 0 || (c >= '0' && c <= '9') || ((c | 32) >= 'a' && (c | 32) <= 'z');
}

}  // namespace

void checkPhrases(std::string_view text, const std::string &file, Problems &problems) {
  auto report = [&](int line, bool fatal, const std::string &message) {
    problems.push_back({fatal, file, line, "", message});
  };
  Cursor cursor{text};
  Record previous{0, "", false, 0};
  while (!cursor.rest.empty()) {
    int line = cursor.line;
    if (std::string_view opening = cursor.take(1); opening != "<")
      report(line, false, "a record must begin with \"<\"; the byte in its place is skipped");
    size_t length = cursor.rest.find('>');
    if (length == cursor.rest.npos) return report(line, true, "the record is not closed by \">\"");

    std::string_view phrase = cursor.take(length);
    cursor.take(1);
    if (phrase.empty()) report(line, false, "the phrase is empty; it counts nothing: take the record out");
    if (phrase.find_first_of("\r\n") != phrase.npos)
      report(line, false, "the phrase holds a line end, so that nothing matches it; is a \">\" missing?");
    const bool isCapital = std::ranges::any_of(phrase, [](char c) { return c >= 'A' && c <= 'Z'; });
    if (isCapital && !matchesWords())
      report(line, false, "the phrase has capital letters and is never found: pages are compared in lower case");
    if (phrase.size() > longestPhrase)
      report(line, false,
             "the phrase is " + std::to_string(phrase.size()) + " bytes long; only 126 are kept: shorten it");

    Record record{line, comparedForm(phrase), false, 0};
    record.hasWeight = takeWeight(cursor, &record.weight);
    if (!record.hasWeight) report(line, false, "the phrase has no weight, which counts as 0; give it one");
    if (record.hasWeight && record.weight == 0 && !cursor.rest.empty())
      report(line, false, "the weight is 0, so that the phrase counts nothing; give it another");
    if (!phrase.empty() && std::ranges::none_of(phrase, mayBeOfWord) && record.weight != 0 && matchesWords())
      report(line, false, "the phrase has neither letter nor digit and counts nothing: take it out");
    if (sortsBefore(record.phrase, previous.phrase) && !matchesWords())
      report(line, false,
             "out of order: it must come before \"" + previous.phrase +
                 "\", or phrases may be missed; sort by bytes, those above 127 first, a quote at both ends as a blank");
    previous = record;
  }
  if (previous.line == 0 && !text.empty())
    report(0, true, "holds no phrase, which the loader refuses; add one, or empty the file");
  if (previous.phrase.size() > 1 && previous.weight != 0 && !matchesWords())
    report(previous.line, false,
           "the last phrase of a file is never found; end the file with one that need not be, of weight 0");
}

}  // namespace netsift::host
