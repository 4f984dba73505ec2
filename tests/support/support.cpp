#include "tests/support/support.h"

#include <sys/mman.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "http/httpHeader.h"
#include "log/debugLog.h"
#include "util/installPath.h"

/* The host's two symbols, as a small host would define them; the daemon's tests bring its own. */
__attribute__((weak)) char popupblocker[] = "<script>1</script>";
__attribute__((weak)) int32_t popuplen = sizeof popupblocker - 1;

namespace netsift::test {

ScratchRoot::ScratchRoot() {
  std::string pattern = std::filesystem::temp_directory_path() / "netsift-test-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) std::abort();
  path_ = pattern;
  for (const char *folder : {"/opt/Velmora/etc/netsift", "/opt/Velmora/var/run", "/var/Velmora/var/log"}) {
    std::filesystem::create_directories(path_ + folder);
  }
  installroot = strdup(path_.c_str());
}

ScratchRoot::~ScratchRoot() {
  std::free(installroot);
  installroot = nullptr;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

LogCapture::LogCapture(int level) : stream_(open_memstream(&buffer_, &size_)) {
  dFileStreamSet(stream_);
  setDebugLevel(level);
  printPID();
}

LogCapture::~LogCapture() {
  dFileStreamSet(nullptr);
  std::fclose(stream_);
  std::free(buffer_);
}

std::string LogCapture::text() const {
  std::fflush(stream_);
  return std::string(buffer_, size_);
}

std::vector<std::string> LogCapture::messages() const {
  std::vector<std::string> found;
  std::istringstream lines(text());
  for (std::string line; std::getline(lines, line);) {
    size_t tag = line.find("]: ");
    found.push_back(tag == std::string::npos ? line : line.substr(tag + 3));
  }
  return found;
}

bool LogCapture::has(std::string_view message) const {
  const std::vector<std::string> all = messages();
  return std::find(all.begin(), all.end(), message) != all.end();
}

SocketPair::SocketPair(int family) {
  int ends[2];
  if (family == AF_INET) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    auto *any = reinterpret_cast<sockaddr *>(&address);
    socklen_t size = sizeof address;
    ends[1] = socket(AF_INET, SOCK_STREAM, 0);
    if (bind(listener, any, size) | listen(listener, 1) | getsockname(listener, any, &size)) std::abort();
    if (connect(ends[1], any, size) != 0) std::abort();
    ends[0] = accept(listener, nullptr, nullptr);
    close(listener);
  } else if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    std::abort();
  }
  near = ends[0];
  far = ends[1];
}

SocketPair::~SocketPair() {
  close(near);
  closeFar();
}

void SocketPair::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    ssize_t count = ::send(far, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) std::abort();
    bytes.remove_prefix(static_cast<size_t>(count));
  }
}

std::string SocketPair::receive() const {
  std::string all;
  char piece[4096];
  for (ssize_t count; (count = recv(far, piece, sizeof piece, MSG_DONTWAIT)) > 0;) {
    all.append(piece, static_cast<size_t>(count));
  }
  return all;
}

GuardedText::GuardedText(std::string_view text, bool terminated) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t size = text.size() + (terminated ? 1 : 0);
  const size_t pages = (size + page - 1) / page + 1;
  mapped_ = pages * page;
  mapping_ = static_cast<char *>(mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  if (mapping_ == MAP_FAILED) std::abort();
  mprotect(mapping_ + mapped_ - page, page, PROT_NONE);
  text_ = mapping_ + mapped_ - page - size;
  if (!text.empty()) std::memcpy(text_, text.data(), text.size());
}

GuardedText::~GuardedText() { munmap(mapping_, mapped_); }

void writeFile(const std::string &path, std::string_view content) {
  std::ofstream(path, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string readFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator(file), {}};
}

void nameCategories(std::vector<std::string> files) {
  static std::vector<std::string> kept;
  static std::vector<char *> names;
  kept = std::move(files);
  names.clear();
  for (std::string &file : kept) names.push_back(file.data());
  categfiles1 = categname1 = names.data();
  numcategories1 = static_cast<uint8_t>(names.size());
}

Header makeHeader(std::initializer_list<std::string_view> lines) {
  const SocketPair pair;
  for (const std::string_view line : lines) pair.send(std::string(line) + "\r\n");
  pair.send("\r\n");
  Header header;
  if (getHeader(pair.near, &header, 0) != 1) std::abort();
  return header;
}

std::string compressed(const std::string &text, int windowBits) {
  z_stream stream{};
  deflateInit2(&stream, 9, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, text.size()) + 32, '\0');
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef *>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::string decoded(const ContentCodings &codings, std::string_view body, size_t pieceSize, size_t roomSize,
                    bool showsRest) {
  CodingChain chain;
  startCodings(chain, codings, showsRest);
  Parse answer = Parse::more;
  std::string text, room(roomSize, '\0');
  for (size_t produced = 0; answer != Parse::bad && (!body.empty() || produced == roomSize);) {
    const std::vector<char> piece(body.begin(),
                                  body.begin() + static_cast<ptrdiff_t>(std::min(pieceSize, body.size())));
    size_t used = 0;
    answer = decodeCodings(chain, {piece.data(), piece.size()}, used, room.data(), roomSize, produced);
    if (used > piece.size() || produced > roomSize) std::abort();
    text.append(room, 0, produced);
    body.remove_prefix(used);
  }
  if (answer != Parse::bad) answer = finishCodings(chain);
  return text + (answer == Parse::done ? "" : "!");
}

std::string take(char *text) {
  if (text == nullptr) return "<none>";
  std::string copy(text);
  std::free(text);
  return copy;
}

}  // namespace netsift::test
