#include "host/listFormat.h"

#include <arpa/inet.h>

#include <array>
#include <cstdlib>
#include <utility>

#include "host/files.h"
#include "http/listForm.h"
#include "util/ownedText.h"

namespace netsift::host {

namespace {

using std::string_view;

constexpr string_view blanks = " \t\v\f", byteOrderMark = "\xEF\xBB\xBF", hostEnds = "/?#";
constexpr size_t longestMarker = 200;

constexpr const char *noHost = "is no host; correct it or take it out";
constexpr const char *hasPath = "is more than a host; a list of URLs (NAME.url.orig) takes it";
constexpr const char *hasStar = "has a \"*\" in a host; only \"*.\" at its front means something";
constexpr const char *redirects = "points to another machine and blocks nothing; take it out, or the address";
constexpr const char *hides = "hides a part of pages, which is not done here";
constexpr const char *excepts = "is an exception; its host may stand in whitelist.dom";
constexpr const char *restricts = "holds for some requests only, which is not done here";
constexpr const char *noHostRule = "is no rule for a whole host";
constexpr const char *oddBytes = "stands for a \"*\" or control bytes, which an entry cannot have";

/* What a line is being read into. */
struct Reader {
  Converted &converted;
  bool blocks;
  int line;
  void add(string_view host, string_view rest = "") const {
    converted.entries.append(host).append(rest).push_back('\n');
  }
  void leaveOut(const char *why) const { converted.leftOut.push_back({line, why}); }
};

string_view trimmed(string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

string_view takeWord(string_view &rest) {
  rest = trimmed(rest);
  const string_view word = rest.substr(0, rest.find_first_of(blanks));
  rest.remove_prefix(word.size());
  return word;
}

string_view withoutComment(string_view line) {
  for (size_t mark = line.find('#'); mark != line.npos; mark = line.find('#', mark + 1)) {
    if (mark == 0 || blanks.find(line[mark - 1]) != blanks.npos) return trimmed(line.substr(0, mark));
  }
  return trimmed(line);
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

std::string lowered(string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), lower);
  return result;
}

string_view withoutScheme(string_view text) {
  const size_t mark = text.find("://");
  return mark != text.npos && text.find_first_of(hostEnds) > mark ? text.substr(mark + 3) : text;
}

/* Most names are in that form already. */
bool isInListForm(string_view name) {
  const auto isPlain = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.'; };
  const bool dots = name.empty() || name.front() == '.' || name.find("..") != name.npos || name.size() > 200;
  return !dots && name.back() >= 'a' && name.find("0x") == name.npos && std::ranges::all_of(name, isPlain);
}

/* As the library has it; empty when it is no address of the web. */
std::string listForm(string_view address) {
  if (isInListForm(address)) return std::string(address);
  const Text form(netsift_listForm(std::string(address).c_str()));
  return form ? form.get() : "";
}

/* "192.168": the leading part of addresses, which would else be read as one. */
bool isAddressPart(string_view word) {
  return word.find_first_not_of("0123456789.") == word.npos && std::ranges::count(word, '.') < 3;
}

/* The name without "www.", which most sites answer to as well; empty where there is none, and where what follows is
   rather what names are registered below ("www.gov.uk") than a site. */
string_view withoutWww(string_view host) {
  if (!host.starts_with("www.")) return {};
  const string_view name = host.substr(4);
  const size_t dot = name.find('.'), last = name.rfind('.');
  const bool isRegistry = dot == last && dot <= 3 && name.size() - dot == 3;
  return dot == name.npos || isRegistry ? string_view() : name;
}

void readDomain(string_view word, const Reader &reader) {
  word = withoutScheme(word);
  if (word.starts_with("*.")) word.remove_prefix(2);
  if (word.starts_with('.')) word.remove_prefix(1);
  const size_t end = std::min(word.find_first_of(hostEnds), word.size());
  if (end + 1 < word.size()) return reader.leaveOut(hasPath);
  word = word.substr(0, end);
  if (word.ends_with(".*")) word.remove_suffix(1);
  while (word.ends_with('.')) word.remove_suffix(1);
  if (word.find('*') != word.npos) return reader.leaveOut(hasStar);
  const std::string host = isAddressPart(word) ? std::string(word) : listForm(word);
  if (host.empty()) return reader.leaveOut(noHost);
  const string_view bare = reader.blocks ? withoutWww(host) : string_view();
  reader.add(bare.empty() ? host : bare);
}

bool isOwnName(string_view name) {
  constexpr string_view own[] = {"localhost", "localhost.localdomain", "local", "broadcasthost", "0.0.0.0"};
  return name.starts_with("ip6-") || std::ranges::find(own, name) != std::end(own);
}

/* Whether the word is an address, and whether it is one at which nobody answers. */
bool readAddress(string_view word, bool &isNowhere) {
  std::array<unsigned char, 16> bytes{};
  const std::string text(word);
  if (inet_pton(AF_INET, text.c_str(), bytes.data()) == 1) {
    isNowhere = bytes[0] == 0 || bytes[0] == 127;
    return true;
  }
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) != 1) return false;
  isNowhere =
      bytes[15] <= 1 && std::all_of(bytes.begin(), bytes.end() - 1, [](unsigned char byte) { return byte == 0; });
  return true;
}

void readHostsLine(string_view line, const Reader &reader) {
  string_view rest = line;
  const string_view first = takeWord(rest);
  bool isNowhere = true;
  if (!readAddress(first, isNowhere))
    return trimmed(rest).empty() ? readDomain(first, reader) : reader.leaveOut(noHost);
  for (string_view name = takeWord(rest); !name.empty(); name = takeWord(rest)) {
    if (isOwnName(name)) continue;
    if (!isNowhere) return reader.leaveOut(redirects);
    readDomain(name, reader);
  }
}

/* Options that leave a rule one for all requests. */
bool areHarmless(string_view options) {
  constexpr string_view harmless[] = {"all", "document", "doc", "important"};
  while (!options.empty()) {
    const string_view option = options.substr(0, options.find(','));
    if (std::ranges::find(harmless, option) == std::end(harmless)) return false;
    options.remove_prefix(std::min(option.size() + 1, options.size()));
  }
  return true;
}

void readFilterRule(string_view line, const Reader &reader) {
  if (line.starts_with("@@")) return reader.leaveOut(excepts);
  if (line.find("##") != line.npos || line.find("#@#") != line.npos || line.find("#?#") != line.npos)
    return reader.leaveOut(hides);
  if (!line.starts_with("||")) return reader.leaveOut(noHostRule);
  line.remove_prefix(2);
  const size_t dollar = std::min(line.find('$'), line.size());
  if (dollar < line.size() && !areHarmless(line.substr(dollar + 1))) return reader.leaveOut(restricts);
  line = line.substr(0, dollar);
  if (line.ends_with('|')) line.remove_suffix(1);
  if (line.ends_with('^')) line.remove_suffix(1);
  if (line.find_first_of("/^|") != line.npos) return reader.leaveOut(noHostRule);
  readDomain(line, reader);
}

/* A pattern keeps its pieces as they are, but for the host before the first of them. */
void readPattern(string_view url, const Reader &reader) {
  const size_t slash = std::min(url.find('/'), url.size()), star = url.find('*');
  if (slash < star) {
    const std::string host = listForm(url.substr(0, slash));
    return host.empty() ? reader.leaveOut(noHost) : reader.add(host, url.substr(slash));
  }
  const bool isAscii = std::ranges::all_of(url.substr(0, star), [](char c) { return c > ' ' && c != '\x7F'; });
  if (!isAscii) return reader.leaveOut(hasStar);
  reader.add(lowered(url.substr(0, star)), url.substr(star));
}

void readUrl(string_view line, const Reader &reader) {
  line = withoutScheme(line);
  if (line.starts_with('.')) line.remove_prefix(1);
  if (std::ranges::any_of(line, [](char c) { return c == '\x7F' || c == '\xFF'; })) return reader.leaveOut(oddBytes);
  if (line.find('*') != line.npos) return readPattern(line, reader);
  const std::string url = listForm(line);
  const auto isOdd = [](char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7F' || c == '\xFF' || c == '*';
  };
  if (url.empty()) return reader.leaveOut(noHost);
  if (std::ranges::any_of(url, isOdd)) return reader.leaveOut(oddBytes);
  reader.add(url);
  const string_view host = string_view(url).substr(0, url.find('/'));
  if (const string_view bare = withoutWww(host); reader.blocks && !bare.empty())
    reader.add(bare, string_view(url).substr(host.size()));
}

void readLine(string_view line, ListFormat format, const Reader &reader) {
  const bool isRule = format == ListFormat::adblock;
  line = isRule ? trimmed(line) : withoutComment(line);
  const bool isComment = isRule && (line.starts_with('!') || line.starts_with('[') || line.starts_with("# "));
  if (line.empty() || isComment) return;
  if (format == ListFormat::hosts) return readHostsLine(line, reader);
  if (format == ListFormat::domains) return readDomain(line, reader);
  return isRule ? readFilterRule(line, reader) : readUrl(line, reader);
}

string_view withoutMark(string_view text) {
  return text.starts_with(byteOrderMark) ? text.substr(byteOrderMark.size()) : text;
}

}  // namespace

ListFormat listFormat(string_view text) {
  constexpr string_view word = "format:";
  text = withoutMark(text);
  if (!text.starts_with('#') && !text.starts_with('!')) return ListFormat::none;
  text = text.substr(1, std::min(text.find_first_of("\r\n"), longestMarker) - 1);
  const std::string line = lowered(trimmed(text));
  if (!line.starts_with(word)) return ListFormat::none;
  constexpr std::pair<string_view, ListFormat> formats[] = {{"hosts", ListFormat::hosts},
                                                            {"domains", ListFormat::domains},
                                                            {"adblock", ListFormat::adblock},
                                                            {"urls", ListFormat::urls}};
  for (const auto &[name, format] : formats) {
    if (trimmed(string_view(line).substr(word.size())) == name) return format;
  }
  return ListFormat::unknown;
}

ListFormat listFormatOf(const std::string &path) { return listFormat(startOfFile(path, longestMarker)); }

const char *formatFault(ListFormat format, bool isUrls) {
  if (format == ListFormat::none) return nullptr;
  if (format == ListFormat::unknown) return "names a format that is none; hosts, domains, adblock and urls are";
  if (isUrls == (format == ListFormat::urls)) return nullptr;
  return isUrls ? "names a format of hosts, which belong in the .dom file; only urls is one here"
                : "names a format of URLs, which belong in the .url.orig file; hosts, domains and adblock are for this "
                  "one";
}

Converted convertList(string_view text, ListFormat format, bool blocks) {
  Converted converted;
  converted.entries.reserve(text.size());
  bool isMarker = true;
  eachLine(withoutMark(text), [&](string_view line, int number) {
    if (!std::exchange(isMarker, false)) readLine(line, format, {converted, blocks, number});
  });
  return converted;
}

Converted convertLine(string_view line, int number, ListFormat format, bool blocks) {
  Converted converted;
  readLine(line, format, {converted, blocks, number});
  return converted;
}

}  // namespace netsift::host
