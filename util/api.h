/* Linkage and visibility of what libnetsift.so exports: C names, default visibility; everything else is hidden. */
#ifndef NETSIFT_UTIL_API_H
#define NETSIFT_UTIL_API_H

#define NETSIFT_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define NETSIFT_BEGIN extern "C" {
#define NETSIFT_END }
#else
#define NETSIFT_BEGIN
#define NETSIFT_END
#endif

#endif
