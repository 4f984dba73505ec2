#include "http/strictForm.h"

#include <arpa/inet.h>
#include <idn2.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "http/requestUrl.h"
#include "http/strictParse.h"

namespace netsift {
namespace {

constexpr size_t longestName = 255;     /* RFC 1035 section 2.3.4 */
constexpr size_t longestWritten = 2048; /* in any form */

struct IdnFree {
  void operator()(char *text) const { idn2_free(text); }
};

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/* The name as its A-labels, which is what the name servers know; as it is when it is ASCII. */
bool toAscii(std::string_view name, std::string &ascii) {
  ascii = name.find('%') == name.npos ? std::string(name) : percentDecoded(name);
  if (isAscii(ascii)) return true;
  char *converted = nullptr;
  const int answer = idn2_to_ascii_8z(ascii.c_str(), &converted, IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
  const std::unique_ptr<char, IdnFree> owned(converted);
  if (answer == IDN2_OK) ascii = converted;
  return answer == IDN2_OK;
}

/* RFC 3986 section 3.2.2. An empty label: names that no list entry equals. */
bool isRegisteredName(std::string_view name) {
  static constexpr std::string_view marks = "-._~!$&'()*+,;=";
  if (name.empty() || name.starts_with('.') || name.find("..") != name.npos) return false;
  return std::all_of(name.begin(), name.end(), [](char c) { return isAlphanumeric(c) || marks.find(c) != marks.npos; });
}

/* "08.1.2.3" and "1.2.3.4.5": no address here, but one to whom leading zeros or further numbers mean nothing. */
bool endsInNumber(std::string_view host) {
  std::string_view label = host.substr(host.rfind('.') + 1);
  const bool hexadecimal = label.starts_with("0x");
  if (hexadecimal) label.remove_prefix(2);
  return std::all_of(label.begin(), label.end(),
                     [hexadecimal](char c) { return hexadecimal ? isHex(c) != 0 : c >= '0' && c <= '9'; });
}

std::string dotted(in_addr address) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

bool readBracketed(std::string_view name, std::string &host) {
  if (!name.ends_with(']')) return false;
  in6_addr address;
  if (inet_pton(AF_INET6, std::string(name.substr(1, name.size() - 2)).c_str(), &address) != 1) return false;
  if (IN6_IS_ADDR_V4MAPPED(&address)) {
    in_addr mapped;
    std::memcpy(&mapped, address.s6_addr + 12, sizeof mapped);
    host = dotted(mapped);
    return true;
  }
  char text[INET6_ADDRSTRLEN];
  host = std::string("[") + inet_ntop(AF_INET6, &address, text, sizeof text) + "]";
  return true;
}

/* -- paths -- */

constexpr unsigned dropsParameters = 1, resolvesFirst = 2, decodesTwice = 4, turnsBackslashes = 8,
                   dropsDecodedParameters = 16, mergesSlashes = 32;

bool has(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

/* Each segment up to its first ";". */
std::string withoutParameters(std::string_view path) {
  std::string kept;
  bool drops = false;
  for (const char c : path) {
    drops = c == ';' || (drops && c != '/');
    if (!drops) kept += c;
  }
  return kept;
}

std::string withMergedSlashes(std::string path) {
  path.erase(std::unique(path.begin(), path.end(), [](char a, char b) { return a == '/' && b == '/'; }), path.end());
  return path;
}

/* RFC 3986 section 5.2.4, for a path that begins with "/" or is empty or "*"; `encoded`: "%2E" is a dot too. */
std::string withoutDotSegments(std::string_view path, bool encoded) {
  std::string kept;
  for (size_t end = 0; !path.empty(); path.remove_prefix(end)) {
    end = std::min(path.find('/', 1), path.size());
    const std::string_view segment = path.substr(0, end);
    const std::string name = encoded ? percentDecoded(segment) : std::string(segment);
    const bool isLast = end == path.size(), isUp = name == "/..";
    if (isUp) kept.erase(std::min(kept.rfind('/'), kept.size()));
    if (!isUp && name != "/.") {
      kept += segment;
    } else if (isLast) {
      kept += '/';
    }
  }
  return kept;
}

std::string readAs(std::string_view path, unsigned ways) {
  std::string read = (ways & dropsParameters) != 0 ? withoutParameters(path) : std::string(path);
  if ((ways & resolvesFirst) != 0) {
    if ((ways & mergesSlashes) != 0) read = withMergedSlashes(std::move(read));
    read = withoutDotSegments(read, true);
  }
  read = percentDecoded(read);
  if ((ways & decodesTwice) != 0) read = percentDecoded(read);
  if ((ways & turnsBackslashes) != 0) std::replace(read.begin(), read.end(), '\\', '/');
  if ((ways & dropsDecodedParameters) != 0) read = withoutParameters(read);
  if ((ways & mergesSlashes) != 0) read = withMergedSlashes(std::move(read));
  return withoutDotSegments(read, false);
}

/* Those that may make another path of this one; a path where they meet has 64 readings at most. */
unsigned waysThatMatter(std::string_view path) {
  const std::string once = percentDecoded(path);
  std::string most = percentDecoded(once);
  unsigned ways = most != once ? decodesTwice : 0;
  if (has(path, ";")) ways |= dropsParameters;
  if (std::count(most.begin(), most.end(), ';') > std::count(path.begin(), path.end(), ';'))
    ways |= dropsDecodedParameters;
  if (has(most, "\\")) ways |= turnsBackslashes;
  std::replace(most.begin(), most.end(), '\\', '/');
  if (has(most, "..")) ways |= resolvesFirst;
  if (has(most, "//") || has(most, "/;")) ways |= mergesSlashes;
  return ways;
}

}  // namespace

std::string percentDecoded(std::string_view text) {
  std::string decoded;
  for (size_t i = 0; i < text.size(); i++) {
    const bool escape = text[i] == '%' && i + 2 < text.size() && isHex(text[i + 1]) != 0 && isHex(text[i + 2]) != 0;
    const char byte =
        escape ? hexToChar(static_cast<char>(text[i + 1] | 0x20), static_cast<char>(text[i + 2] | 0x20)) : text[i];
    decoded += byte == '\0' ? text[i] : byte;
    if (escape && byte != '\0') i += 2;
  }
  return decoded;
}

bool readHostName(std::string_view name, std::string &host) {
  if (name.starts_with('[')) return readBracketed(name, host);
  std::string ascii;
  if (name.size() > longestWritten || !toAscii(name, ascii)) return false;
  if (!isRegisteredName(ascii) || ascii.size() > longestName) return false;
  for (char &c : ascii) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  if (ascii.ends_with('.')) ascii.pop_back();
  in_addr address;
  const bool isAddress = inet_aton(ascii.c_str(), &address) != 0;
  if (!isAddress && endsInNumber(ascii)) return false;
  host = isAddress ? dotted(address) : ascii;
  return true;
}

std::vector<std::string> pathReadings(std::string_view path) {
  const unsigned matter = waysThatMatter(path);
  std::vector<std::string> readings;
  for (unsigned ways = 0; ways <= matter; ways++) {
    if ((ways & ~matter) != 0) continue;
    std::string reading = readAs(path, ways);
    if (std::find(readings.begin(), readings.end(), reading) == readings.end()) readings.push_back(std::move(reading));
  }
  return readings;
}

}  // namespace netsift
