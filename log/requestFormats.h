/* A request's record as a line of the log. Internal to log/. */
#ifndef NETSIFT_LOG_REQUESTFORMATS_H
#define NETSIFT_LOG_REQUESTFORMATS_H

#include <string>

#include "log/requestRecord.h"

namespace netsift {

/* Appends the line with its end. Whatever peers sent, it is one line, and one object in JSON. */
void formatRecord(int32_t format, const RequestRecord &record, std::string &line);

}  // namespace netsift

#endif
