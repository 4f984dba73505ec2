/* Lines into the request log's file. Internal to log/. */
#ifndef NETSIFT_LOG_REQUESTWRITER_H
#define NETSIFT_LOG_REQUESTWRITER_H

#include "log/requestRecord.h"

namespace netsift {

/* Appends the record's line in one write, so that the lines of many processes do not mix. One that cannot be written
   whole is lost, and none of it is left in the file. */
void writeRecord(const RequestRecord &record);

}  // namespace netsift

#endif
