/* The fuzz harnesses, a function each. A program is built from the one that HARNESS names. */
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "http/strictChunk.h"
#include "http/strictCoding.h"
#include "http/strictForward.h"
#include "http/strictFraming.h"
#include "http/strictHead.h"
#include "netsift.h"
#include "tests/support/support.h"

using namespace netsift;
using namespace netsift::test;
using std::string;
using Bytes = std::string_view;

void check(bool holds) {
  if (!holds) std::abort();
}

/* HTML to text: the page can only shrink, and what is left over is cleared. */
void htmlToText(Bytes page) {
  const GuardedText text(page);
  auto length = static_cast<int32_t>(page.size());
  ConvertHTMLToText(text.get(), &length);
  check(length >= 0 && static_cast<size_t>(length) <= page.size());
  check(std::all_of(text.get() + length, text.get() + page.size() + 1, [](char c) { return c == '\0'; }));
}

/* A phrase file, a line "==" and a text: an index without its look-up tables must score as the one with them. */
void phraseScan(Bytes input) {
  const size_t divider = input.find("\n==\n");
  if (divider == Bytes::npos || divider == 0) return;
  FILE *stream = fmemopen(const_cast<char *>(input.data()), divider, "r");
  PhraseNode *list = nullptr;
  for (PhraseNode **end = &list; (*end = readPhrase(stream)) != nullptr;) end = &(*end)->next;
  fclose(stream);
  InitialEntry *index = buildIniList(list);
  std::vector<InitialEntry> walked(256);
  for (size_t i = 0; index[i].firstByte != 0; i++) walked[i] = index[i];

  numcategories1 = 1;
  uniqueoccur = input.size() % 2;
  allowedweight = input.size() % 3 == 0 ? 20 : INT_MAX;
  const GuardedText text(input.substr(divider + 4));
  const auto scan = [&](const InitialEntry *by) {
    check(iniContentFilter() == 1);
    const int reached = calcWeight(text.get(), static_cast<int>(input.size() - divider - 4), by, 0);
    return std::pair(reached, totalweight);
  };
  check(scan(index) == scan(walked.data()));
  relContentFilter();
  free(index);
  freeList(list);
}

/* Rating labels: the text must be as before afterwards. */
void ratings(Bytes head) {
  icraenable = rsacenable = safesurfenable = 1;
  std::fill_n(icra, std::size(icra), 10); /* so that the later vocabularies are reached */
  const GuardedText text(head);
  checkPICSRating(text.get());
  check(Bytes(text.get(), head.size()) == head);
}

/* A text and a pattern, parted by the first LF. */
void wildcard(Bytes input) {
  const size_t end = std::min(input.find('\n'), input.size() - 1);
  const GuardedText text(input.substr(0, end)), pattern(input.substr(end + 1));
  const int matches = isMatching(text.get(), pattern.get());
  check(matches == 0 || matches == 1);
  check(isMatching(text.get(), text.get()) == 1 || strchr(text.get(), '*') != nullptr || end > 111);
  contains(text.get(), pattern.get());
  const int offset = containsBeforeDelim(text.get(), pattern.get(), '/');
  check(offset < 0 || beginsWith(text.get() + offset, pattern.get()) == 1);
}

/* A list file: as many entries are read as were counted, and looking up stays inside them. */
void urlList(Bytes content) {
  FILE *file = fmemopen(const_cast<char *>(content.data()), content.size(), "r");
  const int lines = numLines(file), wildcards = numWildCardLines(file);
  check(wildcards >= 0 && wildcards <= lines);
  for (int i = 0; i < lines; i++) {
    const Text host(strdup(" www.example.org ")), line(readURL(file));
    isDomainMatching(host.get(), line.get(), i & 1);
  }
  fclose(file);
}

/* A head as a peer sends it: read, asked everything, rewritten, sent on. */
void header(Bytes head) {
  SocketPair pair;
  pair.send(head);
  pair.closeFar();
  Header header;
  if (getHeader(pair.near, &header, 1) == 0) return destroyHeader(&header);
  check(header.totalBytes <= head.size());
  for (auto *ask : {getHostName, getTransferEncoding, getContentCoding, getAuthType, getContentType, isPragmaNoCache,
                    getContentLength1, getModificationTime}) {
    free(ask(header.first));
  }
  for (auto *ask : {isPOSTRequest, isHEADRequest, getResponseCode, getContentLength, ShowAuth, isconnectionclosed}) {
    ask(header.first);
  }
  for (auto *rewrite : {modAccept, modAcceptLanguage, modHTTPver, removeContentCoding, removeAcceptCoding,
                        removeTransferEncoding, removePersistent, removeContentLength}) {
    rewrite(header.first);
  }
  sendHeader(pair.near, &header);
  destroyHeader(&header);
}

/* A request line and the Host field behind it after the first "|": the normalised URL keeps its bounds. */
void requestLine(Bytes input) {
  const size_t end = std::min(input.find('|'), input.size() - 1);
  const GuardedText line(input.substr(0, end)), field("Host:" + string(input.substr(end + 1)));
  HeaderLine second{field.get(), nullptr}, first{line.get(), end + 1 == input.size() ? nullptr : &second};
  unsigned port = 0;
  char *host = nullptr;
  const Text url(getURL(&first, &port, &host)), ownedHost(host);
  check(strlen(request) < sizeof request);
  if (!url) return;
  check(strlen(url.get()) <= 503 && strlen(host) <= 255);
  const Text decoded(decodeURL(url.get()));
  check(strlen(decoded.get()) <= strlen(url.get()));
}

/* A chunk's size line as it comes from the socket. */
void chunkLine(Bytes bytes) {
  SocketPair pair;
  pair.send(bytes);
  pair.closeFar();
  unsigned length = 0;
  unsigned char status = 0;
  const Text line(getSocketLine1(pair.near, &length, &status));
  check(length == bytes.size() && line.get()[length] == '\0');
  getChunkSize(line.get());
}

/* Chunked bodies; the first two bytes choose the size of the pieces and the room. */
void strictChunk(Bytes input) {
  if (input.size() < 2) return;
  const size_t pieceSize = 1 + size_t{static_cast<unsigned char>(input[0])};
  string out(1 + size_t{static_cast<unsigned char>(input[1])}, '\0');
  input.remove_prefix(2);
  ChunkDecoder decoder;
  Parse answer = Parse::more;
  size_t total = 0;
  for (size_t used = 0, produced = 0; answer == Parse::more && total < input.size(); total += used) {
    const string piece(input.substr(total, pieceSize));
    answer = decodeChunks(decoder, piece, used, out.data(), out.size(), produced);
    check(used > 0 && used <= piece.size() && produced <= used && produced <= out.size());
  }
  check(answer != Parse::done || input.substr(0, total).ends_with("\r\n\r\n"));
}

/* The lines of a head if it passes; false when it does not. */
bool scan(Bytes text, bool response, Header &header) {
  HeadScan scan;
  scan.response = response;
  size_t used = 0;
  if (scanHead(scan, text, used) != Parse::done) return false;
  check(scan.text.ends_with("\r\n\r\n") && scan.text.find('\0') == string::npos);
  headToLines(scan, header);
  return true;
}

/* A response's fields; the first byte chooses its status line. One Content-Length, or one "chunked" of HTTP/1.1, and
   nothing else frames a body. */
void strictFraming(Bytes input) {
  constexpr const char *statusLines[] = {"1 200", "0 200", "1 204", "1 304", "1 100"};
  const size_t choice = static_cast<unsigned char>(input[0]) % std::size(statusLines);
  string text = string("HTTP/1.") + statusLines[choice] + " x\r\n" + string(input.substr(1)) + "\r\n\r\n";
  text.resize(text.find("\r\n\r\n") + 4);
  Header header;
  if (!scan(text, true, header)) return;
  const ResponseFraming framing = responseFraming(header.first, false);
  destroyHeader(&header);
  if (framing.fault.status != 0) return;
  const auto has = [&](const string &what) { return strcasestr(text.c_str(), what.c_str()) != nullptr; };
  if (framing.kind == BodyKind::chunked) check(has("chunked") && choice == 0);
  if (framing.kind == BodyKind::length) check(has(std::to_string(framing.length)));
  if (framing.kind == BodyKind::untilClose) check(!has("\nContent-Length:") && !framing.upstreamPersists);
}

void forwardRequest(Header &header) {
  StrictTarget target, again;
  RequestFraming framing, framingAgain;
  if (requestFraming(header.first, framing).status != 0) return;
  if (parseStrictTarget(header.first, target).status != 0) return;
  check(!target.host.empty() && target.port >= 1 && target.port <= 65535 && !strictUrl(target).empty());
  (target.form == TargetForm::authority ? rewriteForProxy : rewriteForOrigin)(header, target);
  addVia(header, target.minorVersion);
  check(parseStrictTarget(header.first, again).status == 0 && again.host == target.host && again.port == target.port);
  check(requestFraming(header.first, framingAgain).status == 0 && framingAgain.length == framing.length);
}

void forwardResponse(Header &header) {
  readContentCoding(header.first);
  const ResponseFraming framing = responseFraming(header.first, false);
  if (framing.fault.status != 0) return;
  cleanResponseHead(header, true);
  setConnection(header, !framing.upstreamPersists);
  check(responseFraming(header.first, false).fault.status == 0);
}

/* Heads; the first byte chooses request or response. What passes can be read for target, framing and coding and be
   forwarded, and passes again unless it has grown out of the limits. */
void strictHead(Bytes input) {
  Header header, again;
  if (!scan(input.substr(1), input[0] < 0, header)) return;
  (input[0] < 0 ? forwardResponse : forwardRequest)(header);
  string rewritten;
  for (const HeaderLine *line = header.first; line != nullptr; line = line->next) rewritten += line->text;
  const bool passes = scan(rewritten, input[0] < 0, again);
  check(passes || header.lineCount > 95);
  if (passes) destroyHeader(&again);
  destroyHeader(&header);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size > 0) HARNESS({reinterpret_cast<const char *>(data), size});
  return 0;
}
