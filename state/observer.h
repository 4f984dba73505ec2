/* Who is told how a connection is decided, step by step, for tools that explain a decision; a daemon has none. What is
   told changes nothing of what is decided, but that phrases are weighed list by list, which gives the same scores. */
#ifndef NETSIFT_STATE_OBSERVER_H
#define NETSIFT_STATE_OBSERVER_H

#include <stdint.h>

#include "util/api.h"

NETSIFT_BEGIN

/* Texts are valid during the call. */
typedef struct Observer {
  void (*stepped)(const char *step, int goesOn);
  /* A look-up in "adserver", "whitelist", "popup" or "blacklists"; the answer is the list's own. */
  void (*asked)(const char *list, const char *url, const char *host, int isIP, int answer);
  /* A page is answered: a `status` for an error page, 0 for a block page, -1 for a head alone. */
  void (*refused)(int status);
  void (*rated)(int violated); /* what checkPICSRating found */

  /* The phrases of the page's text, read in one way (0) or in another, as they are weighed. */
  void (*reading)(int number);
  void (*counted)(int category, const char *phrase, int32_t weight, const char *text, int end); /* category from 0 */
  void (*scored)(int category, int32_t score);
  void (*marked)(void);  /* what is told from here on ... */
  void (*dropped)(void); /* ... was only tried, and does not count */

  int (*connected)(void); /* the socket that stands for the upstream's, which is not dialled */
} Observer;

/* Null at load. None of its functions may be null. */
NETSIFT_API extern const Observer *netsift_observer;

NETSIFT_END

#endif
