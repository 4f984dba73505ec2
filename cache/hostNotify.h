/* Word to the host process, and the list of texts it keeps. */
#ifndef NETSIFT_CACHE_HOSTNOTIFY_H
#define NETSIFT_CACHE_HOSTNOTIFY_H

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

NETSIFT_API void sendURLToParent(int category, const char *url);
NETSIFT_API void addtoURL_CACHESIZE(const char *text);
NETSIFT_API void deletefromURL_CACHESIZE(void);
NETSIFT_API int append(TextNode **head, const char *text);
NETSIFT_API void display(const TextNode *head);
NETSIFT_API void delete_all_nodes(TextNode *head);
NETSIFT_API int compstrall(const char *text, const TextNode *head);

NETSIFT_END

#endif
