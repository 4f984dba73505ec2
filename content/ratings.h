/* PICS rating labels against the configured limits. */
#ifndef NETSIFT_CONTENT_RATINGS_H
#define NETSIFT_CONTENT_RATINGS_H

#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API int checkPICSRating(char *text);
NETSIFT_API int checkICRARating(char *label);
NETSIFT_API int checkRSACRating(char *label);
NETSIFT_API int checkSafeSurfRating(char *label);
NETSIFT_API char *findRating(char *label);
NETSIFT_API int isRatingAllowed(const char *ratings, const char *key, int limit);

NETSIFT_END

#endif
