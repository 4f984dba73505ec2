#include "host/configRead.h"

#include <arpa/inet.h>

#include "host/hostConfig.h"
#include "host/settingsPrint.h"
#include "tests/support/support.h"

using namespace netsift::host;

namespace {

/* What is said of a configuration, "LINE: KEY: MESSAGE" each; the file's name before it is left out. */
std::string faults(const std::string &text) {
  const ScratchRoot root;
  std::string path = root.config("c.toml"), said;
  writeFile(path, text);
  Problems problems;
  readConfiguration(path, problems);
  for (const Problem &problem : problems) said += problemLine(problem).substr(path.size() + 1) + "\n";
  return said;
}

std::string repeated(int count, const std::string &text) { return count == 0 ? "" : text + repeated(count - 1, text); }

}  // namespace

TEST(ConfigRead, TellsLineKeyAndWhatIsExpected) {
  const std::pair<const char *, std::string> cases[] = {
      {"[upstream]\n\ntimout = 5", "3: upstream.timout: unknown key; did you mean upstream.timeout?"},
      {"[lisst]", "1: lisst: unknown key; did you mean lists?"},
      {"ratings.icra.zz9plural = 1", "1: ratings.icra.zz9plural: unknown key"},
      {"content.threshold = 4294967297",
       "1: content.threshold: expected whole number, 1 to 2147483647, not 4294967297"},
      {"[requests]\nblocked_ports = [\n80,\n65536]",
       "4: requests.blocked_ports: expected list of at most 100 port numbers, 1 to 65535, not 65536"},
      {"[[lists.category]]\nname = \"a\"", "1: lists.category.file: is missing"},
      {"[log]\nports = 1\n[http]\nstrict = 2", /* in the order of the lines, not of the settings */
       "2: log.ports: expected true or false, not 1\n4: http.strict: unknown key; did you mean http.strict_http?"}};
  for (const auto &[text, fault] : cases) EXPECT_EQ(faults(text), fault + "\n") << text;
  for (const char *broken : {"[http\n", "[[ = 1\n"})
    EXPECT_TRUE(faults(broken).starts_with("1: ")) << "TOML's own errors have a line too";
  EXPECT_EQ(faults(std::string("[log]\n[\0x]", 10)), "2: holds a NUL byte\n");
  EXPECT_EQ(faults("\xEF\xBB\xBF[log] # \u00fc\ndebug_tag = '\u00fc'\n\u021c = 1"),
            "3: a character that is not ASCII stands outside quotes; put the text it belongs to in quotes\n");
  for (const char *nothing : {"", "# log.ports = true\n[log]\n"})
    EXPECT_TRUE(faults(nothing).find("holds no setting, which would lift every list") < 2) << nothing;
}

/* The parser would take the tables that these stand for apart by calling itself. */
TEST(ConfigRead, KeysOfManyPartsAreRefusedBeforeTheyAreParsed) {
  std::string deep, quoted;
  for (int i = 0; i < 19999; i++) {
    deep += "a.";
    quoted += "\"=\".' ' . ";
  }
  const std::pair<std::string, int> cases[] = {{deep + "a = 1", 1},
                                               {"\n[" + deep + "a]", 2},
                                               {"[log]\nx = {y = [{" + quoted + "b = 1}]}", 2},
                                               {"x = {y = '\\', " + deep + "a = 1}", 1},
                                               {"x = {y = \"\\\"\", " + deep + "a = 1}", 1},
                                               {"x = {y = \"\"\"z\"\"\"\", " + deep + "a = 1}", 1},
                                               {"x = \"\"\"\\\"\"\"\na\"\"\"\"\"\n# \"\n" + deep + "a = 1", 4},
                                               {"x = '''\n''''\n\"\"." + deep + "a = 1", 3},
                                               {"a.b.c.d.e.f.g.h.i = 1", 1}};
  for (const auto &[text, line] : cases)
    EXPECT_EQ(faults(text),
              std::to_string(line) + ": a key of more than 8 parts; those of the settings have 3 at most\n");
  const std::string known = "log.debug_tag = \"" + repeated(20, "a.") + "\" # " + repeated(20, "a.");
  EXPECT_EQ(faults(known), "");
  EXPECT_EQ(faults("log.x = [" + repeated(20, "1.5,") + "]\nlog.a.b.c.d.e.f.g = 1"),
            "1: log.x: unknown key\n2: log.a: unknown key; did you mean log.access_log?\n");
}

TEST(ConfigRead, ValuesLandInTheirVariablesWithinTheirBounds) {
  const std::string longest(99, 'x'), hundred = repeated(100, "\"" + longest + "\",");
  const std::string category = "[[lists.category]]\nname = \"N\"\nfile = \"f\"\n";
  ASSERT_EQ(faults("cache.enabled = false\naccess = [{network = \"10.1.2.3/8\", level = 127}, {network = \"10.9.0.7\", "
                   "level = 1}]\n"
                   "ratings = {icra = {vk = 10}, rsac = {language = 4}, safesurf = {00A = 9}}\n"
                   "[requests]\nupload_sites = [\"u\"]\nallowed_ip_hosts = [\"255.255.255.255\", \"*\"]\n"
                   "blocked_ip_hosts = [\"255.255.255.255*\"]\nblocked_ports = [" +
                   repeated(100, "65535,") + "]\nmessenger_urls = [" + hundred + "]\n" + repeated(255, category) +
                   "[[content.category]]\nname = \"C\"\nphrases = \"p\"\n"),
            "");
  EXPECT_TRUE(disableCache == 1 && icra[39] == 10 && rsac[3] == 4 && safesurf[10] == 9);
  EXPECT_TRUE(acllist[0].network == inet_addr("10.0.0.0") && acllist[0].mask == inet_addr("255.0.0.0"));
  EXPECT_TRUE(acllist[1].mask == ~0u && acllist[1].from == 0 && acllist[1].to == 1439);
  EXPECT_EQ(tunnellist[99], longest);
  EXPECT_TRUE(blockedports[99] == 65535 && uploadwhitelist[0][0] == 'u' && uploadwhitelist[1][0] == '\0');
  EXPECT_EQ(std::memcmp(BLACKIPINURL->pattern, "255.255.255.255*", 16), 0);
  EXPECT_TRUE(BLACKIPINURL->next == nullptr && WhiteIP1->next->pattern == std::string("*"));
  EXPECT_TRUE(numcategories == 255 && numcategories1 == 1);
  EXPECT_EQ(categfiles[254] + std::string(categname[0]) + categfiles1[0] + categname1[0], "fNpC");

  EXPECT_EQ(
      faults("content = {threshold = 206, count_once = true, check_phrases = false}\n"
             "scanning = {primary_engine = true, second_engine = false, skip_types = true, relay_whitelisted = true}"),
      "");
  EXPECT_TRUE(allowedweight == 206 && uniqueoccur == 1 && contentcheck == 0 && VirWL_MimeType == 1);
  EXPECT_TRUE(DoVlavScan == 1 && DoClamScan == 0 && vs_tunnel == 1);

  const std::string rule = "access = [{level = 1, network = \"10.0.0.0/";
  const std::vector<std::string> refusals = {"requests.messenger_urls = [" + hundred + "\"x\"]",
                                             "requests.messenger_urls = [\"" + longest + "x\"]",
                                             "requests.messenger_urls = [\"\"]",
                                             repeated(256, category),
                                             "lists.category = [{name = \"a\", file = \"a;b\"}]",
                                             "lists.category = [{name = \"a\", file = \"a.reported\"}]",
                                             "upstream.proxy = \"localhost:3128\"",
                                             "log.access_file = \"../x\"",
                                             "pages.administrator = \"a\\u0000b\"",
                                             rule + "33\"}]",
                                             rule + "8\", to = \"24:00\"}]",
                                             rule + "8\", from = \"22:00\", to = \"06:00\"}]"};
  for (const std::string &refused : refusals) {
    const std::string said = faults(refused);
    EXPECT_TRUE(said.starts_with("1: ") && said.find(": expected ") < said.find('\n')) << refused << "\n" << said;
  }
  const std::pair<const char *, int> strict[] = {{"http.strict_http = false", 0},
                                                 {"http.block_status = 200\nhttp.unjudged_text = \"pass\"", 1 | 2 | 8},
                                                 {"scanning.scanner_down = \"pass\"", 1 | 4}};
  for (const auto &[bits, sum] : strict) EXPECT_TRUE(faults(bits).empty() && StrictHttp == sum) << bits;
}

TEST(ConfigRead, ListenersAndRulesOfBothFamilies) {
  const std::string sixteen = repeated(16, "\"[::]:0\",");
  const std::pair<std::string, std::string> cases[] = {
      {"\"0.0.0.0:8080\"", "0.0.0.0:8080 "},
      {"[\"0.0.0.0:80\", \"[::]:80\", '[0:0::1]:0', '[::ffff:10.0.0.1]:1']", "0.0.0.0:80 [::]:80 [::1]:0 10.0.0.1:1 "},
      {"[" + sixteen + "]", repeated(16, "[::]:0 ")},
      {"[" + sixteen + "'[::]:0']", "expected text, or list of 1 to 16 texts: ADDRESS:PORT, port 0 to 65535, not 17"},
      {"[]", "expected text, or list of 1 to 16 texts: ADDRESS:PORT, port 0 to 65535, not an empty list"},
      {"['[::1]:1', '[0::1]:1']", "[::1]:1 is listed twice"},
      {"'::1:8080'", "expected text, or list of 1 to 16 texts: ADDRESS:PORT, port 0 to 65535, not \"::1:8080\""}};
  for (const auto &[value, expected] : cases) {
    const std::string said = faults("listen.address = " + value);
    std::string found = said.empty() ? "" : said.substr(19, said.size() - 20); /* behind "1: listen.address: " */
    for (const netsift::SocketAddress &each : hostConfig.listen) found += said.empty() ? endpointText(each) + " " : "";
    EXPECT_EQ(found, expected);
  }
  for (const char *pattern : {"[2001:0db8:*", "[2001:DB8::*", "[2001:db8::01]", "[2001:db8::1", "[::ffff:1.2.3.4]", "[",
                              "[2001:db8:0:1:2::]", "2001:db8::*", "[01*"})
    EXPECT_NE(faults("requests.blocked_ip_hosts = [\"" + std::string(pattern) + "\"]"), "") << pattern;
  EXPECT_EQ(
      faults("requests.blocked_ip_hosts = ['[2001:db8::1]', '[2001:db8:0:*', '[2001:0*', '[fe80::*', '[::]', '[*']\n"
             "upstream.proxy = '[0::1]:3128'"),
      "");
  EXPECT_TRUE(proxyip == std::string("::1") && proxyport == 3128 && ProxyPresent == 1);
  EXPECT_EQ(hostConfig.listen.size(), 1u) << "the default takes the place of what was wrong";
  for (const char *network :
       {"2001:db8::/129", "::ffff:10.0.0.0/24", "::ffff:10.0.0.0/104", "[::1]/128", "::1/", "fe80::1%lo"})
    EXPECT_EQ(faults("access = [{level = 1, network = \"" + std::string(network) + "\"}]"),
              "1: access.network: expected ADDRESS/BITS, bits 0 to 32, of an IPv6 address 0 to 128\n");
}

TEST(ConfigRead, WhatIsPrintedIsValidAndWhatIsShipped) {
  EXPECT_EQ(faults(defaultConfiguration()) + faults(sampleConfiguration()), "");
  EXPECT_EQ(sampleConfiguration(), readFile(NETSIFT_SOURCE_DIR "/share/netsiftd.toml"))
      << "netsiftd --print-config > share/netsiftd.toml";
  EXPECT_EQ(configurationReference(), readFile(NETSIFT_SOURCE_DIR "/docs/configuration.md"))
      << "netsiftd --print-config=markdown > docs/configuration.md";
}
