#include "scan/handOver.h"

int32_t (*netsift_handOver)(int32_t client, int32_t upstream, int32_t idleSeconds, const char *url);
