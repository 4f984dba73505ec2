/* Verdicts that this process has looked up before, as long as the verdict cache's file is what it was then. Internal to
   the library. */
#ifndef NETSIFT_CACHE_RECALLEDVERDICTS_H
#define NETSIFT_CACHE_RECALLEDVERDICTS_H

#include <cstdint>
#include <string>

namespace netsift {

/* if_url_scanned_check_ok's answer, for the price of a stat where it is known. */
int32_t recallVerdict(const std::string &url, const char *date);

}  // namespace netsift

#endif
