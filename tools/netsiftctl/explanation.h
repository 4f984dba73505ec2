/* Why a request would be allowed or blocked. */
#ifndef NETSIFT_TOOLS_EXPLANATION_H
#define NETSIFT_TOOLS_EXPLANATION_H

#include <string>
#include <vector>

#include "tools/netsiftctl/listEntries.h"
#include "tools/netsiftctl/madeUpPeers.h"

namespace netsift::ctl {

struct Match {
  std::string list, title; /* base name; the category's name for people, or the list's */
  const char *kind;        /* "url", "pattern" or "domain" */
  std::string entry, file;
  int line;
  bool isDecisive;
};

/* failed: the request cannot be answered, whatever the policy says of it. */
enum class Verdict { allowed, blocked, failed };

struct Explanation {
  std::string url, client, method;
  Verdict verdict;
  std::string step; /* that decided; "" when nothing stood in the way */
  std::string type; /* of the body, "" without one */
  Served served;
  std::vector<Match> matches;
};

const char *verdictName(Verdict verdict);

/* Fills in the verdict, the step and the matches from what was served; `accessLevel` is the client's. */
void conclude(Explanation &explanation, const std::vector<ListEntries> &lists, int accessLevel);

/* What the user would see, in words. */
std::string whatIsSeen(const Explanation &explanation);

/* On standard output: for people, in colours or not, or as one line of JSON. */
void printExplanation(const Explanation &explanation, bool isColoured);
void printExplanationJson(const Explanation &explanation);

}  // namespace netsift::ctl

#endif
