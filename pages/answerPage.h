/* The answers as the cycle sends them: with a status of their own, and none in the middle of a response. Internal to the
   library. */
#ifndef NETSIFT_PAGES_ANSWERPAGE_H
#define NETSIFT_PAGES_ANSWERPAGE_H

#include <cstdint>

namespace netsift {

/* As blockConnection and sendError, the error page under the given status; without StrictHttp the status is 200
   whatever is given. `late`: a response has begun, whose body these bytes would be taken for: nothing is sent. */
void sendBlock(int32_t sock, bool withPage, bool late);
void sendErrorPage(int32_t sock, int status, bool late);

}  // namespace netsift

#endif
