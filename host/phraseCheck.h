/* What a phrase file says that its author cannot have meant. */
#ifndef NETSIFT_HOST_PHRASECHECK_H
#define NETSIFT_HOST_PHRASECHECK_H

#include <string>
#include <string_view>

#include "host/problems.h"

namespace netsift::host {

/* Reads a phrase file's text as the loader does, "<phrase>weight" records one after the other, and warns with the line
   of the record of what is out of order, in capitals, longer than 126 bytes, empty, broken over lines, without a weight
   or with the weight 0, of text between records, and of the last phrase, which is never found when it is longer than a
   byte; while words are matched, of phrases without any, and neither of order nor of capitals nor of the last phrase,
   which do not matter then. Ending a file with a phrase of weight 0 shows that the author knows: it is not warned of. A
   record that is not closed is fatal, and a file without a record: the loader refuses them. */
void checkPhrases(std::string_view text, const std::string &file, Problems &problems);

}  // namespace netsift::host

#endif
