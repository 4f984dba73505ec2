/* The configuration as people read it, made from the table of settings. */
#ifndef NETSIFT_HOST_SETTINGSPRINT_H
#define NETSIFT_HOST_SETTINGSPRINT_H

#include <string>

namespace netsift::host {

/* A complete sample file: every key with its meaning, type, unit and limits, set to its default. It is valid. */
std::string sampleConfiguration();

/* The same as a reference page in Markdown. */
std::string configurationReference();

/* Every key at its default and nothing else: what is read before the file. */
std::string defaultConfiguration();

}  // namespace netsift::host

#endif
