/* Fields of a head as RFC 9110 section 5 reads them, and their removal and addition. Internal to the library. */
#ifndef NETSIFT_HTTP_STRICTFIELD_H
#define NETSIFT_HTTP_STRICTFIELD_H

#include <string_view>

#include "state/records.h"

namespace netsift {

/* Whether the line is the field, named with its colon and compared without regard to case. */
bool isField(const HeaderLine *line, std::string_view nameWithColon);

/* The field's value without the white space around it (RFC 9110 section 5.5), inside the line's text. */
std::string_view fieldValue(const HeaderLine *line, std::string_view nameWithColon);

bool equalsIgnoringCase(std::string_view text, std::string_view other);

/* Takes the first element, without white space around it, and its comma off a list (RFC 9110 section 5.6.1). */
std::string_view takeElement(std::string_view &list);

/* Whether a comma-separated value holds the token, in any case of letters. */
bool hasListToken(std::string_view list, std::string_view token);

/* Whether the sender of a head keeps its connection (RFC 9112 section 9.3), `byDefault` when no Connection or
   Proxy-Connection field says so. */
bool keepsConnection(const HeaderLine *first, bool byDefault);

/* Takes every line of the field out of the head; the first line of the head always stays. */
void removeField(Header &header, std::string_view nameWithColon);

/* Puts a field, written without its line end, behind the head's first line. Nothing happens in an empty head. */
void insertField(Header &header, std::string_view field);

/* Replaces a line's text by `text` and CR LF. */
void setLine(HeaderLine *line, std::string_view text);

}  // namespace netsift

#endif
