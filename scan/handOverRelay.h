/* Internal to the library. */
#ifndef NETSIFT_SCAN_HANDOVERRELAY_H
#define NETSIFT_SCAN_HANDOVERRELAY_H

namespace netsift {

/* Lets the host relay, where it wants to; else does it as `tunnel`. `url` is as it came. */
void handOverRelay(int client, int upstream, int idleSeconds, const char *url);

}  // namespace netsift

#endif
