/* Harnesses over functions of bytes. */
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <vector>

#include "content/phraseAutomaton.h"
#include "fuzz/harness.h"
#include "http/clientHello.h"
#include "http/strictChunk.h"
#include "http/strictCoding.h"
#include "http/strictForward.h"
#include "http/strictFraming.h"
#include "http/strictHead.h"
#include "http/strictTarget.h"
#include "http/strictUpload.h"
#include "log/peerText.h"
#include "util/escape.h"

/* A gzip stream straight from a socket: no more than the room. */
void gzipSocket(Bytes bytes) {
  const SocketPair pair;
  pair.send(bytes);
  shutdown(pair.far, SHUT_WR);
  const int fd = dup(pair.near);
  gzFile stream;
  check(openGZStream(fd, "r", 1, &stream) == 1);
  const std::unique_ptr<char[]> room(new char[777]);
  for (signed char status = 0; status == 0;) {
    unsigned length = 777;
    status = getGZHTTPBody(fd, stream, room.get(), &length, 0, 777);
    check(length <= 777 && (status != 0 || length == 777));
  }
  gzclose(stream);
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

/* A phrase file, a line "==" and a text: an index without its look-up tables must score as the one with them, and so
   must the automaton. */
void phraseScan(Bytes input) {
  const Bytes phrases = parts(input).first, page = parts(input).second;
  if (phrases.empty()) return;
  FILE *stream = fmemopen(const_cast<char *>(phrases.data()), phrases.size(), "r");
  PhraseNode *list = nullptr;
  for (PhraseNode **end = &list; (*end = readPhrase(stream)) != nullptr;) end = &(*end)->next;
  fclose(stream);
  InitialEntry *index = buildIniList(list);
  std::vector<InitialEntry> walked(256);
  for (size_t i = 0; index[i].firstByte != 0; i++) walked[i] = index[i];

  numcategories1 = 1;
  uniqueoccur = input.size() % 2;
  allowedweight = input.size() % 3 == 0 ? 20 : INT_MAX;
  const GuardedText text(page);
  const auto scan = [&](const InitialEntry *by) {
    check(iniContentFilter() == 1);
    const int reached = calcWeight(text.get(), static_cast<int>(page.size()), by, 0);
    return std::pair(reached, totalweight);
  };
  const auto expected = scan(index);
  check(expected == scan(walked.data()));
  phraselists = &list;
  initiallists = &index;
  buildPhraseAutomaton();
  check(iniContentFilter() == 1);
  isOffensiveContent(text.get(), static_cast<int>(page.size()));
  check(expected.second == totalweight);
  phraselists = nullptr;
  initiallists = nullptr;
  freePhraseAutomaton();
  relContentFilter();
  free(index);
  freeList(list);
}

/* HTML to text: the page can only shrink, and what is left over is cleared. */
void htmlToText(Bytes page) {
  const GuardedText text(page);
  auto length = static_cast<int32_t>(page.size());
  ConvertHTMLToText(text.get(), &length);
  check(length >= 0 && static_cast<size_t>(length) <= page.size());
  check(std::all_of(text.get() + length, text.get() + page.size() + 1, [](char c) { return c == '\0'; }));
}

/* Rating labels: the text must be as before afterwards. */
void ratings(Bytes head) {
  icraenable = rsacenable = safesurfenable = 1;
  std::fill_n(icra, std::size(icra), 10); /* so that the later vocabularies are reached */
  const GuardedText text(head);
  checkPICSRating(text.get());
  check(Bytes(text.get(), head.size()) == head);
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

/* What decoding gives of a body in pieces of a size, into room of a size; `bad` comes with what came out before. */
struct Decoded {
  Parse answer = Parse::more;
  string text;
};

Decoded decoded(Coding coding, Bytes in, size_t pieceSize, size_t roomSize) {
  constexpr size_t enough = 1 << 20; /* below, nothing counts as growth beyond bounds */
  Decoded result;
  CodingDecoder decoder;
  decoder.coding = coding;
  string room(roomSize, '\0');
  for (size_t produced = roomSize; !in.empty() || produced == roomSize;) {
    const Bytes piece = in.substr(0, pieceSize);
    size_t used = 0;
    result.answer = decodeCoding(decoder, piece, used, room.data(), roomSize, produced);
    check(used <= piece.size() && produced <= roomSize);
    result.text.append(room, 0, produced);
    in.remove_prefix(used);
    if (result.answer == Parse::bad || result.text.size() >= enough) break;
  }
  if (result.answer != Parse::bad) result.answer = finishCoding(decoder);
  endCoding(decoder);
  return result;
}

/* A coded body; the first three bytes choose gzip or deflate, the size of pieces and of the room. How it is cut makes
   no difference, and a whole zlib stream is one for zlibDecompress too. */
void codings(Bytes input) {
  if (input.size() < 3) return;
  const Coding coding = input[0] % 2 == 0 ? Coding::gzip : Coding::deflate;
  const size_t pieceSize = 1 + size_t{static_cast<unsigned char>(input[1])};
  const size_t roomSize = 1 + size_t{static_cast<unsigned char>(input[2])};
  input.remove_prefix(3);
  const Decoded whole = decoded(coding, input, input.size(), 65536), cut = decoded(coding, input, pieceSize, roomSize);
  if (whole.text.size() < 1 << 20 && cut.text.size() < 1 << 20) {
    check(whole.answer == cut.answer && (whole.answer == Parse::bad || whole.text == cut.text));
  }
  z_stream stream{};
  auto length = static_cast<unsigned>(input.size());
  unsigned char status = 77;
  const Text inflated(zlibDecompress(input.data(), &length, &status, 1, &stream));
  check(inflated && inflated.get()[length] == '\0');
  inflateEnd(&stream);
  if (coding == Coding::deflate && whole.answer == Parse::done && status == Z_STREAM_END && length < 1 << 20)
    check(whole.text == Bytes(inflated.get(), length));
}

/* A request's path: what is looked up of it is bounded, and resolved where servers would. */
void resolution(Bytes path) {
  Header header;
  if (!scan("GET http://h/" + string(path) + " HTTP/1.1\r\nHost: h\r\n\r\n", false, header)) return;
  StrictTarget target;
  const bool parsed = parseStrictTarget(header.first, target).status == 0;
  destroyHeader(&header);
  if (!parsed) return;
  const string asItCame = strictUrl(target), resolved = resolvedUrl(target);
  check(asItCame.starts_with(target.host) && asItCame.size() <= 503 && resolved != asItCame);
  if (resolved.empty()) return;
  check(resolved.starts_with(target.host) && resolved.size() <= 503);
  if (resolved.find('?') != string::npos) return; /* a query may hold what it likes */
  check((resolved + "/").find("/../") == string::npos && (resolved + "/").find("/./") == string::npos);
}

/* A piece of a form: a file's name and type close up inside it. */
void uploads(Bytes input) {
  const GuardedText unended(input, false), body(input);
  const bool named = namesUpload({unended.get(), input.size()});
  const int less = blockAttachment(static_cast<int>(input.size()), body.get());
  check(less >= 0 && static_cast<size_t>(less) <= input.size());
  check(body.get()[input.size()] == '\0');
  const Bytes plain = "\r\nContent-Disposition: form-data; filename=\"f\"\r\n";
  check(named || input.find(plain) == Bytes::npos);
  check(namesUpload(string(input) + string(plain))); /* whatever stands before it */
}

/* A type as a field has it: read without case, parameters and blanks. */
void mediaType(Bytes input) {
  Header header;
  if (scan("HTTP/1.1 200 OK\r\nContent-Type:" + string(input) + "\r\n\r\n", true, header)) {
    string type;
    if (readMediaType(header.first, type)) {
      check(std::none_of(type.begin(), type.end(), [](char c) { return (c >= 'A' && c <= 'Z') || c == ';'; }));
      check(type.empty() || (type.front() != ' ' && type.back() != ' '));
    }
    destroyHeader(&header);
  }
}

/* The form that phrases are looked for in, against its definition. */
void normalForm(Bytes body) {
  const auto isWhite = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  string expected;
  for (const char c : body) {
    if (c == '\0' || (isWhite(c) && expected.ends_with(' '))) continue;
    expected += isWhite(c) ? ' ' : c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  }
  if (expected.ends_with(' ')) expected.pop_back();
  const GuardedText unended(body, false);
  int length = -1;
  const Text text(preProcessBody(unended.get(), static_cast<int>(body.size()), &length));
  check(Bytes(text.get(), static_cast<size_t>(length)) == expected && text.get()[length] == '\0');
}

/* Reads back a text that was escaped for the log. */
string unescaped(Bytes text) {
  string plain;
  for (size_t i = 0; i < text.size(); i++) {
    if (text[i] != '\\') {
      plain += text[i];
      continue;
    }
    const char kind = text.at(++i);
    if (kind == 'x') {
      plain += static_cast<char>(std::stoi(string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      plain += kind == 'r' ? '\r' : kind == 'n' ? '\n' : kind == 't' ? '\t' : kind;
    }
  }
  return plain;
}

/* Peers' text in a page, in a quoted field and in a line of the log: nothing in it ends one of these. */
void escaping(Bytes input) {
  const string page = htmlEscape(input), field = logEscape(input), text(input.substr(0, input.find('\0')));
  check(page.find_first_of("<>\"'") == string::npos);
  check(std::none_of(field.begin(), field.end(), [](char c) { return (c >= 0 && c < 0x20) || c == 0x7F; }));
  check(unescaped(field) == input);
  EscapeText = 1;
  check(strlen(peerText(text.c_str())) <= 283);
  const LogCapture log(7);
  tracePeerLine(5, text.c_str());
  const string line = log.text();
  check(std::count(line.begin(), line.end(), '\n') == 1 && line.ends_with('\n') && line.size() < 1024);
}
