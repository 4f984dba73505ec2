/* Text of peers made safe for the places where it is shown. */
#ifndef NETSIFT_UTIL_ESCAPE_H
#define NETSIFT_UTIL_ESCAPE_H

#include <string>
#include <string_view>

namespace netsift {

/* For HTML text and quoted attributes: & < > " ' become "&amp;" "&lt;" "&gt;" "&quot;" "&#39;". */
std::string htmlEscape(std::string_view text);

/* For one quoted field of a log line: `"` becomes `\"`, `\` becomes `\\`, CR, LF and TAB become `\r`, `\n` and `\t`,
   any other control byte, DEL and each byte of a UTF-8 control character (U+0080 to U+009F) become `\xHH` with two
   upper-case hexadecimal digits. Everything else, UTF-8 too, stays, so that the field can be read and read back. */
std::string logEscape(std::string_view text);

/* For a string of JSON, without its quotes: quotes, backslashes and control characters escaped, those of Unicode and the
   line and paragraph separators too; each byte that is not part of well-formed UTF-8 becomes U+FFFD. */
std::string jsonEscape(std::string_view text);

/* For a field of a line whose fields are separated by blanks: every byte but the printable ones of ASCII, and blanks,
   quotes and backslashes, becomes "%" and two upper-case hexadecimal digits. */
std::string urlEscape(std::string_view text);

}  // namespace netsift

#endif
