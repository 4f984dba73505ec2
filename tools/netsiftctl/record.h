/* What a connection tells while it is served: the checks it passed, what it asked the lists, what it found in the page.
 */
#ifndef NETSIFT_TOOLS_RECORD_H
#define NETSIFT_TOOLS_RECORD_H

#include <cstdint>
#include <string>
#include <vector>

namespace netsift::ctl {

struct Check {
  std::string step, note;
  bool goesOn;
};

/* A look-up; of the blacklists the answer is the category's number. */
struct Question {
  std::string list, url, host;
  bool isAddress;
  int answer;
};

/* A phrase in one reading of the page, with what stands around the first of them. */
struct FoundPhrase {
  int reading, category;
  std::string phrase, around;
  int32_t weight;
  int count;
};

/* The highest that a category's score came to in one reading. */
struct Score {
  int reading, category;
  int32_t score;
};

struct Record {
  std::vector<Check> checks;
  std::vector<Question> questions;
  std::vector<FoundPhrase> phrases;
  std::vector<Score> scores;
  bool isRefused = false, isRated = false;
  int status = 0;   /* when refused: of an error page, 0 for a block page, -1 for a head alone */
  int violated = 0; /* the vocabulary of labels whose limits are exceeded */
};

/* Records from now on, in place of what was recorded; `connect` gives the sockets that stand for the upstream's. */
void beginRecord(int (*connect)());

/* What was recorded since. */
Record endRecord();

}  // namespace netsift::ctl

#endif
