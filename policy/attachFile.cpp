#include "policy/attachFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "log/debugLog.h"
#include "state/connection.h"
#include "state/settings.h"
#include "state/strict.h"
#include "util/ownedText.h"

namespace {

using std::string_view;

constexpr string_view fileNameField = "filename=";
constexpr size_t fileNameOffset = 10; /* of the first byte of a quoted file name, from the field's start */

/* 1, 0 or -1, as checkUrl for one entry. */
int isAllowedBy(string_view entry, const char *url) {
  if (!entry.starts_with("www.")) return string_view(url).find(entry) != string_view::npos ? 1 : 0;
  const netsift::Text copy(strndup(entry.data(), entry.size()));
  if (!copy) {
    std::perror("Memory Allocation Failed");
    return -1;
  }
  return std::strstr(url, copy.get() + 4) != nullptr ? 1 : 0;
}

/* A piece of a body in place: what is removed closes up, and NULs stand behind the end. */
struct Piece {
  char *bytes;
  size_t length;

  string_view from(size_t offset) const { return {bytes + offset, length - offset}; }

  /* What fields are looked for in: a text, which ends at the first NUL, or all of it under StrictHttp. */
  string_view textFrom(size_t offset) const {
    const size_t end = netsift::strictHttp() ? length : strnlen(bytes, length);
    return {bytes + offset, end - offset};
  }
};

void removeBytes(Piece &piece, size_t offset, size_t count) {
  std::memmove(piece.bytes + offset, piece.bytes + offset + count, piece.length - offset - count);
  piece.length -= count;
  std::memset(piece.bytes + piece.length, 0, count);
}

/* The length of the name that is removed; its closing quote is removed beside it. */
size_t emptyFileName(Piece &piece, size_t field) {
  const size_t quote = field + fileNameOffset;
  if (quote >= piece.length) return 0;
  piece.bytes[quote] = '"';
  const string_view rest = piece.from(quote + 1);
  const size_t closing = rest.find('"');
  const size_t name = std::min(closing, rest.size());
  removeBytes(piece, quote + 1, closing == string_view::npos ? name : name + 1);
  return name;
}

size_t removeContentType(Piece &piece, size_t disposition) {
  const size_t type = piece.textFrom(disposition).find("Content-Type:");
  if (type == string_view::npos) return 0;
  const string_view rest = piece.from(disposition + type);
  const size_t line = std::min(rest.find_first_of("\r\n"), rest.size());
  removeBytes(piece, disposition + type, line);
  return line;
}

}  // namespace

int checkUrl(const char *url) {
  if (url == nullptr) return 0;
  int flag = 0;
  for (const char(&stored)[100] : uploadwhitelist) {
    const string_view entry(stored, strnlen(stored, sizeof stored));
    if (entry.empty()) break;
    dprintf(5, "uploadlist==========================%.100s\n", stored);
    flag = isAllowedBy(entry, url);
    if (flag != 0) break;
  }
  if (flag == -1) return -1;
  dprintf(5, "File:%s Function:%s Line:%d :: flag=%d\n", "attachFile", __func__, __LINE__, flag);
  if (flag == 1) {
    dprintf(7, "File:%s Function:%s Line:%d :: File uploading process is done because it is white listed\n",
            "attachFile", __func__, __LINE__);
  } else {
    dprintf(7, "File:%s Function:%s Line:%d :: File uploading process is stopped as not whitelisted\n", "attachFile",
            __func__, __LINE__);
  }
  return flag;
}

int blockAttachment(int length, char *body) {
  dprintf(7, "inside blockAttachment\n");
  std::strcpy(reason, "Attachments are not allowed to this server");

  Piece piece{body, length > 0 ? static_cast<size_t>(length) : 0};
  const size_t disposition = piece.textFrom(0).find("Content-Disposition: form-data;");
  if (disposition == string_view::npos) {
    dprintf(7, "'Content-Disposition: form-data' not found in postbody; blockAttachment() exit..\n");
    return 0;
  }
  const size_t field = piece.textFrom(disposition).find(fileNameField);
  if (field == string_view::npos) {
    dprintf(7, "blockAttachment() function: filename part not found\n");
    return 0;
  }
  if (piece.textFrom(disposition).find("filename=\"\"") != string_view::npos) {
    dprintf(7, " blockAttachment() function: filename is not  NULL\n"); /* sic: it is */
    return 0;
  }
  const size_t name = emptyFileName(piece, disposition + field);
  const size_t type = removeContentType(piece, disposition);
  return static_cast<int>(name + type);
}
