/* A resolver for hosts that end in .test, which the executable that includes this has in the place of the system's. */
#ifndef NETSIFT_TESTS_RESOLVER_H
#define NETSIFT_TESTS_RESOLVER_H

#include <dlfcn.h>
#include <netdb.h>

#include <map>
#include <string>
#include <vector>

namespace netsift::test {

inline std::map<std::string, std::vector<const char *>> testHosts; /* their addresses, in the order of the answer */
inline int resolverCalls;                                          /* for them */

}  // namespace netsift::test

extern "C" int getaddrinfo(const char *name, const char *service, const addrinfo *wanted, addrinfo **first) {
  using Ask = int(const char *, const char *, const addrinfo *, addrinfo **);
  static Ask *const real = reinterpret_cast<Ask *>(dlsym(RTLD_NEXT, "getaddrinfo"));
  if (name == nullptr || !std::string(name).ends_with(".test")) return real(name, service, wanted, first);
  netsift::test::resolverCalls++;
  int result = EAI_NONAME;
  *first = nullptr;
  for (const char *address : netsift::test::testHosts[name]) { /* freeaddrinfo frees each for itself */
    addrinfo numeric{};
    numeric.ai_socktype = wanted->ai_socktype;
    numeric.ai_flags = AI_NUMERICHOST;
    result = real(address, service, &numeric, first);
    if (result != 0) return result;
    first = &(*first)->ai_next;
  }
  return result;
}

#endif
