/* A scratch installation that a start accepts. */
#ifndef NETSIFT_TESTS_HOST_INSTALL_H
#define NETSIFT_TESTS_HOST_INSTALL_H

#include <string>

#include "host/configRead.h"
#include "host/installCheck.h"
#include "host/problems.h"
#include "tests/support/support.h"

namespace netsift::test {

struct Install {
  ScratchRoot root;
  std::string file = root.path() + "/netsiftd.toml", cache = root.path() + "/opt/Velmora/var/nscache.db";
  std::string configuration =
      "lists.category = [{name = \"Sample\", file = \"sample\"}]\n"
      "content.category = [{name = \"Sample\", phrases = \"sample\"}]\n";

  Install() {
    for (std::string list : {"whitelist", "adserver", "popup", "sample"}) {
      write(list + ".dom", list + ".example\n");
      write(list + ".url.orig", "");
      write(list + ".phrase", "<~>0\n");
    }
    for (const char *page : {"template.htm", "template", "errortemplate.htm"}) write(page, "page: %r\n");
  }

  void write(const std::string &name, const std::string &content) const { writeFile(root.config(name), content); }
  void configure(const std::string &more) const { writeFile(file, configuration + more); }

  /* "E" or "W" and the problem's line, the file without its folders. */
  std::string problems(bool make = false) const {
    host::Problems found;
    configure("");
    host::readConfiguration(file, found);
    host::checkInstallation(found);
    if (make && !host::anyFatal(found)) host::makeMissing(found);
    std::string out;
    for (host::Problem problem : found) {
      out += problem.fatal ? "E " : "W ";
      problem.file.erase(0, problem.file.rfind('/') + 1);
      problem.fatal = true;
      out += host::problemLine(problem) + "\n";
    }
    return out;
  }
};

}  // namespace netsift::test

#endif
