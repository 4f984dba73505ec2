/* Word to the host process, and the list of texts it keeps.

   A message is a connection of its own to the host's socket, "/opt/Velmora/var/run/netsift.sock", which the sender
   closes after writing; nothing is read back. A host that does not listen costs one level-1 trace, a failed write is
   traced and the rest of the message still tried; nothing is retried or reported. A host that has gone is a failed
   write, never a signal. Writes that take only part are continued. A null text is sent as an empty one. The socket is
   closed on every road, but for one: where the host does not listen, it stays open while `StrictHttp` is 0. */
#ifndef NETSIFT_CACHE_HOSTNOTIFY_H
#define NETSIFT_CACHE_HOSTNOTIFY_H

#include "state/records.h"
#include "util/api.h"

NETSIFT_BEGIN

/* Reports a condemned URL: "URL:", the zero-based category as "%d ", the URL with its zero byte. */
NETSIFT_API void sendURLToParent(int category, const char *url);

/* For the host's own list: "ADD:" and the text with its zero byte; "DEL:" and twelve zero bytes. */
NETSIFT_API void addtoURL_CACHESIZE(const char *text);
NETSIFT_API void deletefromURL_CACHESIZE(void);

/* Adds a copy of the text at the list's tail: 1, or 0 when an argument is null or memory is short, the list then being
   as it was. delete_all_nodes releases it. */
NETSIFT_API int append(TextNode **head, const char *text);

/* Prints every text in list order, a line each, to standard output. */
NETSIFT_API void display(const TextNode *head);

/* Frees every node and its text; the caller's head is not touched. */
NETSIFT_API void delete_all_nodes(TextNode *head);

/* 1 when a node's text is exactly this one, else 0. */
NETSIFT_API int compstrall(const char *text, const TextNode *head);

NETSIFT_END

#endif
