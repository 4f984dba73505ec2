#include "host/phraseCheck.h"

#include <gtest/gtest.h>

#include "state/settings.h"

using namespace netsift::host;

TEST(PhraseCheck, WarnsWithTheLineOfTheRecord) {
  const std::string longPhrase(127, 'b');
  const struct {
    std::string text, problems; /* line and message, up to its first punctuation mark; "!" before what is refused */
  } cases[] = {
      {"<\xC3\xA9t\xC3\xA9>5\n<a>-3\n<~>1", ""}, /* bytes above 127 sort first; a last phrase of one byte is found */
      {"<ab>1\n<aa>1\n<~>0\n", "2 out of order|"},
      {"<a>1\n<\"word\">1\n<~>0\n", "2 out of order|"}, /* it is compared as " word " */
      {"<a>1\n<" + longPhrase + ">1\n<~>0", "2 the phrase is 127 bytes long|"},
      {"<a>1\n\n\n<b>0\n<c>\n<~>0", "4 the weight is 0|5 the phrase has no weight|"},
      {"<a>1\n<cc>2\n", "2 the last phrase of a file is never found|"},
      {"<a>1\n<b 2\n", "!2 the record is not closed by \">\"|"},
      {"<a>1 # one\n<~>0", "1 a record must begin with \"<\"|1 the phrase holds a line end|1 out of order|"},
      {"<a>1\n<bB>1\n<~>0", "2 the phrase has capital letters and is never found|"},
      {"<>1\n", "1 the phrase is empty|"},
      {"<aa>1\n<>1\n<ab>1\n<~>0", "2 the phrase is empty|2 out of order|"}, /* it divides those that begin with "a" */
  };
  for (const auto &[text, expected] : cases) {
    Problems problems;
    checkPhrases(text, "f", problems);
    std::string got;
    for (const auto &[fatal, file, line, key, message] : problems)
      got += (fatal ? "!" : "") + std::to_string(line) + " " + message.substr(0, message.find_first_of(",;:")) + "|";
    EXPECT_EQ(got, expected) << text;
  }
}

/* Where words are matched, neither order nor capitals nor what stands last matters. */
TEST(PhraseCheck, LetsWordsBeWrittenAsPeopleDo) {
  StrictHttp = STRICT_HTTP;
  ContentMatch = CONTENT_WORDS;
  Problems problems;
  checkPhrases("<Zonk>1\n<\xC3\xA9t\xC3\xA9>5\n<\"Ab\">1\n<!?>2\n<a>1", "f", problems);
  ASSERT_EQ(problems.size(), 1);
  EXPECT_EQ(problems[0].line, 4);
  EXPECT_TRUE(problems[0].message.starts_with("the phrase has neither letter nor digit")) << problems[0].message;
}
