#include "log/accessLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "log/debugLog.h"
#include "state/connection.h"
#include "state/settings.h"
#include "util/escape.h"
#include "util/installPath.h"

namespace {

void appendField(std::string &line, const char *text) {
  if (!line.empty()) line += ' ';
  line += '"';
  if (text != nullptr && EscapeText == 1) {
    line += netsift::logEscape(text);
  } else if (text != nullptr) {
    line += text;
  }
  line += '"';
}

std::string formatLine(const char *first, const char *second) {
  char stamp[26] = ""; /* what ctime_r may write */
  const time_t now = std::time(nullptr);
  ctime_r(&now, stamp);
  stamp[std::strcspn(stamp, "\n")] = '\0';

  std::string line;
  for (const char *field : {static_cast<const char *>(stamp), static_cast<const char *>(clientip),
                            static_cast<const char *>(url), first, second}) {
    appendField(line, field);
  }
  line += '\n';
  return line;
}

}  // namespace

void storeLog(const char *first, const char *second, int8_t) {
  if (logenable == 0) return;
  const netsift::Text path = netsift::installPath({netsift::logFolder, logfilename});
  if (!path) {
    dprintf(1, "memory allocation failed in storeLog\n");
    return;
  }
  dprintf(4, "storing in log file url %s\n", path.get());
  const int file = open(path.get(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (file < 0) {
    dprintf(1, "error opening log file %s", std::strerror(errno));
    return;
  }
  const std::string line = formatLine(first, second);
  ssize_t written;
  do {
    written = write(file, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written < 0) dprintf(1, "error writing log file %s\n", std::strerror(errno));
  close(file);
}
