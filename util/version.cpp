#include "util/version.h"

const char *netsift_version(void) { return NETSIFT_VERSION; }
