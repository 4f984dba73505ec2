#include "host/storeSetting.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "host/files.h"
#include "host/hostConfig.h"
#include "host/listFiles.h"
#include "netsift.h"
#include "util/ownedText.h"
#include "util/socketAddress.h"

namespace netsift::host {

namespace {

constexpr int32_t strictBits = STRICT_HTTP | STRICT_BLOCK_WITH_200 | STRICT_PASS_UNSCANNED | STRICT_PASS_UNJUDGED;
constexpr size_t longestNetwork = INET6_ADDRSTRLEN + 3; /* "/128" in the place of the terminator */
constexpr size_t mostTexts = 100, longestEntry = 99;    /* of the library's tables of 100 texts of 100 bytes */

/* A value that was given, in the words of an error. */
std::string described(const toml::node &node) {
  if (auto text = node.value_exact<std::string_view>()) return "\"" + std::string(*text) + "\"";
  if (auto number = node.value_exact<int64_t>()) return std::to_string(*number);
  if (auto flag = node.value_exact<bool>()) return *flag ? "true" : "false";
  if (node.is_floating_point()) return "a number with a fraction";
  if (node.is_table()) return "a table";
  return node.is_array() ? "a list" : "a date or time";
}

/* Text that can stand in a C string; none when it is something else or its length is out of bounds. */
std::optional<std::string_view> boundedText(const toml::node &node, size_t shortest, size_t longest) {
  auto text = node.value_exact<std::string_view>();
  if (!text || text->size() < shortest || text->size() > longest || text->find('\0') != text->npos) return {};
  return text;
}

std::optional<int32_t> boundedNumber(const toml::node &node, int32_t minimum, int32_t maximum) {
  auto number = node.value_exact<int64_t>();
  if (!number || *number < minimum || *number > maximum) return {};
  return static_cast<int32_t>(*number);
}

/* The base name of a list's files: it is joined to paths and shown to a shell. One name is that of what is reported. */
bool isBaseName(std::string_view name) {
  constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";
  return !name.empty() && name.size() <= longestCategoryName && name.front() != '.' && name.front() != '-' &&
         !name.ends_with(reportedSuffix) && name.find_first_not_of(allowed) == name.npos;
}

/* What the variables of the current configuration point to. */
std::vector<Text> kept;

template <typename Element>
Element *keptArray(size_t count) {
  auto *array = static_cast<Element *>(std::calloc(count, sizeof(Element)));
  if (array == nullptr) std::abort();
  kept.emplace_back(reinterpret_cast<char *>(array));
  return array;
}

char *keptCopy(std::string_view text) {
  char *copy = keptArray<char>(text.size() + 1);
  text.copy(copy, text.size());
  return copy;
}

/* "[2001:db8::1]", or its start followed by "*", as hosts are written once they are read: in another form it would match
   none. */
bool isSixPattern(std::string_view text) {
  const std::string_view inner = text.substr(1, text.size() - 2);
  SocketAddress address;
  if (text.back() != '*') return parseHost(inner, &address) && "[" + hostText(address) + "]" == text;
  for (size_t i = 1; i < text.size() - 1; i++) {
    const bool begins = text[i - 1] == '[' || text[i - 1] == ':';
    if (begins && text[i] == '0' && text[i + 1] != ':' && text[i + 1] != '*') return false;
  }
  return inner.find_first_not_of("0123456789abcdef:") == inner.npos;
}

/* An address, or its start followed by "*". */
bool isPattern(std::string_view text) {
  if (text.empty() || text.size() > sizeof(IpPattern::pattern)) return false;
  if (text.size() > 1 && text.front() == '[') return isSixPattern(text);
  if (text.back() == '*') return text.find_first_not_of("0123456789.") == text.size() - 1;
  struct in_addr address;
  return inet_pton(AF_INET, std::string(text).c_str(), &address) == 1;
}

struct Network {
  SocketAddress address;
  unsigned bits;
};

/* "10.0.0.0/8", "2001:db8::/32" or a single address. No client has an IPv4 address in IPv6's form. */
bool parseNetwork(std::string_view text, Network *network) {
  size_t slash = std::min(text.find('/'), text.size());
  if (!parseHost(text.substr(0, slash), &network->address)) return false;
  const bool six = isSix(network->address);
  if (six != (text.find(':') != text.npos)) return false;
  const unsigned most = six ? 128 : 32;
  network->bits = most;
  if (slash == text.size()) return true;
  std::string_view digits = text.substr(slash + 1);
  auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), network->bits);
  return error == std::errc{} && end == digits.data() + digits.size() && network->bits <= most;
}

/* The rule for a network, without the bits beyond its mask. Network order, as sin_addr.s_addr has it. */
AclEntry fourRule(const Network &network, AclEntry rule) {
  rule.mask = htonl(network.bits == 0 ? 0 : UINT32_MAX << (32 - network.bits));
  rule.network = network.address.four.sin_addr.s_addr & rule.mask;
  return rule;
}

SixRule sixRule(const Network &network, const AclEntry &rule) {
  SixRule six{{}, {}, rule.from, rule.to, rule.level};
  for (unsigned i = 0; i < sizeof six.mask.s6_addr; i++) {
    const unsigned bits = std::clamp(network.bits, i * 8, i * 8 + 8) - i * 8;
    six.mask.s6_addr[i] = static_cast<uint8_t>(0xFF00U >> bits);
    six.network.s6_addr[i] = network.address.six.sin6_addr.s6_addr[i] & six.mask.s6_addr[i];
  }
  return six;
}

/* "08:30" as minutes of the day; -1 when it is no time. */
int32_t minuteOfDay(std::string_view text) {
  if (text.size() != 5 || text[2] != ':') return -1;
  for (size_t i : {0, 1, 3, 4}) {
    if (text[i] < '0' || text[i] > '9') return -1;
  }
  int32_t hour = (text[0] - '0') * 10 + text[1] - '0', minute = (text[3] - '0') * 10 + text[4] - '0';
  return hour < 24 && minute < 60 ? hour * 60 + minute : -1;
}

/* Stores one value; one overload for each kind of target. */
struct Store {
  const Setting &setting;
  const toml::node &value;
  const std::string &file;
  Problems &problems;

  void fail(const toml::node &where, const std::string &message, const std::string &member = "") const {
    std::string key = fullKey(setting) + (member.empty() ? "" : "." + member);
    problems.push_back({true, file, static_cast<int>(where.source().begin.line), key, message});
  }
  void unexpected(const toml::node &where) const {
    fail(where, "expected " + expectedType(setting) + ", not " + described(where));
  }

  void operator()(const Flag &flag) const {
    auto given = value.value_exact<bool>();
    if (!given) return unexpected(value);
    bool on = *given != flag.inverted;
    if (auto byte = std::get_if<uint8_t *>(&flag.variable)) **byte = on;
    if (auto word = std::get_if<int32_t *>(&flag.variable)) **word = on;
  }

  void operator()(const Bit &bit) const {
    std::string given = value.is_boolean() || value.is_integer() || value.is_string() ? described(value) : "";
    if (given != bit.off && given != bit.on) return unexpected(value);
    int32_t others = *bit.variable & strictBits & ~bit.bit;
    *bit.variable = given == bit.on ? others | bit.bit : others;
  }

  void operator()(const Choice &choice) const {
    auto given = value.value_exact<std::string_view>();
    auto word = given ? std::ranges::find(choice.words, *given) : choice.words.end();
    if (word == choice.words.end()) return unexpected(value);
    *choice.variable = static_cast<int32_t>(word - choice.words.begin());
  }

  void operator()(const Number &number) const {
    auto given = boundedNumber(value, number.minimum, number.maximum);
    if (!given) return unexpected(value);
    *number.variable = *given;
  }

  void operator()(const HostText &text) const {
    auto given = boundedText(value, 0, text.longest);
    if (!given) return unexpected(value);
    *text.variable = *given;
  }

  void operator()(const LibraryText &text) const {
    auto given = boundedText(value, 0, text.longest);
    if (!given || (text.isFileName && (given->empty() || given->find('/') != given->npos))) return unexpected(value);
    *text.variable = keptCopy(*given);
  }

  /* The list's elements, or an error and none. */
  const toml::array *list(size_t most) const {
    const toml::array *array = value.as_array();
    if (array == nullptr) unexpected(value);
    if (array != nullptr && array->size() > most) {
      fail(value, "expected " + expectedType(setting) + ", not " + std::to_string(array->size()));
      return nullptr;
    }
    return array;
  }

  void operator()(const Texts &texts) const {
    const toml::array *array = list(mostTexts);
    if (array == nullptr) return;
    std::memset(*texts.variable, 0, sizeof *texts.variable);
    size_t count = 0;
    for (const toml::node &node : *array) {
      auto text = boundedText(node, 1, longestEntry);
      if (!text || text->find_first_not_of(' ') == text->npos) return unexpected(node);
      std::memcpy((*texts.variable)[count++], text->data(), text->size());
    }
  }

  void operator()(const Ports &ports) const {
    const toml::array *array = list(std::size(*ports.variable));
    if (array == nullptr) return;
    std::memset(*ports.variable, 0, sizeof *ports.variable);
    size_t count = 0;
    for (const toml::node &node : *array) {
      auto port = boundedNumber(node, 1, UINT16_MAX);
      if (!port) return unexpected(node);
      (*ports.variable)[count++] = *port;
    }
  }

  void operator()(const Patterns &patterns) const {
    const toml::array *array = list(SIZE_MAX);
    if (array == nullptr) return;
    IpPattern **tail = patterns.variable;
    *tail = nullptr;
    for (const toml::node &node : *array) {
      auto text = node.value_exact<std::string_view>();
      if (!text || !isPattern(*text)) return unexpected(node);
      *tail = keptArray<IpPattern>(1);
      std::memcpy((*tail)->pattern, text->data(), text->size());
      tail = &(*tail)->next;
    }
  }

  void operator()(const TextList &texts) const {
    const toml::array *array = list(INT32_MAX);
    if (array == nullptr) return;
    /* the server goes on with this list: its nodes are the library's kind */
    delete_all_nodes(*texts.variable);
    *texts.variable = nullptr;
    *texts.count = 0;
    for (const toml::node &node : *array) {
      auto text = boundedText(node, 0, SIZE_MAX);
      if (!text) return unexpected(node);
      append(texts.variable, std::string(*text).c_str());
      ++*texts.count;
    }
  }

  void operator()(const ListenAddresses &) const {
    hostConfig.listen.clear();
    if (value.is_string()) return addListener(value);
    const toml::array *array = list(mostListeners);
    if (array == nullptr) return;
    if (array->empty()) return fail(value, "expected " + expectedType(setting) + ", not an empty list");
    for (const toml::node &node : *array) addListener(node);
  }

  void addListener(const toml::node &node) const {
    SocketAddress address;
    auto text = node.value_exact<std::string_view>();
    if (!text || !parseEndpoint(*text, &address)) return unexpected(node);
    const bool twice = portOf(address) != 0 && std::ranges::find(hostConfig.listen, endpointText(address),
                                                                 endpointText) != hostConfig.listen.end();
    if (twice) return fail(node, endpointText(address) + " is listed twice");
    hostConfig.listen.push_back(address);
  }

  void operator()(const UpstreamAddress &) const {
    auto text = value.value_exact<std::string_view>();
    SocketAddress address{};
    bool direct = text && text->empty();
    if (!direct && (!text || !parseEndpoint(*text, &address) || portOf(address) == 0)) return unexpected(value);
    ProxyPresent = direct ? 0 : 1;
    proxyport = portOf(address);
    proxyip = direct ? nullptr : keptCopy(hostText(address));
  }

  void operator()(const MetricsAddress &) const {
    auto text = value.value_exact<std::string_view>();
    SocketAddress address;
    if (!text || (!text->empty() && !parseEndpoint(*text, &address))) return unexpected(value);
    hostConfig.metricsListen = *text;
  }

  void operator()(const Folder &target) const {
    auto text = boundedText(value, 1, target.longest);
    if (!text || !text->starts_with('/')) return unexpected(value);
    std::string folder = rooted(*text);
    if (!folder.ends_with('/')) folder += '/';
    std::memset(VIRFILE_DIR, 0, sizeof VIRFILE_DIR);
    folder.copy(VIRFILE_DIR, sizeof VIRFILE_DIR - 1);
  }

  /* Whether an array's element is a table without members that are not known. */
  const toml::table *entry(const toml::node &node, std::initializer_list<std::string_view> known) const {
    const toml::table *table = node.as_table();
    if (table == nullptr) {
      unexpected(node);
      return nullptr;
    }
    for (auto &&[name, member] : *table) {
      if (std::ranges::find(known, std::string_view(name.str())) != known.end()) continue;
      fail(member, "unknown key; expected " + expectedType(setting), std::string(name.str()));
    }
    return table;
  }

  /* A member's text; empty, with an error when the member is missing or something else. */
  std::string_view memberText(const toml::table &table, std::string_view name, size_t longest) const {
    const toml::node *member = table.get(name);
    auto text = member == nullptr ? std::nullopt : boundedText(*member, 1, longest);
    if (!text)
      fail(member == nullptr ? table : *member,
           member == nullptr ? "is missing" : "expected " + Store::textType(longest) + ", not " + described(*member),
           std::string(name));
    return text.value_or("");
  }
  static std::string textType(size_t longest) { return "text of 1 to " + std::to_string(longest) + " bytes"; }

  void operator()(const Categories &categories) const {
    const toml::array *array = list(mostCategories);
    if (array == nullptr) return;
    *categories.count = static_cast<uint8_t>(array->size());
    *categories.files = keptArray<char *>(array->size() + 1);
    *categories.names = keptArray<char *>(array->size() + 1);
    size_t i = 0;
    for (const toml::node &node : *array) {
      const toml::table *table = entry(node, {"name", categories.fileKey});
      if (table == nullptr) continue;
      std::string_view base = memberText(*table, categories.fileKey, longestCategoryName);
      if (!base.empty() && !isBaseName(base))
        fail(*table->get(categories.fileKey),
             "expected a file's base name of letters, digits, \"_\", \"-\" and \".\", not ending in \".reported\"",
             categories.fileKey);
      (*categories.names)[i] = keptCopy(memberText(*table, "name", longestCategoryName));
      (*categories.files)[i++] = keptCopy(base);
    }
  }

  /* A member's time of the day, or what holds when it is left out. */
  int32_t memberMinute(const toml::table &table, std::string_view name, int32_t absent) const {
    const toml::node *member = table.get(name);
    if (member == nullptr) return absent;
    int32_t minute = minuteOfDay(member->value_exact<std::string_view>().value_or(""));
    if (minute < 0) fail(*member, "expected a time from \"00:00\" to \"23:59\"", std::string(name));
    return minute;
  }

  void operator()(const AccessRules &) const {
    const toml::array *array = list(INT32_MAX);
    if (array == nullptr) return;
    acllist = keptArray<AclEntry>(array->size() + 1);
    numacllist = 0;
    hostConfig.sixRules.clear();
    for (const toml::node &node : *array) {
      const toml::table *table = entry(node, {"network", "from", "to", "level"});
      if (table == nullptr) continue;
      AclEntry rule{};
      Network network{};
      std::string_view text = memberText(*table, "network", longestNetwork);
      if (!text.empty() && !parseNetwork(text, &network)) {
        fail(*table->get("network"), "expected ADDRESS/BITS, bits 0 to 32, of an IPv6 address 0 to 128", "network");
        network = {};
      }
      rule.from = memberMinute(*table, "from", 0);
      rule.to = memberMinute(*table, "to", 24 * 60 - 1);
      if (rule.from >= 0 && rule.to >= 0 && rule.from > rule.to)
        fail(*table->get("from"), "expected a time not after \"to\"; across midnight, write two rules", "from");
      const toml::node *level = table->get("level");
      auto number = level == nullptr ? std::nullopt : boundedNumber(*level, 1, INT8_MAX);
      if (!number) fail(level == nullptr ? *table : *level, "expected whole number, 1 to 127", "level");
      rule.level = static_cast<int8_t>(number.value_or(0));
      if (isSix(network.address))
        hostConfig.sixRules.push_back(sixRule(network, rule));
      else
        acllist[numacllist++] = fourRule(network, rule);
    }
  }
};

}  // namespace

void releaseSettings() { kept.clear(); }

void storeSetting(const Setting &setting, const toml::node &value, const std::string &file, Problems &problems) {
  std::visit(Store{setting, value, file, problems}, setting.target);
}

}  // namespace netsift::host
