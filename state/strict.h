/* Whether the additions of StrictHttp hold, and those that hold only beside it. Internal to the library. */
#ifndef NETSIFT_STATE_STRICT_H
#define NETSIFT_STATE_STRICT_H

#include "state/settings.h"

namespace netsift {

inline bool strictHttp() { return (StrictHttp & STRICT_HTTP) != 0; }
inline bool matchesWords() { return strictHttp() && ContentMatch == CONTENT_WORDS; }

}  // namespace netsift

#endif
