/* The configuration file, read into the library's variables and hostConfig. */
#ifndef NETSIFT_HOST_CONFIGREAD_H
#define NETSIFT_HOST_CONFIGREAD_H

#include <string>

#include "host/problems.h"

namespace netsift::host {

/* Reads the file and stores every setting, given or default. Each unknown key, wrong type and value out of range is
   added to the problems, in the order of the file's lines, and its variable gets the default, so that the rest can be
   checked all the same. A file without any setting is a problem too. Returns whether anything was stored: false when
   the file cannot be read or is no TOML. What an earlier reading allocated is released. */
bool readConfiguration(const std::string &path, Problems &problems);

}  // namespace netsift::host

#endif
