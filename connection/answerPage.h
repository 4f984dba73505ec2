/* What StrictHttp adds to the answers: status codes that tell the truth, and none in the middle of a response. Internal
   to connection/. */
#ifndef NETSIFT_CONNECTION_ANSWERPAGE_H
#define NETSIFT_CONNECTION_ANSWERPAGE_H

#include <cstdint>

namespace netsift {

/* The error page under the given status; without StrictHttp the status is 200 whatever is given. */
void sendErrorPage(int32_t sock, int status);

/* Set while a response's head, sent under StrictHttp, awaits the rest of its body: an answer then sends nothing, since
   its bytes would be taken for that body's. */
extern bool responseBegun;

}  // namespace netsift

#endif
