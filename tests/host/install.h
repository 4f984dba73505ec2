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
  std::string configuration =
      "[[lists.category]]\nname = \"Sample\"\nfile = \"sample\"\n"
      "[[content.category]]\nname = \"Sample\"\nphrases = \"sample\"\n";

  Install() {
    for (std::string list : {"whitelist", "adserver", "popup", "sample"}) {
      write(list + ".dom", list + ".example\n");
      write(list + ".url.orig", "");
      write(list + ".phrase", "<~>0\n");
    }
    for (const char *page : {"template.htm", "template", "errortemplate.htm"}) write(page, "page: %r\n");
  }

  void write(const std::string &file, const std::string &content) const { writeFile(root.config(file), content); }

  std::string configurationFile() const {
    writeFile(root.path() + "/netsiftd.toml", configuration);
    return root.path() + "/netsiftd.toml";
  }

  /* "E" or "W" and the problem's line, the file without its folders. */
  std::string problems(bool make = false) const {
    host::Problems found;
    host::readConfiguration(configurationFile(), found);
    host::checkInstallation(found);
    if (make && !host::anyFatal(found)) host::makeMissing(found);
    std::string out;
    for (host::Problem problem : found) {
      problem.file.erase(0, problem.file.rfind('/') + 1);
      out += std::string(problem.fatal ? "E " : "W ");
      problem.fatal = true;
      out += host::problemLine(problem) + "\n";
    }
    return out;
  }
};

}  // namespace netsift::test

#endif
