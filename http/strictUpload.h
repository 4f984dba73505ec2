/* Whether a request's body sends a file: form data whose part names one (RFC 7578, RFC 6266). */
#ifndef NETSIFT_HTTP_STRICTUPLOAD_H
#define NETSIFT_HTTP_STRICTUPLOAD_H

#include <string_view>

namespace netsift {

/* True when a Content-Disposition in the bytes, written in any case of letters, has a "filename" or "filename*" that is
   not empty. A field's text is looked at up to 4 KiB, folded lines included. */
bool namesUpload(std::string_view bytes);

}  // namespace netsift

#endif
