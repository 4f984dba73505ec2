/* Where the system's fixed paths lie: every one of them goes through here, behind `installroot`. Internal to the
   library. */
#ifndef NETSIFT_UTIL_INSTALLPATH_H
#define NETSIFT_UTIL_INSTALLPATH_H

#include <initializer_list>

#include "util/installRoot.h"
#include "util/ownedText.h"

namespace netsift {

constexpr const char *configFolder = "/opt/Velmora/etc/netsift/";
constexpr const char *logFolder = "/var/Velmora/var/log/";
constexpr const char *verdictFile = "/opt/Velmora/var/nscache.db";

/* `installroot` followed by the pieces, joined; none when memory is short. A null piece counts as empty. */
Text installPath(std::initializer_list<const char *> pieces);

}  // namespace netsift

#endif
