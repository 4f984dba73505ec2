/* Where the system's fixed paths lie: every one of them goes through here, behind `installroot`. */
#ifndef NETSIFT_UTIL_INSTALLPATH_H
#define NETSIFT_UTIL_INSTALLPATH_H

#include "util/api.h"

NETSIFT_BEGIN

/* Put before every fixed path ("/opt/Velmora/...", "/var/Velmora/..."); null or empty at load and for an installed
   system. Owned by the host. A path handed in as an argument is used as it stands. */
NETSIFT_API extern char *installroot;

NETSIFT_END

#ifdef __cplusplus
#include <initializer_list>

#include "util/ownedText.h"

namespace netsift {

constexpr const char *configFolder = "/opt/Velmora/etc/netsift/";
constexpr const char *logFolder = "/var/Velmora/var/log/";

/* `installroot` followed by the pieces, joined; none when memory is short. A null piece counts as empty. */
Text installPath(std::initializer_list<const char *> pieces);

}  // namespace netsift
#endif

#endif
