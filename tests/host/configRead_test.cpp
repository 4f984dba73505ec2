#include "host/configRead.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <variant>

#include "host/hostConfig.h"
#include "host/settingsPrint.h"
#include "host/settingsTable.h"
#include "policy/accessList.h"
#include "state/connection.h"
#include "tests/support/support.h"

using namespace netsift::host;
using namespace netsift::test;

namespace {

Problems readText(const std::string &text) {
  ScratchRoot root;
  std::string path = root.config("c.toml");
  writeFile(path, text);
  Problems problems;
  readConfiguration(path, problems);
  for (Problem &problem : problems) problem.file = problem.file == path ? "c.toml" : "?";
  return problems;
}

std::string repeated(int count, const std::string &text) {
  std::string out;
  for (int i = 0; i < count; i++) out += text;
  return out;
}

}  // namespace

TEST(ConfigRead, TellsFileLineKeyAndWhatIsExpected) {
  struct {
    std::string text, problem;
  } cases[] = {
      {"[upstream]\n\ntimout = 5\n", "c.toml:3: upstream.timout: unknown key; did you mean upstream.timeout?"},
      {"[http]\ntimeout = 5\n", "c.toml:2: http.timeout: unknown key; did you mean upstream.timeout?"},
      {"[lisst]\n", "c.toml:1: lisst: unknown key; did you mean lists?"},
      {"[ratings.icra]\nzz9plural = 1\n", "c.toml:2: ratings.icra.zz9plural: unknown key"},
      {"[http]\nstrict = true\n", "c.toml:2: http.strict: unknown key; did you mean http.strict_http?"},
      {"[upstream]\ntimeout = \"5\"\n",
       "c.toml:2: upstream.timeout: expected whole number of seconds, 0 to 3600, not \"5\""},
      {"[upstream]\ntimeout = 3601\n",
       "c.toml:2: upstream.timeout: expected whole number of seconds, 0 to 3600, not 3601"},
      {"[content]\nthreshold = 4294967297\n",
       "c.toml:2: content.threshold: expected whole number, 1 to 2147483647, not 4294967297"},
      {"[lists]\nblock_ads = 1\n", "c.toml:2: lists.block_ads: expected true or false, not 1"},
      {"[upstream]\nproxy = \"localhost:3128\"\n",
       "c.toml:2: upstream.proxy: expected text: IPv4 ADDRESS:PORT, port 1 to 65535, or empty, not "
       "\"localhost:3128\""},
      {"[requests]\nblocked_ports = [\n80,\n65536]\n",
       "c.toml:4: requests.blocked_ports: expected list of at most 100 port numbers, 1 to 65535, not 65536"},
      {"[requests]\nupload_sites = [\"\"]\n",
       "c.toml:2: requests.upload_sites: expected list of at most 100 texts of 1 to 99 bytes, not \"\""},
      {"[log]\naccess_file = \"../x\"\n",
       "c.toml:2: log.access_file: expected name of a file, a text of at most 100 bytes, not \"../x\""},
      {"[[lists.category]]\nname = \"a\"\n", "c.toml:1: lists.category.file: is missing"},
      {"[[lists.category]]\nname = \"a\"\nfile = \"a;b\"\n",
       "c.toml:3: lists.category.file: expected a file's base name of letters, digits, \"_\", \"-\" and \".\""},
      {"[[lists.category]]\nname = \"a\"\nphrases = \"a\"\nfile = \"a\"\n",
       "c.toml:3: lists.category.phrases: unknown key; expected at most 255 tables with the texts name and file"},
      {"[[access]]\nnetwork = \"10.0.0.0/33\"\nlevel = 1\n",
       "c.toml:2: access.network: expected an IPv4 ADDRESS/BITS, bits 0 to 32"},
      {"[[access]]\nnetwork = \"10.0.0.0/8\"\nfrom = \"22:00\"\nto = \"06:00\"\nlevel = 1\n",
       "c.toml:3: access.from: expected a time not after \"to\"; across midnight, write two rules"},
      {"[[access]]\nnetwork = \"10.0.0.0/8\"\nfrom = \"24:00\"\nlevel = 1\n",
       "c.toml:3: access.from: expected a time from \"00:00\" to \"23:59\""},
  };
  for (const auto &[text, expected] : cases) {
    Problems problems = readText(text);
    ASSERT_EQ(problems.size(), 1u) << text;
    EXPECT_EQ(problemLine(problems[0]), expected) << text;
  }
  Problems problems = readText("[log]\nurls = 1\n[http]\nstrict = 2\nescape_text = 3\n");
  ASSERT_EQ(problems.size(), 3u);
  EXPECT_EQ(problems[0].line, 2) << "in the order of the lines";
  EXPECT_EQ(problems[2].line, 5);
  problems = readText("[http\n");
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].line, 1) << "TOML's own errors have a line too";
}

TEST(ConfigRead, EachKeyLandsInItsVariable) {
  struct Case {
    const char *section, *line;
    std::variant<uint8_t *, int32_t *> variable;
    int32_t value;
  } cases[] = {
      {"service", "filtering = false", &DisableNetsiftService, 1},
      {"listen", "max_connections = 3", &hostConfig.maxConnections, 3},
      {"upstream", "timeout = 5", &PROXY_TIMEOUT, 5},
      {"http", "strict_http = false", &StrictHttp, 0},
      {"http", "block_status = 200\nunjudged_text = \"pass\"", &StrictHttp, 1 | 2 | 8},
      {"scanning", "scanner_down = \"pass\"", &StrictHttp, 1 | 4},
      {"http", "escape_text = false", &EscapeText, 0},
      {"http", "keep_alive = false", &DoNotKeepConnectionAlive, 1},
      {"http", "relay_without_length = true", &TunnelPacketsWithoutContentLength, 1},
      {"requests", "block_ip_hosts = true", &blockip, 1},
      {"requests", "use_blocked_ip_hosts = true", &ALLOWALLIP, 1},
      {"requests", "trace_client_mark = 9", &whiteclientipinurl1, 9},
      {"requests", "block_ports = false", &block_ports, 0},
      {"requests", "pass_messengers = true", &tunnelmessengers, 1},
      {"requests", "log_messengers = true", &logtunnel, 1},
      {"requests", "block_uploads = true", &blockupload, 1},
      {"lists", "use_whitelist = false", &enable_whitelist, 0},
      {"lists", "block_ads = false", &blockad, 0},
      {"lists", "check_blacklists = false", &urlcheck, 0},
      {"lists", "phrases_anywhere_in_url = true", &phraseinurl, 1},
      {"popups", "block = true", &blockpopup, 1},
      {"content", "check_phrases = false", &contentcheck, 0},
      {"content", "threshold = 2147483647", &allowedweight, 2147483647},
      {"content", "count_once = true", &uniqueoccur, 1},
      {"content", "report_urls = false", &addurltolist, 0},
      {"ratings", "check = true", &testforratings, 1},
      {"ratings", "use_icra = false", &icraenable, 0},
      {"ratings", "use_rsac = false", &rsacenable, 0},
      {"ratings", "use_safesurf = false", &safesurfenable, 0},
      {"ratings.icra", "la = 1", &icra[0], 1},
      {"ratings.icra", "vk = 10", &icra[39], 10},
      {"ratings.rsac", "language = 4", &rsac[3], 4},
      {"ratings.safesurf", "000 = 1", &safesurf[0], 1},
      {"ratings.safesurf", "00A = 9", &safesurf[10], 9},
      {"scanning", "scan = true", &virusscan, 1},
      {"scanning", "primary_engine = true", &DoVlavScan, 1},
      {"scanning", "second_engine = false", &DoClamScan, 0},
      {"scanning", "first_scan_kib = 4194303", &startScanSize, 4194303},
      {"scanning", "greeting_timeout = 7", &MAX_TIME_FOR_VLAV, 7},
      {"scanning", "skip_domains = true", &VirWL_Domain, 1},
      {"scanning", "skip_types = true", &VirWL_MimeType, 1},
      {"scanning", "relay_whitelisted = true", &vs_tunnel, 1},
      {"cache", "enabled = false", &disableCache, 1},
      {"cache", "keep_on_load = true", &hostConfig.keepCache, 1},
      {"cache", "url_cache = [\"a\", \"b\"]", &URL_CACHESIZE, 2},
      {"log", "debug_level = 7", &hostConfig.debugLevel, 7},
      {"log", "access_log = false", &logenable, 0},
      {"log", "ports = false", &logport, 0},
      {"log", "ip_hosts = false", &logip, 0},
      {"log", "urls = false", &logurl, 0},
      {"log", "types = false", &logmime, 0},
      {"log", "ratings = false", &lograting, 0},
      {"log", "content = false", &logcontent, 0},
  };
  for (const Case &c : cases) {
    std::visit([](auto *variable) { *variable = 77; }, c.variable);
    EXPECT_TRUE(readText(std::string("[") + c.section + "]\n" + c.line + "\n").empty()) << c.line;
    EXPECT_EQ(std::visit([](auto *variable) { return int64_t{*variable}; }, c.variable), c.value) << c.line;
  }
}

TEST(ConfigRead, TextsListsAndTablesLandWithinTheirBounds) {
  std::string longest(99, 'x'), hundred = repeated(100, "\"" + longest + "\",");
  std::string text = "[upstream]\nproxy = \"10.1.2.3:3128\"\n[requests]\nmessenger_urls = [" + hundred +
                     "]\nupload_sites = [\"u\"]\nblocked_ports = [" + repeated(100, "65535,") +
                     "]\nallowed_ip_hosts = [\"255.255.255.255\", \"*\"]\nblocked_ip_hosts = [\"255.255.255.255*\"]\n" +
                     "[content]\nblocked_types = [\"t\"]\n[scanning]\nskip_texts = [\"s\"]\nspool_folder = \"/s\"\n" +
                     "[pages]\nadministrator = \"me\"\nerror_code = \"e\"\n[log]\naccess_file = \"a\"\n" +
                     repeated(255, "[[lists.category]]\nname = \"N\"\nfile = \"f\"\n") +
                     "[[content.category]]\nname = \"C\"\nphrases = \"p\"\n";
  ASSERT_TRUE(readText(text).empty());
  EXPECT_EQ(ProxyPresent, 1);
  EXPECT_STREQ(proxyip, "10.1.2.3");
  EXPECT_EQ(proxyport, 3128);
  EXPECT_EQ(tunnellist[99], longest);
  EXPECT_STREQ(uploadwhitelist[0], "u");
  EXPECT_STREQ(uploadwhitelist[1], "") << "shorter lists are ended";
  EXPECT_EQ(blockedports[99], 65535);
  EXPECT_STREQ(WhiteIP1->pattern, "255.255.255.255");
  EXPECT_STREQ(WhiteIP1->next->pattern, "*");
  EXPECT_EQ(std::memcmp(BLACKIPINURL->pattern, "255.255.255.255*", 16), 0);
  EXPECT_EQ(BLACKIPINURL->next, nullptr);
  EXPECT_STREQ(blockedcontent[0], "t");
  EXPECT_STREQ(viruswhitelist[0], "s");
  EXPECT_STREQ(VIRFILE_DIR, "/s/");
  EXPECT_STREQ(mailto, "me");
  EXPECT_STREQ(errorcode, "e");
  EXPECT_STREQ(logfilename, "a");
  EXPECT_EQ(numcategories, 255);
  EXPECT_STREQ(categfiles[254], "f");
  EXPECT_STREQ(categname[0], "N");
  EXPECT_EQ(numcategories1, 1);
  EXPECT_STREQ(categfiles1[0], "p");
  EXPECT_STREQ(categname1[0], "C");

  EXPECT_EQ(readText("[requests]\nmessenger_urls = [" + hundred + "\"x\"]\n").size(), 1u);
  EXPECT_EQ(readText("[requests]\nmessenger_urls = [\"" + longest + "x\"]\n").size(), 1u);
  EXPECT_EQ(readText("[pages]\nadministrator = \"a\\u0000b\"\n").size(), 1u);
  EXPECT_EQ(readText(repeated(256, "[[lists.category]]\nname = \"N\"\nfile = \"f\"\n")).size(), 1u);
}

TEST(ConfigRead, AccessRulesAreInTheOrderOfTheClientsAddress) {
  ASSERT_TRUE(readText("[[access]]\nnetwork = \"10.1.2.3/8\"\nlevel = 1\n[[access]]\nnetwork = \"10.9.0.7\"\n"
                       "level = 3\n[[access]]\nnetwork = \"192.168.0.0/16\"\nfrom = \"00:00\"\nto = \"23:59\"\n"
                       "level = 127\n")
                  .empty());
  EXPECT_EQ(acllist[2].to, 1439);
  EXPECT_EQ(getAccessControl(inet_addr("10.255.0.1")), 1);
  EXPECT_EQ(getAccessControl(inet_addr("10.9.0.7")), 3);
  EXPECT_EQ(getAccessControl(inet_addr("10.9.0.8")), 1);
  EXPECT_EQ(getAccessControl(inet_addr("192.168.200.1")), 127);
  EXPECT_EQ(getAccessControl(inet_addr("11.0.0.1")), 2);
}

TEST(ConfigRead, WhatIsPrintedIsValidAndWhatIsShipped) {
  EXPECT_TRUE(readText("").empty()) << "every default is within its limits";
  EXPECT_TRUE(readText(sampleConfiguration()).empty());
  EXPECT_EQ(numcategories, 1);
  EXPECT_EQ(sampleConfiguration(), readFile(NETSIFT_SOURCE_DIR "/share/netsiftd.toml"))
      << "netsiftd --print-config > share/netsiftd.toml";
  EXPECT_EQ(configurationReference(), readFile(NETSIFT_SOURCE_DIR "/docs/configuration.md"))
      << "netsiftd --print-config=markdown > docs/configuration.md";
}
