/* The lists in the configuration folder, looked at before the library loads them: it only says that a load failed. */
#ifndef NETSIFT_HOST_LISTCHECK_H
#define NETSIFT_HOST_LISTCHECK_H

#include "host/problems.h"

namespace netsift::host {

/* Every list that the configuration just read has loaded: "whitelist", "adserver", "popup" and the categories of URLs;
   the phrase file of each phrase category; the lists of what is not scanned, where they are in use. Fatal: what the
   loader would fail on, or load less of than is there, and a phrase file that is missing. Warned of: entries that can
   never match, phrases as in checkPhrases, and files from which nothing would be judged. Nothing is written. */
void checkLists(Problems &problems);

}  // namespace netsift::host

#endif
