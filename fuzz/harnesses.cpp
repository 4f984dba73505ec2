/* Harnesses over functions of bytes. */
#include <zlib.h>

#include <algorithm>
#include <memory>

#include "content/charset.h"
#include "content/pageText.h"
#include "fuzz/harness.h"
#include "http/clientHello.h"
#include "http/strictChunk.h"
#include "http/strictForward.h"
#include "http/strictFraming.h"
#include "http/strictHead.h"
#include "http/strictTarget.h"
#include "http/strictUpload.h"
#include "log/peerText.h"
#include "util/escape.h"

/* A page's text, a form or a line: each reader keeps to it. Labels leave it as it was, HTML to text can only shrink it
   and clears what is left over, a file's name and type close up inside their form, and nothing that a peer wrote ends
   its place in a page, a field or a line of the log. */
void texts(Bytes input) {
  const GuardedText page(input), form(input), unended(input, false);
  const auto size = static_cast<int>(input.size());
  getChunkSize(page.get());
  icraenable = rsacenable = safesurfenable = 1;
  std::fill_n(icra, std::size(icra), 10); /* so that the later vocabularies are reached */
  checkPICSRating(page.get());
  check(Bytes(page.get(), input.size()) == input);
  int length = size;
  ConvertHTMLToText(page.get(), &length);
  check(length >= 0 && length <= size);
  check(std::all_of(page.get() + length, page.get() + size + 1, [](char c) { return c == '\0'; }));
  const Text folded(preProcessBody(unended.get(), size, &length));
  check(length <= size && folded.get()[length] == '\0');
  const int less = blockAttachment(size, form.get());
  check(less >= 0 && less <= size && form.get()[size] == '\0');
  const Bytes plain = "\r\nContent-Disposition: form-data; filename=\"f\"\r\n";
  check(namesUpload({unended.get(), input.size()}) || input.find(plain) == Bytes::npos);
  check(namesUpload(string(input) + string(plain))); /* whatever stands before it */

  const string field = logEscape(input), text(input.substr(0, input.find('\0')));
  check(htmlEscape(input).find_first_of("<>\"'") == string::npos);
  check(std::none_of(field.begin(), field.end(), [](char c) { return (c >= 0 && c < 0x20) || c == 0x7F; }));
  EscapeText = 1;
  check(strlen(peerText(text.c_str())) <= 283);
  const LogCapture log(7);
  tracePeerLine(5, text.c_str());
  const string line = log.text();
  check(std::count(line.begin(), line.end(), '\n') == 1 && line.ends_with('\n') && line.size() < 1024);
}

/* A type and a charset, a line "==" and a page: however it is divided, it has the same text, which is well-formed, has
   no two blanks in a row, and is in the form of itself. */
void pageText(Bytes input) {
  const size_t line = input.find("\n==\n");
  const Bytes named = input.substr(0, line), bytes = line == Bytes::npos ? "" : input.substr(line + 4);
  const size_t divider = std::min(named.find(' '), named.size());
  const Bytes charset = named.substr(std::min(divider + 1, named.size()));
  const size_t step = 1 + input.size() % 7;
  size_t mark = 0;
  const string name = charsetOf(bytes, charset, mark);
  const auto read = [&](size_t size) {
    Decoder decoder = openDecoder(name);
    PageText text{.kind = kindOf(named.substr(0, divider))};
    string characters;
    for (size_t at = mark; at < bytes.size(); at += size) {
      const GuardedText piece(bytes.substr(at, size), false);
      characters.clear();
      decodeText(decoder, {piece.get(), std::min(size, bytes.size() - at)}, at + size >= bytes.size(), characters);
      readPage(text, characters);
      check(settledLength(text.shown) <= text.shown.text.size());
    }
    endPage(text);
    return text.shown.text + "|" + text.beside.text;
  };
  const string whole = read(bytes.size() + 1);
  check(whole == read(step));
  check(whole.find("  ") == string::npos);
  const string shown = " " + whole.substr(0, whole.find('|'));
  check(normalPhrase(shown) == shown);
}

/* A head as a peer sends it: read, asked everything, rewritten, sent on. The URL that it names keeps its bounds. */
void header(Bytes head) {
  SocketPair pair;
  pair.send(head);
  pair.closeFar();
  Header header;
  if (getHeader(pair.near, &header, 1) == 0) return destroyHeader(&header);
  check(header.totalBytes <= head.size());
  unsigned port = 0;
  char *host = nullptr;
  const Text url(getURL(header.first, &port, &host)), ownedHost(host);
  check(strlen(request) < sizeof request);
  if (url) {
    check(strlen(url.get()) <= 503 && strlen(host) <= 255);
    const Text decoded(decodeURL(url.get()));
    check(strlen(decoded.get()) <= strlen(url.get()));
  }
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

/* What is looked up of a target is bounded, and resolved where servers would. */
void checkResolved(const StrictTarget &target) {
  const string asItCame = strictUrl(target);
  const std::vector<string> readings = urlReadings(target);
  check(asItCame.starts_with(target.host) && asItCame.size() <= 503 && readings.size() <= 64);
  for (const string &url : readings) {
    check(url.starts_with(target.host) && url.size() <= 503 && url != asItCame);
    if (url.find('?') != string::npos || url.size() > 500) continue; /* a query may hold what it likes */
    check((url + "/").find("/../") == string::npos && (url + "/").find("/./") == string::npos);
  }
}

void forwardRequest(Header &header) {
  StrictTarget target, again;
  RequestFraming framing, framingAgain;
  if (requestFraming(header.first, framing).status != 0) return;
  if (parseStrictTarget(header.first, target).status != 0) return;
  check(!target.host.empty() && target.port >= 1 && target.port <= 65535 && !strictUrl(target).empty());
  checkResolved(target);
  (target.form == TargetForm::authority ? rewriteForProxy : rewriteForOrigin)(header, target, !target.keepAlive);
  addVia(header, target.minorVersion);
  check(parseStrictTarget(header.first, again).status == 0 && again.host == target.host && again.port == target.port);
  check(requestFraming(header.first, framingAgain).status == 0 && framingAgain.length == framing.length);
}

void forwardResponse(Header &header) {
  string type;
  if (readMediaType(header.first, type)) {
    check(std::none_of(type.begin(), type.end(), [](char c) { return (c >= 'A' && c <= 'Z') || c == ';'; }));
    check(type.empty() || (type.front() != ' ' && type.back() != ' '));
  }
  readContentCodings(header.first);
  codingsToAskFor(header.first);
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

/* The first bytes of a tunnel; the first byte chooses how large the records are that the same message is cut into. What
   is said of a part stays true of the whole, and the name does not depend on the records. */
void clientHello(Bytes input) {
  const size_t each = 1 + size_t{static_cast<unsigned char>(input[0])};
  const GuardedText guarded(input.substr(1), false);
  const Bytes bytes(guarded.get(), input.size() - 1);
  ClientHello whole, part;
  const Parse parse = readClientHello(bytes, whole);
  for (size_t size = 0; size < bytes.size(); size = std::max(size + 1, part.needed)) {
    const Parse now = readClientHello(bytes.substr(0, size), part);
    check(now == Parse::more ? part.needed > size && part.needed <= mostHelloBytes
                             : now == parse && part.serverName == whole.serverName);
    check(parse != Parse::more || part.needed <= whole.needed);
    ClientHello shorter;
    if (now == Parse::more) check(readClientHello(bytes.substr(0, part.needed - 1), shorter) != Parse::done);
  }
  if (parse != Parse::done || bytes.size() < 6) return;
  const size_t length = static_cast<unsigned char>(bytes[3]) * size_t{256} + static_cast<unsigned char>(bytes[4]);
  string cut;
  for (Bytes message = bytes.substr(5, length); !message.empty();
       message.remove_prefix(std::min(each, message.size()))) {
    const Bytes fragment = message.substr(0, each);
    cut += {'\x16', 3, 1, static_cast<char>(fragment.size() >> 8), static_cast<char>(fragment.size())};
    cut += fragment;
  }
  const Parse again = readClientHello(cut, part); /* of the first record alone, where there were several */
  if (again != Parse::more && cut.size() + 5 <= mostHelloBytes) check(part.serverName == whole.serverName);
}

/* A response's fields; the first byte chooses its status line. One Content-Length, or one "chunked", and nothing else
   frames a body; behind chunks of HTTP/1.0 nothing is read. */
void strictFraming(Bytes input) {
  constexpr const char *statusLines[] = {"1 200", "0 200", "1 204", "1 304", "1 100"};
  const size_t choice = static_cast<unsigned char>(input[0]) % std::size(statusLines);
  string text = string("HTTP/1.") + statusLines[choice] + " x\r\n" + string(input.substr(1)) + "\r\n\r\n";
  text.resize(text.find("\r\n\r\n") + 4);
  Header header;
  if (!scan(text, true, header)) return;
  const ResponseFraming framing = responseFraming(header.first, false);
  text.clear(); /* the head alone: an LF may have ended it early */
  for (const HeaderLine *line = header.first; line != nullptr; line = line->next) text += line->text;
  destroyHeader(&header);
  if (framing.fault.status != 0) return;
  const auto has = [&](const string &what) { return strcasestr(text.c_str(), what.c_str()) != nullptr; };
  if (framing.kind == BodyKind::chunked) check(has("chunked") && (choice == 0 || !framing.upstreamPersists));
  if (framing.kind == BodyKind::length) check(has(std::to_string(framing.length)));
  if (framing.kind == BodyKind::untilClose) check(!has("\nContent-Length:") && !framing.upstreamPersists);
}

/* A chunked body in pieces, through some room. */
void dechunk(Bytes input, size_t pieceSize, string out) {
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

/* A body; the first three bytes choose chunked, one coding or two, the size of pieces and of the room. How it is cut makes
   no difference, and a whole zlib stream is one for zlibDecompress too. */
void codings(Bytes input) {
  if (input.size() < 3) return;
  const int kind =
      static_cast<unsigned char>(input[0]) % 21; /* gzip, deflate, chunked, br, zstd; then two of the four */
  constexpr Coding all[] = {Coding::gzip, Coding::deflate, Coding::brotli, Coding::zstd};
  ContentCodings codings{{all[kind < 2 || kind > 4 ? kind % 4 : kind - 1]}, 1};
  if (kind > 4) codings = {{all[(kind - 5) % 4], all[(kind - 5) / 4]}, 2};
  const size_t pieceSize = 1 + size_t{static_cast<unsigned char>(input[1])};
  const size_t roomSize = 1 + size_t{static_cast<unsigned char>(input[2])};
  input.remove_prefix(3);
  if (kind == 2) return dechunk(input, pieceSize, string(roomSize, '\0'));
  constexpr size_t enough = 1 << 20; /* below, nothing counts as growth beyond bounds */
  const string whole = decoded(codings, input, input.size(), 65536, true),
               cut = decoded(codings, input, pieceSize, roomSize, true);
  const bool broken = whole.ends_with('!') && cut.ends_with('!');
  check(whole == cut || broken || whole.size() >= enough || cut.size() >= enough);
  z_stream stream{};
  auto length = static_cast<unsigned>(input.size());
  unsigned char status = 77;
  const Text inflated(zlibDecompress(input.data(), &length, &status, 1, &stream));
  check(inflated && inflated.get()[length] == '\0');
  inflateEnd(&stream);
  if (kind == 1 && !whole.ends_with('!') && status == Z_STREAM_END && length < enough)
    check(whole.starts_with(Bytes(inflated.get(), length)));
}
