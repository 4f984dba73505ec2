/* The second half of a cycle: read the response's head and choose the road on which it reaches the client. */
#ifndef NETSIFT_CONNECTION_RESPONSESIDE_H
#define NETSIFT_CONNECTION_RESPONSESIDE_H

#include <span>

#include "connection/cycle.h"

namespace netsift {

/* The steps in their order; the last one is the body. */
std::span<const Step> responseSteps();

/* Steps and questions that the strict road shares. */
Next readDateAndType(Connection &connection, Cycle &cycle);
Next applySkipRules(Connection &connection, Cycle &cycle);
Next checkContentType(Connection &connection, Cycle &cycle);
bool mayConsultCache(const Cycle &cycle);
Next blockKnown(Connection &connection, Cycle &cycle, int verdict, const char *what);
void traceMiss(const Cycle &cycle);

}  // namespace netsift

#endif
