#include "connection/connectionReset.h"

#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "connection/strict/keptUpstreams.h"
#include "content/contentFilter.h"
#include "content/phraseTable.h"
#include "http/httpHeader.h"
#include "log/logStamp.h"
#include "state/connection.h"
#include "state/settings.h"

namespace netsift {
namespace {

struct Variable {
  void *address;
  size_t size;
};

template <typename Type>
constexpr Variable variable(Type &named) {
  return {&named, sizeof named};
}

/* By address and not as a section of the linker's: an exported variable that a host names may live in the host's own
   memory. */
const Variable connectionVariables[] = {variable(clientsock),   variable(proxysock),   variable(childpid),
                                        variable(clientaddr),   variable(proxyaddr),   variable(clientip),
                                        variable(reqheader),    variable(respheader),  variable(url),
                                        variable(hostname),     variable(reshostname), variable(resurl),
                                        variable(dateAndTime1), variable(request),     variable(isipaddr),
                                        variable(reqhost),      variable(remote_host), variable(reason),
                                        variable(errorcode),    variable(virfilename), variable(virwhite_reason),
                                        variable(virfile),      variable(totalweight), variable(contentinitialised),
                                        variable(queue_count)};
const Variable rewrittenSettings[] = {variable(blockip), variable(urlcheck), variable(proxyport),
                                      variable(DisableNetsiftService), variable(tunnellist)};

/* An entry of a domain list that begins or ends with white space: a look-up trims it in place, and answers otherwise
   the next time. */
struct Untrimmed {
  char *entry;
  std::string bytes; /* its terminator included */
};

struct Image {
  std::string connection, settings; /* one variable after the other */
  std::vector<int32_t> weights;     /* categweight */
  std::vector<Untrimmed> entries;
};

std::unique_ptr<Image> kept;

std::string takeImage(std::span<const Variable> variables) {
  std::string image;
  for (const Variable &each : variables) image.append(static_cast<const char *>(each.address), each.size);
  return image;
}

void putBack(std::span<const Variable> variables, const std::string &image) {
  const char *from = image.data();
  for (const Variable &each : variables) {
    std::memcpy(each.address, from, each.size);
    from += each.size;
  }
}

bool isWhite(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

void takeUntrimmed(const UrlList &list, std::vector<Untrimmed> &entries) {
  if (list.domains == nullptr) return;
  for (char **entry = list.domains; *entry != nullptr; entry++) {
    const size_t length = std::strlen(*entry);
    if (length == 0 || (!isWhite(**entry) && !isWhite((*entry)[length - 1]))) continue;
    entries.push_back({*entry, std::string(*entry, length + 1)});
  }
}

std::unique_ptr<Image> takeWholeImage() {
  auto image = std::make_unique<Image>();
  image->connection = takeImage(connectionVariables);
  image->settings = takeImage(rewrittenSettings);
  if (categweight != nullptr) image->weights.assign(categweight, categweight + phraseSlots());
  for (const UrlList *list : {&whitelist, &adlist, &popuplist}) takeUntrimmed(*list, image->entries);
  for (int i = 0; categories != nullptr && i < numcategories; i++) takeUntrimmed(categories[i], image->entries);
  return image;
}

/* What the connection's variables own, so that they can be overwritten. */
void releaseConnection() {
  for (char **text : {&url, &hostname, &reshostname, &resurl}) std::free(std::exchange(*text, nullptr));
  destroyHeader(&reqheader);
  destroyHeader(&respheader);
  if (virfile != nullptr) fclose(virfile);
  virfile = nullptr;
}

/* Pages that were not written stay unmapped. */
void clearBody() {
  constexpr size_t pageSize = 4096;
  static const char zeros[pageSize] = {};
  static_assert(sizeof httpbody % pageSize == 0);
  for (size_t from = 0; from < sizeof httpbody; from += pageSize) {
    if (std::memcmp(httpbody + from, zeros, pageSize) != 0) std::memset(httpbody + from, 0, pageSize);
  }
}

void closeBetween(int first, int last) {
  if (first > last || close_range(static_cast<unsigned>(first), static_cast<unsigned>(last), 0) == 0) return;
  for (int fd = first, end = static_cast<int>(sysconf(_SC_OPEN_MAX)); fd <= last && fd < end; fd++) close(fd);
}

void closeFrom(int first) {
  for (const int spared : keptDescriptors()) {
    closeBetween(first, spared - 1);
    first = std::max(first, spared + 1);
  }
  closeBetween(first, INT_MAX);
}

}  // namespace
}  // namespace netsift

using namespace netsift;

void netsift_keepState(void) {
  releaseConnection();
  keepStamp();
  kept = takeWholeImage();
}

void netsift_resetState(int32_t firstDescriptor) {
  const bool prepared = contentinitialised == 1;
  releaseConnection();
  if (prepared) relContentFilter();
  clearBody();
  if (firstDescriptor >= 0) closeFrom(firstDescriptor);
  __fpurge(stdout);
  clearerr(stdout);
  if (kept) {
    putBack(connectionVariables, kept->connection);
    putBack(rewrittenSettings, kept->settings);
    if (categweight != nullptr) std::copy(kept->weights.begin(), kept->weights.end(), categweight);
    for (const Untrimmed &each : kept->entries) std::memcpy(each.entry, each.bytes.data(), each.bytes.size());
    if (contentinitialised == 1) iniContentFilter();
  } else {
    for (const Variable &each : connectionVariables) std::memset(each.address, 0, each.size);
  }
  errno = 0;
}
