/* The verdict on a chunk of a page, for who answers in a way of their own. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_TEXTVERDICT_H
#define NETSIFT_CONNECTION_TEXTVERDICT_H

#include <cstdint>

namespace netsift {

/* All that checkAllRight does, but for the page: whether the chunk is to be blocked, with `reason`, records, result
   line and the stored verdict as it leaves them. */
bool isTextBlocked(char *buffer, int32_t length, bool first);

}  // namespace netsift

#endif
