/* What is wrong with a configuration and the files it names, collected so that all of it can be told at once. */
#ifndef NETSIFT_HOST_PROBLEMS_H
#define NETSIFT_HOST_PROBLEMS_H

#include <string>
#include <string_view>
#include <vector>

namespace netsift::host {

struct Problem {
  bool fatal = true; /* false: a warning, with which the daemon starts all the same */
  std::string file;
  int line = 0;    /* 0: the file as a whole */
  std::string key; /* "" when it is no key's */
  std::string message;
};

using Problems = std::vector<Problem>;

bool anyFatal(const Problems &problems);

/* "FILE:LINE: KEY: MESSAGE", or with "warning: " after the place. One line, without a line end. */
std::string problemLine(const Problem &problem);

/* {"ok": ..., "problems": [{"severity", "file", "line", "key", "message"}, ...]} and a line end; "line" and "key" are
   left out where there is none. Bytes that are no UTF-8 are shown as U+FFFD. */
std::string problemsJson(const Problems &problems);

/* A text in double quotes, as JSON has it; what is no UTF-8 becomes U+FFFD. */
std::string jsonText(std::string_view text);

/* What --check ends with on standard output: whether a start would do, and with how many warnings. */
std::string checkSummary(const Problems &problems);

/* Every problem on standard error, each after "netsiftd: ". */
void printProblems(const Problems &problems);

/* A message of the daemon on standard error, after "netsiftd: ". */
void say(const std::string &message);

}  // namespace netsift::host

#endif
