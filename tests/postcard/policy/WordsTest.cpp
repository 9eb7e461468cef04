// Words of users in messages, and guesses at mistyped ones.
#include "postcard/policy/Words.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Postcard::Policy {
namespace {

TEST(InQuotes, showsWhatAReaderSees) {
   const std::string x60(60, 'x');
   EXPECT_EQ(inQuotes(""), "''");
   EXPECT_EQ(inQuotes("a b"), "'a b'");
   EXPECT_EQ(inQuotes("ü…"), "'ü…'");
   EXPECT_EQ(inQuotes("a\n\tb\r\x1b\x7f"), "'a\\n\\tb\\u000d\\u001b\\u007f'");
   EXPECT_EQ(inQuotes("\xe2\x80\xa8"), "'\\u2028'");
   EXPECT_EQ(inQuotes("\xff"), "'\\xff'");
   EXPECT_EQ(inQuotes(x60), "'" + x60 + "'");
   EXPECT_EQ(inQuotes(x60 + "y"), "'" + x60 + "…'");
}

TEST(Closest, isTheWordThatWasProbablyMeant) {
   const std::vector<std::string_view> words = {"policies", "hardware", "tcp", "source",
                                                "source-set"};
   const struct {
      const char* text;
      const char* word;
   } rows[] = {{"polices", "policies"},
               {"policiess", "policies"},
               {"plicis", "policies"},
               {"hardwear", "hardware"},
               {"tcpp", "tcp"},
               {"tc", "tcp"},
               {"sorce", "source"},
               {"source-sets", "source-set"},
               {"tpc", ""},
               {"udp", ""},
               {"plcs", ""},
               {"", ""},
               {"something-else", ""}};
   for (const auto& row : rows) {
      EXPECT_EQ(closest(row.text, words), row.word) << row.text;
   }
   EXPECT_EQ(closest(std::string(1000, 'p'), words), "");
   const std::string longWord(100, 'w');
   EXPECT_EQ(closest(longWord, std::vector<std::string_view>{longWord}), "");
}

TEST(Closest, endsAMessage) {
   EXPECT_EQ(didYouMean("tcp"), "; did you mean 'tcp'?");
   EXPECT_EQ(didYouMean(""), "");
}

} // namespace
} // namespace Postcard::Policy
