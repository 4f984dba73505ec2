/* toml++ as the two files that touch TOML use it: header only, failures as results. */
#ifndef NETSIFT_HOST_TOML_H
#define NETSIFT_HOST_TOML_H

#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

#endif
