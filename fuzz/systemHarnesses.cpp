/* Harnesses over what has peers and files: engines, the host's socket, configuration, and a whole response on its way
   through. */
#include <memory>

#include "fuzz/harness.h"
#include "host/configRead.h"
#include "host/listCheck.h"
#include "host/notify.h"
#include "host/phraseCheck.h"
#include "host/popupScript.h"
#include "http/strictChunk.h"
#include "http/strictCoding.h"
#include "http/strictForward.h"
#include "http/strictFraming.h"
#include "http/strictHead.h"
#include "tests/support/scriptedDaemon.h"

using namespace netsift::host;

/* What a peer does that says its piece to whoever connects, and reads until that one leaves. */
ScriptedDaemon::Script saying(Bytes answer) {
  return [answer](int fd) { say(fd, answer), shutdown(fd, SHUT_WR), readToEnd(fd); };
}

int lowestFree() {
  const int fd = dup(0);
  close(fd);
  return fd;
}

/* What an engine says; the first byte chooses how it was asked, and whether under StrictHttp, which leaves no socket
   open. */
void engines(Bytes input) {
  static const ScratchRoot root;
  const int how = static_cast<unsigned char>(input[0]) % 3, before = lowestFree();
  StrictHttp = input[0] < 0 ? STRICT_HTTP : 0;
  MAX_TIME_FOR_VLAV = 1;
  const std::unique_ptr<char[]> shortName(new char[256]()), longName(new char[2047]());
  int32_t verdict = 0;
  {
    const ScriptedDaemon engine(root, how == 2 ? "vlcavd.sock" : "vlav", saying(input.substr(1)));
    const int first = lowestFree();
    verdict = how == 0   ? Scan("/file", shortName.get())
              : how == 1 ? isInfected("/file", longName.get())
                         : isInfectedclam("/file");
    if (StrictHttp == 0) close(first); /* where it is left to its process's end */
  }
  check(lowestFree() == before);
  check(verdict >= NETSIFT_SCAN_GAVE_UP && verdict <= NETSIFT_SCAN_INFECTED);
  check(memchr(shortName.get(), 0, 256) != nullptr && memchr(longName.get(), 0, 2047) != nullptr);
}

/* A message on the notification socket: at most one line more in the list, and no other text kept than it says. */
void notification(Bytes message) {
  static const ScratchRoot root;
  static char name[] = "sample", *names[] = {name};
  static const string added = root.config("sample.reported.url.orig"), own = root.config("sample.url.orig");
  numcategories = numcategories1 = 1;
  categfiles = categfiles1 = names;
  writeFile(root.config("sample.url"), "");
  writeFile(root.config("sample.dom"), "");
  writeFile(added, "");
  check(makeBlackLists() == 1);
  handleMessage(message);
  const string line = readFile(added);
  check(line.empty() || line.find('\n') == line.size() - 1);
  check(line.find('*') == string::npos && access(own.c_str(), F_OK) != 0);
  check(URL_CACHESIZE == (URL_CACHE != nullptr ? 1 : 0));
  check(URL_CACHE == nullptr || message.find(URL_CACHE->text) != Bytes::npos);
  freeBlackLists();
  unlink(added.c_str());
  delete_all_nodes(URL_CACHE);
  URL_CACHE = nullptr;
  URL_CACHESIZE = 0;
}

/* A configuration, a phrase file or lists, as the first byte has it; what is said of them names lines that they have.
 */
void configuration(Bytes input) {
  static const ScratchRoot root;
  static const string config = root.config("c.toml");
  const Bytes text = input.substr(1);
  const int what = static_cast<unsigned char>(input[0]) % 3;
  Problems problems;
  if (what == 0) {
    writeFile(config, text);
    readConfiguration(config, problems);
  } else if (what == 1) {
    checkPhrases(text, "file", problems);
    writeFile(root.config("c.phrase"), text);
    PhraseNode *list = buildList("c");
    free(buildIniList(list));
    freeList(list);
  } else {
    writeFile(config, "");
    check(readConfiguration(config, problems));
    for (const char *kind : {".url", ".dom", ".url.orig", ".phrase"}) {
      for (const char *list : {"whitelist", "adserver", "popup"}) writeFile(root.config(list + string(kind)), text);
    }
    checkLists(problems);
  }
  const auto lines = 1 + std::count_if(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; });
  for (const Problem &problem : problems) check(problem.line >= 0 && problem.line <= lines && !problem.message.empty());
  const string json = problemsJson(problems);
  check(std::none_of(json.begin(), json.end(), [](char c) { return c >= 0 && c < 0x20 && c != '\n'; }));
}

/* -- a whole response -- */

struct Choices {
  bool head, again, judges, scans, infected, inserts;
};

const ScratchRoot &deliverySetting() {
  static const ScratchRoot root;
  static char *none[] = {nullptr};
  writeFile(root.config("template.htm"), "<p>%r");
  writeFile(root.config("errortemplate.htm"), "<p>%r");
  writeFile(root.config("sample.phrase"), "<zonk>50\n<~~>0\n");
  writeFile(root.config("script"), "<script></script>");
  check(loadPopupScript(root.config("script")).empty());
  nameCategories({"sample"});
  check(makePhraseLists() == 1);
  popuplist = {sym_create_table_(nullptr, 0), none, none};
  EscapeText = uniqueoccur = disableCache = DoClamScan = ProxyPresent = 1;
  allowedweight = 50;
  PROXY_TIMEOUT = 1;
  snprintf(VIRFILE_DIR, sizeof VIRFILE_DIR, "%s/", root.path().c_str());
  return root;
}

/* The client's side of one connection: the requests go out, and what came back is returned. */
string servedBy(const ScratchRoot &root, const Choices &choices, Bytes response) {
  static char local[] = "127.0.0.1";
  const string line = (choices.head ? "HEAD" : "GET") + string(" http://h/p HTTP/1.1\r\nHost: h\r\n");
  const ScriptedDaemon upstream(saying(response));
  const ScriptedDaemon scanner(root, "vlcavd.sock", saying(choices.infected ? "f: X FOUND\n" : "f: OK\n"));
  proxyip = local;
  proxyport = upstream.port;
  proxysock = -1;
  const SocketPair client;
  clientsock = client.near;
  string received;
  std::thread reader([&] { received = readToEnd(client.far); });
  client.send((choices.again ? line + "\r\n" : "") + line + "Connection: close\r\n\r\n");
  connectionHandle();
  shutdown(client.near, SHUT_RDWR);
  reader.join();
  if (proxysock >= 0) close(proxysock); /* the host's to close, as the client's is */
  return received;
}

/* What a text would be judged as by itself. */
bool isBlockedText(Bytes body) {
  const SocketPair nobody;
  clientsock = nobody.near;
  check(iniContentFilter() == 1);
  string text(body);
  return checkAllRight(text.data(), static_cast<int32_t>(text.size()), 1) != 0;
}

/* What comes in chunks that may be cut off, and how long they are. */
string dechunked(Bytes bytes, size_t &used) {
  ChunkDecoder decoder;
  string out(bytes.size(), '\0');
  size_t produced = 0;
  check(decodeChunks(decoder, bytes, used, out.data(), out.size(), produced) != Parse::bad);
  return out.substr(0, produced);
}

/* The text of a coded body, as far as a client could read it. */
string unpacked(const ContentCodings &codings, Bytes body) {
  CodingChain chain;
  startCodings(chain, codings, true);
  string text(70000, '\0');
  size_t used = 0, produced = 0;
  decodeCodings(chain, body, used, text.data(), text.size(), produced);
  return text.substr(0, produced);
}

/* One answer of what the client received, and the rest of it. Nothing is delivered that would have been blocked. */
Bytes checkAnswer(Bytes received, const Choices &choices, unsigned &status) {
  Header header;
  HeadScan head;
  head.response = true;
  size_t used = 0;
  check(scanHead(head, received, used) == Parse::done);
  received.remove_prefix(used);
  headToLines(head, header);
  const ResponseFraming framing = responseFraming(header.first, choices.head);
  check(framing.fault.status == 0 && framing.kind != BodyKind::switching);
  status = framing.line.status;
  const bool toEnd = framing.kind == BodyKind::untilClose;
  const bool none = framing.kind == BodyKind::none || framing.kind == BodyKind::interim;
  size_t length = none ? 0 : toEnd ? received.size() : std::min<uint64_t>(framing.length, received.size());
  const string data =
      framing.kind == BodyKind::chunked ? dechunked(received, length) : string(received.substr(0, length));
  string type;
  check(readMediaType(header.first, type));
  const bool good = status >= 200 && status <= 299;
  const ContentCodings codings = readContentCodings(header.first);
  const string body = codings.known && codings.count > 0 ? unpacked(codings, data) : data;
  if (good && choices.scans && choices.infected) check(body.empty());
  if (good && choices.judges && type.find("text") != string::npos) check(codings.known || body.empty());
  if (good && choices.judges && !choices.inserts && type.find("text") != string::npos && body.size() < 60000)
    check(!isBlockedText(body));
  destroyHeader(&header);
  return received.substr(length);
}

/* A response as it comes from upstream; the first byte chooses request and checks. The client gets whole heads, one
   final answer for each request and nothing behind it, and no descriptor stays open. */
void delivery(Bytes input) {
  static const ScratchRoot &root = deliverySetting();
  const auto bit = [&](int n) { return (input[0] >> n & 1) != 0; };
  const Choices choices = {bit(0), bit(1), bit(2), bit(3), bit(4), bit(5)};
  contentcheck = choices.judges;
  virusscan = choices.scans;
  blockpopup = choices.inserts;
  StrictHttp = STRICT_HTTP;
  const int before = lowestFree();
  const string received = servedBy(root, choices, input.substr(1));
  check(lowestFree() == before);
  unsigned finals = 0;
  for (Bytes rest = received; !rest.empty();) {
    unsigned status = 0;
    rest = checkAnswer(rest, choices, status);
    finals += status >= 200 ? 1 : 0;
    check(finals <= (choices.again ? 2 : 1) && (rest.empty() || finals < (choices.again ? 2 : 1)));
  }
}
