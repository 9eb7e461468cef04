// What `Pello::String` promises: immutable shared characters, any bytes, comparison by bytes.
#include "Pello/String.h"

#include "Pello/Format.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <vector>

namespace {

using Pello::String;

static_assert(sizeof(String) == 8);
static_assert(std::is_nothrow_copy_constructible_v<String>);
static_assert(std::is_nothrow_move_constructible_v<String>);

const std::string nul{"a\0b", 3};

TEST(String, emptyFromEverywhere) {
   const std::vector<String> empties{
         String{}, "", std::string{}, std::string_view{}, String::join({}), String::join({"", ""})};
   for (const String& empty : empties) {
      EXPECT_TRUE(empty.empty());
      EXPECT_EQ(empty.size(), 0U);
      EXPECT_STREQ(empty.c_str(), "");
      EXPECT_EQ(empty, String{});
      EXPECT_EQ(empty.str(), "");
   }
}

TEST(String, keepsEveryByte) {
   const String text{nul};
   EXPECT_EQ(text.size(), 3U);
   EXPECT_EQ(text.str(), nul);
   EXPECT_STREQ(text.c_str(), "a");
   EXPECT_EQ(text.c_str()[3], '\0');
   EXPECT_FALSE(text.empty());
   EXPECT_NE(text, "a");
}

TEST(String, joinPutsThePiecesOneAfterAnother) {
   EXPECT_EQ(String::join({"web", "", "-", nul, "6"}).str(), "web-" + nul + "6");
   EXPECT_EQ(String::join({"one"}), "one");
}

TEST(String, copiesShareTheCharacters) {
   const String first{"shared"};
   const String second = first; // NOLINT(performance-unnecessary-copy-initialization)
   const String made{"shared"};
   EXPECT_EQ(second.c_str(), first.c_str());
   EXPECT_NE(made.c_str(), first.c_str());
   EXPECT_EQ(made, first);
}

TEST(String, charactersOutliveTheFirstOwner) {
   String kept;
   {
      const String first{"outlives"};
      kept = first;
   }
   EXPECT_EQ(kept, "outlives");
}

TEST(String, movingLeavesTheEmptyString) {
   String from{"text"};
   const char* characters = from.c_str();
   String to{std::move(from)};
   EXPECT_EQ(to.c_str(), characters);
   EXPECT_TRUE(from.empty()); // NOLINT(bugprone-use-after-move)
   from = std::move(to);
   EXPECT_EQ(from, "text");
}

TEST(String, selfAssignmentKeepsTheText) {
   String text{"same"};
   String& alias = text;
   text = alias;
   EXPECT_EQ(text, "same");
   text = std::move(alias);
   EXPECT_EQ(text, "same");
}

TEST(String, comparesWithEveryKindOfText) {
   const String text{"b"};
   EXPECT_TRUE(text == "b" && "b" == text);
   EXPECT_TRUE(text == std::string{"b"} && std::string{"b"} == text);
   EXPECT_TRUE(text == std::string_view{"b"} && std::string_view{"b"} == text);
   EXPECT_TRUE(text < "c" && "a" < text);
   EXPECT_TRUE(text < std::string{"c"} && std::string{"a"} < text);
   EXPECT_TRUE(text < std::string_view{"c"} && std::string_view{"a"} < text);
   EXPECT_TRUE(text != "c" && text >= "b" && text > "a");
}

TEST(String, orderIsByUnsignedBytes) {
   const std::vector<String> ascending{
         "", std::string{'\0'}, "a", nul, "aa", "b", "\x7f", "\x80", "\xff"};
   for (std::size_t i = 0; i < ascending.size(); ++i) {
      for (std::size_t j = 0; j < ascending.size(); ++j) {
         EXPECT_EQ(ascending[i] <=> ascending[j], i <=> j) << i << " and " << j;
         EXPECT_EQ(ascending[i] == ascending[j], i == j) << i << " and " << j;
      }
   }
}

TEST(String, containsFindsTextAnywhere) {
   const String text{"rule-" + nul};
   for (const std::string_view part : {"", "rule", "-a", "rule-"}) {
      EXPECT_TRUE(text.contains(part)) << part;
   }
   EXPECT_TRUE(text.contains(nul));
   EXPECT_FALSE(text.contains("rules"));
   EXPECT_TRUE(String{}.contains(""));
   EXPECT_FALSE(String{}.contains("a"));
}

struct Place {
   std::string text;
   std::string part;
   std::size_t from;
   std::size_t found;
};

const Place places[] = {
      {"web-class", "class", 0, 4},
      {"web-class", "web", 0, 0},
      {"web-class", "s", 8, 8},
      {"web-class", "web", 1, String::npos},
      {"web-class", "", 9, 9},
      {"web-class", "", 10, String::npos},
      {"web-class", "dns", 0, String::npos},
      {"", "", 0, 0},
      {"", "a", 0, String::npos},
};

TEST(String, findsTheFirstPlace) {
   for (const auto& [text, part, from, found] : places) {
      EXPECT_EQ(String{text}.find(part, from), found) << text << " " << part << " " << from;
   }
   EXPECT_EQ(String{"web-class"}.find('-'), 3U);
   EXPECT_EQ(String{"web-class"}.find('s', 8), 8U);
   EXPECT_EQ(String{nul}.find('\0'), 1U);
   EXPECT_EQ(String{"web"}.find('x'), String::npos);
}

TEST(String, givesItsCharactersByIndexAndInOrder) {
   const String text{nul};
   EXPECT_EQ(text.length(), 3U);
   EXPECT_EQ(text[0], 'a');
   EXPECT_EQ(text[1], '\0');
   EXPECT_EQ(text[2], 'b');
   std::string walked;
   for (const char character : text) {
      walked += character;
   }
   EXPECT_EQ(walked, nul);
   EXPECT_EQ(String{}.begin(), String{}.end());
}

TEST(String, substrCopiesAPart) {
   const String text{"web-class"};
   EXPECT_EQ(text.substr(4), "class");
   EXPECT_EQ(text.substr(0, 3), "web");
   EXPECT_EQ(text.substr(4, 100), "class");
   EXPECT_EQ(text.substr(9), "");
   EXPECT_THROW(text.substr(10), std::out_of_range);
}

TEST(String, plusJoinsWithEveryKindOfText) {
   const String web{"web"};
   EXPECT_EQ(web + "-tcp", "web-tcp");
   EXPECT_EQ("my-" + web, "my-web");
   EXPECT_EQ(web + web, "webweb");
   EXPECT_EQ(web + std::string{"-"} + std::string_view{"x"}, "web-x");
   EXPECT_EQ(std::string{"a"} + web, "aweb");
   EXPECT_EQ(std::string_view{nul} + web, nul + "web");
   EXPECT_EQ(web, "web");
   static_assert(std::is_same_v<decltype("a" + web), String>);
}

void takesString(const std::string& text) {
   EXPECT_EQ(text, "web");
}

TEST(String, becomesAStandardStringWithoutACast) {
   const String web{"web"};
   const std::string made = web;
   EXPECT_EQ(made, "web");
   std::string assigned;
   assigned = web;
   EXPECT_EQ(assigned, "web");
   assigned += web;
   EXPECT_EQ(assigned, "webweb");
   EXPECT_EQ(std::string{web}, "web");
   takesString(web);
   static_assert(std::is_convertible_v<String, std::string_view>);
   static_assert(!std::is_convertible_v<String, const char*>);
   static_assert(!std::is_constructible_v<String, int*>);
   static_assert(!std::is_constructible_v<bool, String>);
}

TEST(String, printsAsItself) {
   std::ostringstream out;
   out << String{nul} << '|' << String{};
   EXPECT_EQ(out.str(), nul + "|");
   EXPECT_EQ(fmt::format("{}|{:>4}|{:.1}", String{nul}, String{"ab"}, String{"ab"}),
             nul + "|  ab|a");
}

TEST(String, holdsMegabytes) {
   const std::string big(5'000'000, 'x');
   const String text{big};
   EXPECT_EQ(text.size(), big.size());
   EXPECT_TRUE(text == big);
   EXPECT_EQ(String::join({text, text}).size(), 2 * big.size());
}

TEST(String, refusesMoreThanItsSizeCanCount) {
   // Nobody reads the characters: the size alone is refused.
   const std::string_view tooBig{"x", std::size_t{1} << 32U};
   EXPECT_THROW(String{tooBig}, std::length_error);
   EXPECT_THROW(String::join({"x", std::string_view{"x", 0xffffffffU}}), std::length_error);
}

TEST(String, hashFollowsEquality) {
   const std::unordered_set<String> set{"a", "b", String::join({"a"}), ""};
   EXPECT_EQ(set.size(), 3U);
   EXPECT_TRUE(set.contains("b"));
}

// Short texts of few different bytes, so that prefixes and equal texts are common.
rc::Gen<std::string> smallText() {
   return rc::gen::container<std::string>(rc::gen::elementOf(std::string{"ab\0\xff", 4}));
}

RC_GTEST_PROP(StringProperty, behavesLikeStdString, ()) {
   const std::string a = *smallText();
   const std::string b = *smallText();
   const String left{a};
   const String right{b};
   RC_ASSERT((left == right) == (a == b));
   RC_ASSERT((left <=> right) == (a <=> b));
   RC_ASSERT(String::join({left, right}).str() == a + b);
   RC_ASSERT((left + right).str() == a + b);
   RC_ASSERT(left.find(b) == a.find(b));
   RC_ASSERT(left.contains(b) == (a.find(b) != std::string::npos));
   RC_ASSERT(left.view() == a);
}

} // namespace
