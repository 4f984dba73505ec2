/* Values of the configuration, checked and put where they belong. Included by the TOML reader only. */
#ifndef NETSIFT_HOST_STORESETTING_H
#define NETSIFT_HOST_STORESETTING_H

#include "host/problems.h"
#include "host/settingsTable.h"
#include "host/toml.h"

namespace netsift::host {

/* Stores one setting's value, or adds what is wrong with it to the problems, with the file and the value's line. */
void storeSetting(const Setting &setting, const toml::node &value, const std::string &file, Problems &problems);

/* Releases what the settings stored so far occupy, but for URL_CACHE: their variables then dangle. */
void releaseSettings();

}  // namespace netsift::host

#endif
