/* Messenger traffic, which passes untouched. Internal to connection/. */
#ifndef NETSIFT_CONNECTION_MESSENGER_H
#define NETSIFT_CONNECTION_MESSENGER_H

#include "connection/cycle.h"

namespace netsift {

/* Whether an entry of `tunnellist` occurs in the URL, and in what servers may make of it too. Entries lose their
   trailing blanks in place; the first one that is then empty ends the list, else the hundredth. */
bool isMessenger(const Request &request);

/* The relay without a time limit, with a transcript when `logtunnel` is on; the call ends with 1. */
Next relayMessenger(Connection &connection);

}  // namespace netsift

#endif
