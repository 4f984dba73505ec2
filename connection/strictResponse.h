/* The second half of a cycle under StrictHttp: every response, whatever its status, travels one road, framed and whole.
 */
#ifndef NETSIFT_CONNECTION_STRICTRESPONSE_H
#define NETSIFT_CONNECTION_STRICTRESPONSE_H

#include <span>

#include "connection/cycle.h"

namespace netsift {

std::span<const Step> strictResponseSteps();

}  // namespace netsift

#endif
