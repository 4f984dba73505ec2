/* Lists as people write them: what their lines mean, as the entries that the library's loader reads. */
#ifndef NETSIFT_HOST_LISTFORMAT_H
#define NETSIFT_HOST_LISTFORMAT_H

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace netsift::host {

/* What the first line of a file says: "# format: hosts", or with "!" in the place of "#". */
enum class ListFormat { none, hosts, domains, adblock, urls, unknown };

/* A byte order mark and capital letters make no difference. `unknown`: it names a format that is none. */
ListFormat listFormat(std::string_view text);
ListFormat listFormatOf(const std::string &path); /* `none` also for a file that cannot be read */

struct LeftOut {
  int line;
  const char *why;
};

struct Converted {
  std::string entries; /* one a line, each with its line end */
  std::vector<LeftOut> leftOut;
};

/* The entries of a text in a format, for a .dom file or, of `urls`, for URLs. `blocks`: the list blocks, and what it
   says of "www.example.org" holds for "example.org" too; in a list that exempts it does not. Comments and the names that
   every hosts file has for the machine itself are passed over; lines that mean no entry are left out and told. */
Converted convertList(std::string_view text, ListFormat format, bool blocks);

/* The same of one line, which is none that names a format. */
Converted convertLine(std::string_view line, int number, ListFormat format, bool blocks);

/* What is wrong with a format for a .dom file or, `isUrls`, for one of URLs; null when nothing is. */
const char *formatFault(ListFormat format, bool isUrls);

/* Calls call(line, number) for each line that is not empty; LF or CR ends a line. */
template <typename Call>
void eachLine(std::string_view text, Call call) {
  for (int number = 1; !text.empty();) {
    const size_t end = std::min(text.find_first_of("\r\n"), text.size());
    if (end > 0) call(text.substr(0, end), number);
    number += end < text.size() && text[end] == '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

}  // namespace netsift::host

#endif
