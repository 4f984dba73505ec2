/* Who owns the text in errorcode when connections are served one after another. Internal to the library. */
#ifndef NETSIFT_LOG_LOGSTAMP_H
#define NETSIFT_LOG_LOGSTAMP_H

namespace netsift {

/* errorcode stays valid whatever is logged from now on, until the next call: later lines put copies of their own in its
   place. */
void keepStamp();

}  // namespace netsift

#endif
