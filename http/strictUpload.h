/* Whether a request's body sends a file: form data whose part names one (RFC 7578, RFC 6266). */
#ifndef NETSIFT_HTTP_STRICTUPLOAD_H
#define NETSIFT_HTTP_STRICTUPLOAD_H

#include <string>
#include <string_view>

#include "http/strictCoding.h"
#include "state/records.h"

namespace netsift {

/* True when a Content-Disposition in the bytes, written in any case of letters, has a "filename" or "filename*" that is
   not empty. A field's text is looked at up to 16 KiB, folded lines included. */
bool namesUpload(std::string_view bytes);

/* The end of what was seen of a body, and the same without zero bytes, which is what UTF-16 leaves of ASCII. */
struct UploadWindow {
  std::string bytes, withoutZeros;
  bool sawZero = false, sawField = false;
};

/* A body on its way in: a new one for each, not copied or moved. */
struct UploadLook {
  CodingChain codings;
  bool counts = false; /* as an upload whatever it holds */
  bool isForm = false;
  UploadWindow asItCame, decoded;
};

/* Reads from a request's head what its body is to be looked at as. */
void beginLook(UploadLook &look, const HeaderLine *first);

/* Whether the body, with the next piece of it, sends a file: form data whose part names one, in the body as it came or
   in what its codings make of it, in ASCII or UTF-16. What cannot be read counts: a coding that is
   unknown, damaged or grows beyond bounds, several types, a multipart body in a character set that is not ASCII's. */
bool showsUpload(UploadLook &look, std::string_view piece);

/* Whether a whole body in which nothing was seen counts all the same: form data none of whose parts could be read, and
   what breaks off within its coding. */
bool endsUnread(const UploadLook &look);

}  // namespace netsift

#endif
