/* PICS rating labels against the configured limits.

   Labels are those of the W3C recommendation "PICS Label Distribution Label Syntax and Communication Protocols", in
   <meta> tags of a page's head; the keys are those of the ICRA, RSACi and SafeSurf vocabularies. Tags and labels are
   looked for in lower case: one in capitals is not found. */
#ifndef NETSIFT_CONTENT_RATINGS_H
#define NETSIFT_CONTENT_RATINGS_H

#include "util/api.h"

NETSIFT_BEGIN

/* The first vocabulary whose limits a label in the page's head exceeds, of those switched on: 1 ICRA, 2 RSACi, 4
   SafeSurf; 0: the page may pass. The text is written to meanwhile, and is as before on return. */
NETSIFT_API int checkPICSRating(char *text);

/* 1: some key of the label's first rating list exceeds its limit, 0: none does, or there is no list. Keys are judged in
   the order of their limits. A list without ")" runs to the end of the text. The text is written to meanwhile. */
NETSIFT_API int checkICRARating(char *label);
NETSIFT_API int checkRSACRating(char *label);
NETSIFT_API int checkSafeSurfRating(char *label);

/* The "(" of the first " r (", else of the first " ratings (", else null. */
NETSIFT_API char *findRating(char *label);

/* 1: allowed, 0: the number after the first occurrence of `key` (its trailing space included), wherever that stands in
   the list, exceeds `limit`. Allowed too when the key or the number is missing. A number above 10 is taken as 0. */
NETSIFT_API int isRatingAllowed(const char *ratings, const char *key, int limit);

NETSIFT_END

#endif
