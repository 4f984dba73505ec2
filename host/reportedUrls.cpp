#include "host/reportedUrls.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/files.h"
#include "host/listFiles.h"
#include "netsift.h"

namespace netsift::host {

namespace {

/* It becomes a line of a list's file, and a decoded URL may hold anything. */
bool breaksLine(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '\x7f' || c == '\xff'; }

/* addURLToList names the file after the category: for the call it has another name, in both tables of names. */
void addUnder(std::string name, int category, const std::string &url) {
  char *phraseName = categfiles1[category];
  std::vector<char *> urlNames(categfiles, categfiles + numcategories);
  for (char *&urlName : urlNames) {
    if (std::strcmp(urlName, phraseName) == 0) categfiles[&urlName - urlNames.data()] = name.data();
  }
  categfiles1[category] = name.data();
  addURLToList(category, url.c_str());
  categfiles1[category] = phraseName;
  std::ranges::copy(urlNames, categfiles);
}

}  // namespace

std::string addReportedUrl(int category, const std::string &url) {
  if (std::ranges::any_of(url, breaksLine)) return "a URL report with control bytes in the URL";
  if (url.find('*') != url.npos) return "a URL report with a \"*\", which a list takes for a pattern";
  if (category >= numcategories1) return "a URL report for category " + std::to_string(category) + ", which is none";
  std::string name = categfiles1[category];
  std::string file = listFiles(name).reported;
  if (std::string trouble = exists(file) ? fileTrouble(file, true) : ""; !trouble.empty())
    return "a URL report, since " + file + " " + trouble;
  if (get_file_size(file.c_str()) + static_cast<long>(url.size()) >= static_cast<long>(mostReportedBytes))
    return "a URL report, since " + file + " is full; move what is to stay from it to the list";
  addUnder(name.append(reportedSuffix), category, url);
  return "";
}

}  // namespace netsift::host
