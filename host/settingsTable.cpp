#include "host/settingsTable.h"

#include <string_view>
#include <vector>

#include "host/hostConfig.h"
#include "log/requestLog.h"
#include "state/connection.h"

namespace netsift::host {

HostConfig hostConfig;

namespace {

constexpr int32_t mostSeconds = 3600, longestLoad = 86400;
constexpr int32_t anyNumber = INT32_MAX;
constexpr size_t longestPath = 1000;
constexpr size_t longestText = 200;

const Setting serviceSettings[] = {
    {"service", "filtering", Flag{&DisableNetsiftService, true}, "true",
     "Judge what passes. When false, everything is passed through unread."},
    {"service", "load_seconds", Number{&hostConfig.loadSeconds, 1, longestLoad, "seconds"}, "300",
     "After how long a loading is given up; at SIGHUP, what was loaded before stays in use."},
    {"listen", "address", ListenAddresses{}, "\"127.0.0.1:8080\"",
     "Where clients connect: one address or several, an IPv6 address in brackets. [\"0.0.0.0:8080\", \"[::]:8080\"] "
     "takes "
     "whoever comes; an IPv6 address takes IPv6 clients alone, and needs strict_http. Port 0 takes a free one, which "
     "is "
     "printed. Read at start only; --listen, once or several times, goes before it."},
    {"listen", "max_connections", Number{&hostConfig.maxConnections, 1, 100000, "connections"}, "256",
     "Connections served at once, each by a process. Further clients wait until one ends."},
    {"listen", "max_connections_per_client", Number{&hostConfig.connectionsPerClient, 0, 100000, "connections"}, "128",
     "Of these, how many one address may have at once; a further one is answered 429. 0: all. Tunnels do not count. "
     "Raise it where many clients come from one address, as behind another proxy. IPv6 addresses count as one when "
     "their "
     "first 64 bits agree, but not those of the networks that this machine is in itself."},
    {"listen", "client_idle_seconds", Number{&ClientIdleSeconds, 1, mostSeconds, "seconds"}, "60",
     "How long a client may keep a connection open without asking for anything, while strict_http is on. Where others "
     "wait since max_connections is reached, such connections are ended at once."},
    {"listen", "request_head_seconds", Number{&RequestHeadSeconds, 1, mostSeconds, "seconds"}, "20",
     "How long the head of a request may take from its first byte to its end, while strict_http is on."},
    {"listen", "request_body_seconds", Number{&RequestBodySeconds, 0, mostSeconds, "seconds"}, "60",
     "How long the client may be waited for in the body of a request, and a second more for each 500 bytes of it, "
     "while "
     "strict_http is on. 0: for ever, as long as something comes every 10 seconds."},
    {"listen", "connections_per_process", Number{&hostConfig.connectionsPerProcess, 1, 1000000, "connections"}, "1000",
     "How many connections a process serves, one after another, before a fresh one takes its place. 1: each connection "
     "has a process of its own."},
    {"listen", "spare_processes", Number{&hostConfig.spareProcesses, 1, 1000, "processes"}, "4",
     "Processes that are kept waiting for clients, within max_connections. While more are needed more are started."},
    {"listen", "max_tunnels", Number{&hostConfig.maxTunnels, 0, 1000000, "tunnels"}, "20000",
     "HTTPS and other connections that are relayed unread, while strict_http is on, are held by one process for all, "
     "up "
     "to so many; they do not count as connections then. Further ones keep the process that served the request, as all "
     "do with 0."},
    {"listen", "drain_seconds", Number{&hostConfig.drainSeconds, 0, mostSeconds, "seconds"}, "10",
     "What running connections are given to finish when the daemon is told to end."},
    {"upstream", "proxy", UpstreamAddress{}, "\"\"",
     "The proxy that every request is forwarded to, as ADDRESS:PORT, an IPv6 address in brackets, for which "
     "strict_http "
     "is needed. Empty: direct to each site."},
    {"upstream", "timeout", Number{&PROXY_TIMEOUT, 1, mostSeconds, "seconds"}, "60",
     "How long to wait for upstream to take or send the next bytes."},
    {"upstream", "keep_seconds", Number{&KeepUpstreamSeconds, 0, mostSeconds, "seconds"}, "15",
     "How long a process keeps a connection to a site, or to the upstream proxy, for its next client, while "
     "strict_http is "
     "on; at most four, and none that a login was sent on. 0: they end with the client's connection."},
    {"http", "strict_http", Bit{&StrictHttp, STRICT_HTTP, "false", "true"}, "true",
     "Read and address requests as RFC 9110 and 9112 say. Needed for today's sites, above all without an upstream "
     "proxy; false keeps the behaviour of old."},
    {"http", "block_status", Bit{&StrictHttp, STRICT_BLOCK_WITH_200, "403", "200"}, "403",
     "The status of block pages while strict_http is on. 200 makes programs take them for what they asked for; the "
     "answer "
     "to a CONNECT is 403 all the same."},
    {"http", "unjudged_text", Bit{&StrictHttp, STRICT_PASS_UNJUDGED, "\"block\"", "\"pass\""}, "\"block\"",
     "What happens, while strict_http is on, to text in a coding that cannot be read (anything but gzip, deflate, br "
     "and "
     "zstd, more than two of them, or text that grows beyond bounds when it is unpacked) and so cannot be judged."},
    {"http", "escape_text", Flag{&EscapeText}, "true",
     "Escape what clients and sites sent before it is shown in pages and written to logs."},
    {"http", "keep_alive", Flag{&DoNotKeepConnectionAlive, true}, "true",
     "Let clients and sites keep connections open. When false, the fields that ask for it are taken out of requests."},
    {"http", "relay_without_length", Flag{&TunnelPacketsWithoutContentLength}, "false",
     "Relay a kept-open response that has no length unexamined. Without effect while strict_http is on."},
};

const Setting requestSettings[] = {
    {"requests", "block_ip_hosts", Flag{&blockip}, "false",
     "Refuse requests whose host is an IP address instead of a name."},
    {"requests", "allowed_ip_hosts", Patterns{&WhiteIP1}, "[]",
     "Hosts let through although they are addresses, while block_ip_hosts is on; they are not held against "
     "the blacklists, nor, with strict_http off, is what the same connection asks for afterwards. \"10.0.*\" covers "
     "every host that begins so."},
    {"requests", "use_blocked_ip_hosts", Flag{&ALLOWALLIP}, "false", "Refuse the hosts of blocked_ip_hosts."},
    {"requests", "blocked_ip_hosts", Patterns{&BLACKIPINURL}, "[]",
     "Addresses refused as hosts while use_blocked_ip_hosts is on. They go before allowed_ip_hosts."},
    {"requests", "trace_client_mark", Number{&whiteclientipinurl1, 0, anyNumber, ""}, "0",
     "A number written to the debug log at level 6 with each request; it changes nothing."},
    {"requests", "block_ports", Flag{&block_ports}, "true", "Refuse requests to the ports of blocked_ports."},
    {"requests", "blocked_ports", Ports{&blockedports}, "[19, 22, 23, 25, 110, 143, 445, 465, 587]",
     "The ports refused while block_ports is on, also on whitelisted sites."},
    {"requests", "connect_ports", Ports{&connectports}, "[443]",
     "The ports to which CONNECT, which browsers use for HTTPS, may open a tunnel while strict_http is on. Empty: "
     "every "
     "port that is not refused above."},
    {"requests", "connect_any_protocol", Flag{&TunnelTlsOnly, true}, "false",
     "Let tunnels carry whatever they like, unread. When false, while strict_http is on, a tunnel begins with TLS, and "
     "the server's name in it is held against the lists as the CONNECT's host was, or with the handshake of a "
     "WebSocket, which is judged as a request; anything else is ended."},
    {"requests", "client_hello_seconds", Number{&ClientHelloSeconds, 1, mostSeconds, "seconds"}, "10",
     "In which a client has to begin with TLS after its CONNECT was answered."},
    {"requests", "match_server_name", Flag{&MatchServerName}, "false",
     "End tunnels whose server name is another than the host of their CONNECT, or that have none; those to an address "
     "are judged by the name. An encrypted ClientHello shows an outer name, and is ended then too."},
    {"requests", "tunnel_idle_seconds", Number{&TunnelIdleSeconds, 1, longestLoad, "seconds"}, "900",
     "How long a tunnel, or a connection that has changed its protocol, may be without traffic while strict_http is "
     "on."},
    {"requests", "local_addresses", Bit{&RefuseLocalAddresses, 1, "\"pass\"", "\"refuse\""}, "\"refuse\"",
     "What happens, while strict_http is on, to requests for loopback and link-local addresses and those of this "
     "machine, the filter's own among them. Before an upstream proxy only addresses and the name localhost are known "
     "for that; to other names it is the proxy that must refuse."},
    {"requests", "pass_messengers", Flag{&tunnelmessengers}, "false",
     "Relay requests whose URL contains one of messenger_urls unfiltered, with all that follows on the connection; "
     "untouched, but for the head's connection fields while strict_http is on."},
    {"requests", "messenger_urls", Texts{&tunnellist}, "[]", "Pieces of URLs by which messenger traffic is known."},
    {"requests", "log_messengers", Flag{&logtunnel}, "false",
     "Keep a transcript of relayed messenger traffic in the log folder."},
    {"requests", "block_uploads", Flag{&blockupload}, "false",
     "Take files out of forms sent to sites. While strict_http is on, the whole request is refused instead, also when "
     "its body cannot be looked through: coded in what cannot be read, or a form in a character set like "
     "UTF-16; and port 8100 is no exception then."},
    {"requests", "upload_sites", Texts{&uploadwhitelist}, "[]",
     "Pieces of URLs to which files may be sent while block_uploads is on. \"www.\" at the front is disregarded."},

    {"lists", "use_whitelist", Flag{&enable_whitelist}, "true",
     "Let the sites of the list \"whitelist\" pass: no other list, MIME type or phrase is held against them."},
    {"lists", "block_ads", Flag{&blockad}, "true", "Answer the servers of the list \"adserver\" with nothing."},
    {"lists", "check_blacklists", Flag{&urlcheck}, "true", "Refuse what a category below lists."},
    {"lists", "phrases_anywhere_in_url", Flag{&phraseinurl}, "false",
     "How a category's one-word phrases refuse URLs too: true: the word anywhere in the URL; false: at its start, with "
     "or without \"www.\"."},
    {"lists", "category", Categories{"file", &numcategories, &categfiles, &categname}, "[]",
     "Blacklists, the first that matches wins: a name shown to people, and the base name of the files FILE.dom, "
     "FILE.url.orig (or FILE.url) and FILE.phrase in the configuration folder.",
     "name = \"Sample category\"\nfile = \"sample\"\n"},

    {"popups", "block", Flag{&blockpopup}, "false",
     "Put the script below into HTML pages, except on the sites of the list \"popup\"."},
    {"popups", "script", HostText{&hostConfig.popupScript, longestPath}, "\"popupblocker.js.html\"",
     "File with the bytes inserted after the page's opening html tag, at most 65536; a relative name lies in the "
     "configuration folder. Read when block is on."},
};

const Setting contentSettings[] = {
    {"content", "blocked_types", Texts{&blockedcontent}, "[]",
     "Refuse responses whose content type contains one of these, for example \"application/x-msdownload\". Capital "
     "letters match small ones while strict_http is on."},
    {"content", "check_phrases", Flag{&contentcheck}, "true",
     "Weigh the visible text of pages against the phrases of the categories below."},
    {"content", "match", Bit{&ContentMatch, CONTENT_WORDS, "\"bytes\"", "\"words\""}, "\"words\"",
     "How phrases are found. \"words\": as people read them, in whatever charset, capitals, spelling of accents and "
     "markup a page has them, and all over a page. \"bytes\", and always while strict_http is off: in the page's "
     "bytes, 64 KB by 64 KB."},
    {"content", "types", Texts{&JudgedTypes},
     "[\"text/*\", \"application/xhtml+xml\", \"application/xml\", \"application/*+xml\", \"image/svg+xml\", "
     "\"application/json\", "
     "\"multipart/*\", \"message/rfc822\"]",
     "Content types that are judged as text while match is \"words\"; \"*\" stands for any run. What comes without "
     "a type always is."},
    {"content", "threshold", Number{&allowedweight, 1, anyNumber, ""}, "100",
     "A page whose phrases of one category together weigh this much is refused."},
    {"content", "count_once", Flag{&uniqueoccur}, "false", "Count each phrase once a page, however often it occurs."},
    {"content", "report_urls", Flag{&addurltolist}, "false",
     "Add the URL of a page refused for its phrases to the blacklist FILE of the same base name, kept in "
     "FILE.reported.url.orig. Anybody who can have a page show such phrases, be it as the words of a search, can so "
     "have its URL refused to all. The categories that both lists share must stand at the same place in both."},
    {"content", "category", Categories{"phrases", &numcategories1, &categfiles1, &categname1}, "[]",
     "Phrase lists, judged in this order: a name shown to people, and the base name of the file PHRASES.phrase in the "
     "configuration folder.",
     "name = \"Sample category\"\nphrases = \"sample\"\n"},

    {"ratings", "check", Flag{&testforratings}, "false", "Judge the rating labels that pages carry in their head."},
    {"ratings", "use_icra", Flag{&icraenable}, "true", "Judge ICRA labels, by the limits of [ratings.icra]."},
    {"ratings", "use_rsac", Flag{&rsacenable}, "true", "Judge RSACi labels, by the limits of [ratings.rsac]."},
    {"ratings", "use_safesurf", Flag{&safesurfenable}, "true",
     "Judge SafeSurf labels, by the limits of [ratings.safesurf]."},
};

const Setting scanSettings[] = {
    {"scanning", "scan", Flag{&virusscan}, "false",
     "Have response bodies scanned for viruses before delivery. Where a client asks for a range of a file, the engines "
     "see that part of it alone."},
    {"scanning", "primary_engine", Flag{&DoVlavScan}, "false",
     "Ask the engine at /opt/Velmora/var/run/vlav under the root."},
    {"scanning", "second_engine", Flag{&DoClamScan}, "true", "Ask the engine that speaks the clamd protocol."},
    {"scanning", "second_engine_socket", HostText{&hostConfig.secondEngineSocket, longestSocketPath},
     "\"/opt/Velmora/var/run/vlcavd.sock\"",
     "Where that engine listens. When it is not the default, the default path is made a symbolic link to it."},
    {"scanning", "spool_folder", Folder{longestPath}, "\"/opt/Velmora/var/spool/\"",
     "Folder of the files handed to the engines. With the root in front and \"/\" at its end at most 33 bytes long. "
     "Made when missing, closed to all but the daemon's user and group: an engine's user must be in that group."},
    {"scanning", "first_scan_kib", Number{&startScanSize, 0, 4194303, "KiB"}, "1024",
     "Body collected before the first scan; doubled after each. 0: one scan near the end of the first body."},
    {"scanning", "greeting_timeout", Number{&MAX_TIME_FOR_VLAV, 0, mostSeconds, "seconds"}, "30",
     "How long the primary engine's line dialogue waits for a greeting."},
    {"scanning", "engine_timeout", Number{&EngineTimeout, 0, mostSeconds, "seconds"}, "60",
     "How long an engine may take for a file, while strict_http is on. 0: as long as it likes."},
    {"scanning", "scanner_down", Bit{&StrictHttp, STRICT_PASS_UNSCANNED, "\"block\"", "\"pass\""}, "\"block\"",
     "What happens, while strict_http is on, to a body that an engine cannot be asked about, fails on or is not done "
     "with "
     "in time. With \"pass\" a site can make that happen, and is then not scanned."},
    {"scanning", "skip_domains", Flag{&VirWL_Domain}, "false",
     "Do not scan what comes from the hosts of viruswhite_dom.conf in the configuration folder. While it is on, style "
     "sheets are scanned and skip_types is not looked at."},
    {"scanning", "skip_types", Flag{&VirWL_MimeType}, "false",
     "Do not scan the content types of viruswhite.conf in the configuration folder."},
    {"scanning", "skip_texts", Texts{&viruswhitelist}, "[]",
     "Texts for hosts built on the library; the connection cycle does not ask for them."},
    {"scanning", "relay_whitelisted", Flag{&vs_tunnel}, "false", "Relay whitelisted sites untouched."},

    {"cache", "enabled", Flag{&disableCache, true}, "true",
     "Remember verdicts on pages, so that an unchanged page is not judged twice."},
    {"cache", "max_entries", Number{&CacheMaxEntries, 0, 10000000, "verdicts"}, "200000",
     "So many verdicts are kept, some hundredths more at times; when there are more, any of them go. 0: all are kept, "
     "and the file only grows."},
    {"cache", "keep_on_load", Flag{&hostConfig.keepCache}, "false",
     "Keep the verdicts at a start and at SIGHUP, also those that changed lists and settings would turn. When false, "
     "each loading begins with none, but connections that were served before it may still add theirs."},
    {"cache", "url_cache", TextList{&URL_CACHE, &URL_CACHESIZE}, "[]",
     "Texts that the list kept through the notification socket starts with."},
};

/* In the order of NETSIFT_LOG_... */
constexpr const char *requestFormats[NETSIFT_LOG_FORMATS] = {"squid", "combined", "json"};

const Setting logSettings[] = {
    {"log", "debug_file", HostText{&hostConfig.debugFile, longestPath}, "\"netsift-debug.log\"",
     "The debug log, which has a line for every request. A relative name lies in /var/Velmora/var/log/ under the "
     "root."},
    {"log", "debug_level", Number{&hostConfig.debugLevel, 0, 7, ""}, "1",
     "0 nothing, 1 requests and failures, 2 errors of peers, 4 main events, 5 message heads, 6 calls, 7 everything."},
    {"log", "debug_tag", HostText{&hostConfig.debugTag, longestDebugTag}, "\"\"",
     "Text at the start of every line of it."},
    {"log", "requests", Flag{&hostConfig.logRequests}, "false",
     "Write a line for every request, whatever becomes of it, into a log of their own."},
    {"log", "requests_file", HostText{&hostConfig.requestFile, longestPath}, "\"netsift-requests.log\"",
     "That log. A relative name lies in /var/Velmora/var/log/ under the root. SIGUSR1 opens it anew."},
    {"log", "format", Choice{&hostConfig.requestFormat, requestFormats}, "\"json\"",
     "How its lines are written: \"squid\" is that proxy's native format, \"combined\" that of web servers, which "
     "analysers read; \"json\" is an object a line, and alone says why something was blocked."},
    {"log", "query", Flag{&hostConfig.cutQueries, true}, "true",
     "Write URLs with what follows their \"?\", which often is what people searched for."},
    {"log", "access_log", Flag{&logenable}, "true", "Write a line for every block of the kinds below, and of viruses."},
    {"log", "access_file", LibraryText{&logfilename, 100, true}, "\"netsift-access.log\"",
     "Its name in /var/Velmora/var/log/ under the root."},
    {"log", "ports", Flag{&logport}, "true", "Blocks by port, and tunnels that do not begin as they have to."},
    {"log", "ip_hosts", Flag{&logip}, "true", "Blocks of addresses as hosts, and of the machine's own."},
    {"log", "urls", Flag{&logurl}, "true", "Blocks by a blacklist."},
    {"log", "types", Flag{&logmime}, "true", "Blocks by content type."},
    {"log", "ratings", Flag{&lograting}, "true", "Blocks by rating label."},
    {"log", "content", Flag{&logcontent}, "true", "Blocks by phrases."},

    {"metrics", "listen", MetricsAddress{}, "\"\"",
     "Where GET /metrics is answered in Prometheus' text format, and GET /health with 200 while clients are served; as "
     "ADDRESS:PORT, for example 127.0.0.1:9180. Whoever can connect there can read it. Port 0 takes a free one, which "
     "is "
     "printed. Empty: nothing is counted. Read at start only."},

    {"pages", "administrator", LibraryText{&mailto, longestText}, "\"postmaster@localhost\"",
     "Whom people may ask: %a in the page templates."},
    {"pages", "error_code", LibraryText{&errorcode, longestText}, "\"\"",
     "%e in the page templates as long as nothing was written to the debug log, whose latest time stamp takes its "
     "place."},

    {"", "access", AccessRules{}, "[]",
     "Who is served when: clients of a network, given as ADDRESS/BITS of IPv4 or IPv6, from one time of the day to "
     "another, both "
     "inclusive (the whole day when absent). Level 1: unfiltered; 2: filtered, as everybody is whom no rule names; 3 "
     "to 127: refused. Of several rules that apply, the highest level holds.",
     "# network = \"10.0.0.0/8\"\n# from = \"08:00\"\n# to = \"17:59\"\n# level = 1\n"},
};

constexpr std::string_view icraKeys[] = {"la", "ca", "cb", "lb", "lc", "na", "nb", "nc", "nd", "ne",
                                         "nf", "ng", "nh", "ni", "nr", "ns", "nt", "oa", "ob", "oc",
                                         "od", "oe", "of", "og", "oh", "va", "vb", "vc", "vd", "ve",
                                         "vf", "vg", "vh", "vi", "vj", "vr", "vs", "vt", "vu", "vk"};
constexpr std::string_view rsacKeys[] = {"violence", "sex", "nudity", "language"};
struct NamedKey {
  std::string_view key, rates;
};
constexpr NamedKey safesurfKeys[] = {{"000", "age range"},
                                     {"001", "profanity"},
                                     {"002", "heterosexual themes"},
                                     {"003", "homosexual themes"},
                                     {"004", "nudity"},
                                     {"005", "violence"},
                                     {"006", "sex, violence and profanity"},
                                     {"007", "intolerance"},
                                     {"008", "glorifying drug use"},
                                     {"009", "other adult themes"},
                                     {"00A", "gambling"}};

/* What the first letter of an ICRA key stands for in the published vocabulary. */
std::string icraTopic(std::string_view key) {
  switch (key.front()) {
    case 'l':
      return "language";
    case 'c':
      return "chat";
    case 'n':
      return "nudity and sexual material";
    case 'v':
      return "violence";
    default:
      return "other topics";
  }
}

Setting rating(std::string section, std::string_view key, int32_t *limit, std::string rates) {
  return {std::move(section),
          std::string(key),
          Number{limit, 0, highestRating, ""},
          "0",
          "Highest value let through: " + std::move(rates) + ".",
          {}};
}

std::vector<Setting> makeTable() {
  std::vector<Setting> table;
  auto add = [&table](std::span<const Setting> some) { table.insert(table.end(), some.begin(), some.end()); };
  add(serviceSettings);
  add(requestSettings);
  add(contentSettings);
  for (size_t i = 0; i < std::size(icraKeys); i++)
    table.push_back(rating("ratings.icra", icraKeys[i], &icra[i], icraTopic(icraKeys[i])));
  for (size_t i = 0; i < std::size(rsacKeys); i++)
    table.push_back(rating("ratings.rsac", rsacKeys[i], &rsac[i], std::string(rsacKeys[i])));
  for (size_t i = 0; i < std::size(safesurfKeys); i++)
    table.push_back(rating("ratings.safesurf", safesurfKeys[i].key, &safesurf[i], std::string(safesurfKeys[i].rates)));
  add(scanSettings);
  add(logSettings);
  return table;
}

/* One overload for each kind of target. */
struct TypeText {
  std::string operator()(const Flag &) const { return "true or false"; }
  std::string operator()(const Bit &bit) const {
    return *bit.off == 'f' ? "true or false" : std::string(bit.off) + " or " + bit.on;
  }
  std::string operator()(const Choice &choice) const {
    std::string words;
    for (const char *word : choice.words) words += (words.empty() ? "\"" : ", \"") + std::string(word) + "\"";
    return "one of " + words;
  }
  std::string operator()(const Number &number) const {
    std::string unit = *number.unit == '\0' ? "" : std::string(" of ") + number.unit;
    return "whole number" + unit + ", " + std::to_string(number.minimum) + " to " + std::to_string(number.maximum);
  }
  std::string operator()(const HostText &text) const { return limitedText(text.longest); }
  std::string operator()(const LibraryText &text) const {
    return (text.isFileName ? "name of a file, a " : "") + limitedText(text.longest);
  }
  std::string operator()(const Texts &) const { return "list of at most 100 texts of 1 to 99 bytes"; }
  std::string operator()(const Ports &) const { return "list of at most 100 port numbers, 1 to 65535"; }
  std::string operator()(const Patterns &) const {
    return "list of addresses, each of which may end in \"*\" instead; those of IPv6 as in \"[2001:db8:*\", in their "
           "shortest form, lower case, at most 16 characters";
  }
  std::string operator()(const TextList &) const { return "list of texts"; }
  std::string operator()(const ListenAddresses &) const {
    return "text, or list of 1 to " + std::to_string(mostListeners) + " texts: ADDRESS:PORT, port 0 to 65535";
  }
  std::string operator()(const UpstreamAddress &) const { return "text: ADDRESS:PORT, port 1 to 65535, or empty"; }
  std::string operator()(const MetricsAddress &) const { return "text: ADDRESS:PORT, port 0 to 65535, or empty"; }
  std::string operator()(const Folder &) const { return "text: absolute path"; }
  std::string operator()(const Categories &categories) const {
    return std::string("at most ") + std::to_string(mostCategories) + " tables with the texts name and " +
           categories.fileKey;
  }
  std::string operator()(const AccessRules &) const { return "tables with network, level, and possibly from and to"; }
  static std::string limitedText(size_t longest) { return "text of at most " + std::to_string(longest) + " bytes"; }
};

}  // namespace

std::span<const Setting> settings() {
  static const std::vector<Setting> table = makeTable();
  return table;
}

std::string fullKey(const Setting &setting) {
  return setting.section.empty() ? setting.key : setting.section + "." + setting.key;
}

std::string expectedType(const Setting &setting) { return std::visit(TypeText{}, setting.target); }

bool isTableArray(const Setting &setting) {
  return std::holds_alternative<Categories>(setting.target) || std::holds_alternative<AccessRules>(setting.target);
}

}  // namespace netsift::host
