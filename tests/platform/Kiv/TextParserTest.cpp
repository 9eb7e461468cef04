// Reading and printing of the generic text's pieces.
#include "Kiv/TextParser.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using Kiv::ParseError;
using Kiv::TextParser;

using Read = std::function<std::string(TextParser&)>;

const Read number255 = [](TextParser& parser) { return std::to_string(parser.number(255)); };
const Read number64 = [](TextParser& parser) {
   return std::to_string(parser.number(std::numeric_limits<U64>::max()));
};
const Read boolean = [](TextParser& parser) { return parser.boolean() ? "yes" : "no"; };
const Read quoted = [](TextParser& parser) { return parser.quoted(); };
const Read quotedName = [](TextParser& parser) { return std::string{parser.quotedName()}; };
const Read real = [](TextParser& parser) {
   std::string out;
   Kiv::printReal(out, parser.real());
   return out;
};
const Read expectBracket = [](TextParser& parser) {
   parser.expect("Name(");
   return std::string{};
};

struct Good {
   Read read;
   std::string text;
   std::string value;
   std::string rest;
};

const Good readable[] = {
      {number255, "0", "0", ""},
      {number255, "255", "255", ""},
      {number255, "007x", "7", "x"},
      {number64, "18446744073709551615)", "18446744073709551615", ")"},
      {boolean, "true", "yes", ""},
      {boolean, "falsely", "no", "ly"},
      {real, "0.5)", "0.5", ")"},
      {real, "-12.50e1", "-125", ""},
      {real, "1e22", "1e+22", ""},
      {real, "7 ", "7", " "},
      {real, "-inf", "-inf", ""},
      {real, "nan", "nan", ""},
      {quoted, R"("")", "", ""},
      {quoted, R"("a'b" tail)", "a'b", " tail"},
      {quoted, R"("\\\"\n\t\r\x41\x7e\x00")", std::string{"\\\"\n\t\rA~\0", 8}, ""},
      {quoted, R"("\xfF")", "\xff", ""},
      {quoted, "\"caf\xc3\xa9\"", "caf\xc3\xa9", ""},
      {quoted, "\"line\nbreak\"", "line\nbreak", ""},
      {quotedName, "'on'", "on", ""},
      {quotedName, "''x", "", "x"},
      {expectBracket, "Name(rest", "", "rest"},
};

TEST(TextParser, readsWhatIsNextAndNoMore) {
   for (const auto& [read, text, value, rest] : readable) {
      TextParser parser{text};
      EXPECT_EQ(read(parser), value) << text;
      EXPECT_EQ(parser.rest(), rest) << text;
      EXPECT_EQ(parser.position(), text.size() - rest.size()) << text;
   }
}

struct Bad {
   Read read;
   std::string text;
   std::string reason;
   std::size_t position;
};

const Bad unreadable[] = {
      {number255, "", "expected a number", 0},
      {number255, "x", "expected a number", 0},
      {number255, "-1", "expected a number", 0},
      {number255, "+1", "expected a number", 0},
      {number255, " 1", "expected a number", 0},
      {number255, "256", "expected a number from 0 to 255", 0},
      {number255, "99999999999999999999999", "expected a number from 0 to 255", 0},
      {number64, "18446744073709551616", "expected a number from 0 to 18446744073709551615", 0},
      {boolean, "", "expected true or false", 0},
      {boolean, "True", "expected true or false", 0},
      {boolean, "1", "expected true or false", 0},
      {real, "", "expected a real number", 0},
      {real, "+1", "expected a real number", 0},
      {real, " 1", "expected a real number", 0},
      {real, ".", "expected a real number", 0},
      {real, "1e999", "expected a real number", 0},
      {quoted, "", "expected \"\"\"", 0},
      {quoted, "'a'", "expected \"\"\"", 0},
      {quoted, "\"", "expected a closing double quote", 1},
      {quoted, "\"abc", "expected a closing double quote", 4},
      {quoted, "\"\\\"", "expected a closing double quote", 3},
      {quoted, "\"a\\", "expected a character after the backslash", 3},
      {quoted, R"("a\q")", "unknown escape", 3},
      {quoted, R"("\N")", "unknown escape", 2},
      {quoted, R"("\x4")", "expected two hexadecimal digits", 3},
      {quoted, R"("\xg0")", "expected two hexadecimal digits", 3},
      {quoted, R"("\x4g")", "expected two hexadecimal digits", 3},
      {quoted, R"("\x-1")", "expected two hexadecimal digits", 3},
      {quoted, "\"\\x", "expected two hexadecimal digits", 3},
      {quotedName, "", "expected \"'\"", 0},
      {quotedName, "on", "expected \"'\"", 0},
      {quotedName, "'on", "expected a closing single quote", 1},
      {expectBracket, "", "expected \"Name(\"", 0},
      {expectBracket, "Name", "expected \"Name(\"", 0},
};

TEST(TextParser, saysWhatWasExpectedAndWhere) {
   for (const auto& [read, text, reason, position] : unreadable) {
      // The same behind a beginning that has been read already.
      for (const std::string before : {"", "12345"}) {
         const std::string whole = before + text;
         TextParser parser{whole};
         parser.expect(before);
         try {
            read(parser);
            ADD_FAILURE() << whole;
         } catch (const ParseError& error) {
            EXPECT_EQ(error.reason(), reason) << whole;
            EXPECT_EQ(error.position(), before.size() + position) << whole;
            EXPECT_EQ(error.what(),
                      reason + " at position " + std::to_string(before.size() + position));
         }
      }
   }
}

TEST(TextParser, acceptTakesOnlyWhatIsThere) {
   TextParser parser{"abc"};
   EXPECT_FALSE(parser.accept("b"));
   EXPECT_EQ(parser.position(), 0U);
   EXPECT_TRUE(parser.next("ab"));
   EXPECT_TRUE(parser.accept("ab"));
   EXPECT_FALSE(parser.next("cd"));
   EXPECT_TRUE(parser.accept("c"));
   EXPECT_TRUE(parser.accept(""));
   EXPECT_FALSE(parser.accept("c"));
}

TEST(TextParser, nothingMayFollowTheEnd) {
   TextParser parser{"1 "};
   parser.number(9);
   try {
      parser.expectEnd();
      ADD_FAILURE();
   } catch (const ParseError& error) {
      EXPECT_STREQ(error.what(), "expected the end of the text at position 1");
   }
   parser.expect(" ");
   EXPECT_NO_THROW(parser.expectEnd());
}

TEST(TextParser, failuresInsideAnAttributeNameIt) {
   TextParser parser{"10,x"};
   EXPECT_EQ(parser.attribute("red", [&] { return parser.number(255); }), 10U);
   parser.expect(",");
   try {
      parser.attribute("green", [&] { return parser.number(255); });
      ADD_FAILURE();
   } catch (const ParseError& error) {
      EXPECT_STREQ(error.what(), "attribute 'green': expected a number at position 3");
   }
   try {
      parser.attribute("blue", []() -> int { throw Kiv::RangeError{"too blue"}; });
      ADD_FAILURE();
   } catch (const Kiv::RangeError& error) {
      EXPECT_STREQ(error.what(), "attribute 'blue': too blue");
   }
}

TEST(TextParser, aTextOfNothingIsEmpty) {
   TextParser parser{std::string_view{}};
   EXPECT_NO_THROW(parser.expectEnd());
   EXPECT_THROW(parser.number(9), ParseError);
   EXPECT_THROW(parser.quoted(), ParseError);
}

struct Printed {
   std::string text;
   std::string quoted;
};

const Printed printed[] = {
      {"", R"("")"},
      {"plain text", R"("plain text")"},
      {"a\"b\\c'd", R"("a\"b\\c'd")"},
      {"\n\t\r", R"("\n\t\r")"},
      {std::string{"\0\x01\x1f\x7f", 4}, R"("\x00\x01\x1f\x7f")"},
      {"\xc3\xa9\xff", "\"\xc3\xa9\xff\""},
      {" ~", "\" ~\""},
};

TEST(PrintQuoted, escapesWhatWouldNotBeReadBack) {
   for (const auto& [text, quotedText] : printed) {
      std::string out = "before ";
      Kiv::printQuoted(out, text);
      EXPECT_EQ(out, "before " + quotedText);
   }
}

RC_GTEST_PROP(PrintQuotedProperty, isReadBack, ()) {
   const auto hostile = std::string{"\"\\'xn\n\t\r\0\x7f\xff"
                                    "0aF,)",
                                    17};
   const auto text = *rc::gen::oneOf(
         rc::gen::container<std::string>(rc::gen::elementOf(hostile)),
         rc::gen::container<std::string>(rc::gen::cast<char>(rc::gen::inRange(-128, 128))));
   std::string out;
   Kiv::printQuoted(out, text);
   for (const char c : out) {
      RC_ASSERT((static_cast<unsigned char>(c) >= 0x20U && c != '\x7f'));
   }
   const std::string followed = out + "tail";
   TextParser parser{followed};
   RC_ASSERT(parser.quoted() == text);
   RC_ASSERT(parser.rest() == "tail");
}

// Whatever is thrown at the parser, it answers with a value or a ParseError inside the text.
RC_GTEST_PROP(TextParserProperty, anyTextIsReadOrRefused, ()) {
   const auto text =
         *rc::gen::container<std::string>(rc::gen::elementOf(std::string{"\"\\'x019aftrues\n"}));
   for (const Read& read : {number255, number64, boolean, quoted, quotedName}) {
      TextParser parser{text};
      try {
         read(parser);
         RC_ASSERT(parser.position() <= text.size());
      } catch (const ParseError& error) {
         RC_ASSERT(error.position() <= text.size());
      }
   }
}

} // namespace
