/* toml++ as the two files that touch TOML use it: header only, failures as results. Its assumptions about what it parses
   do not hold for every file ("[[ = 1" breaks one), and are undefined behaviour where they do not: they are nothing
   here, so that the error behind them is reported. */
#ifndef NETSIFT_HOST_TOML_H
#define NETSIFT_HOST_TOML_H

#include <cstdlib>

#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/impl/preprocessor.h>
#undef TOML_ASSERT
#undef TOML_ASSERT_ASSUME
#undef TOML_ASSUME
#undef TOML_UNREACHABLE
#define TOML_ASSERT(expression) static_assert(true)
#define TOML_ASSERT_ASSUME(expression) static_assert(true)
#define TOML_ASSUME(expression) static_assert(true)
#define TOML_UNREACHABLE std::abort()
#include <toml++/toml.h>

#endif
