// What is written to the ring reads as the text trace writes it, for every kind of argument.
#include "L3/VrfName.h"
#include "LastRecord.h"
#include "Orlix/IntfId.h"
#include "Orlix/IpGenPrefix.h"
#include "PolicyMap/AsyncOperationResult.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/RulePriorityData.h"
#include "Ringlog/Trace.h"
#include "support/TraceCapture.h"

#include <rapidcheck/gtest.h>

#include <limits>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"CodecTest"};

// Traces once, and shows what both traces made of it.
#define BOTH_TEXTS(format, ...)                                                                    \
   [&] {                                                                                           \
      TestSupport::TraceCapture capture;                                                           \
      RINGLOG_TRACE(5, format, __VA_ARGS__);                                                       \
      return std::pair{TestSupport::lastRecord().text, capture.traces().at(0).text};               \
   }()

#define EXPECT_SAME_TEXT(expected, format, ...)                                                    \
   do {                                                                                            \
      const auto [ring, text] = BOTH_TEXTS(format, __VA_ARGS__);                                   \
      EXPECT_EQ(ring, expected);                                                                   \
      EXPECT_EQ(text, expected);                                                                   \
   } while (false)

#define SAME_TEXT(...)                                                                             \
   do {                                                                                            \
      const auto [ring, text] = BOTH_TEXTS(__VA_ARGS__);                                           \
      RC_ASSERT(ring == text);                                                                     \
   } while (false)

TEST(CodecTest, wholeNumbers) {
   EXPECT_SAME_TEXT("0 255 65535", "{} {} {}", U8{0}, U8{255}, U16{65535});
   EXPECT_SAME_TEXT("4294967295 18446744073709551615", "{} {}", ~U32{0}, ~U64{0});
   EXPECT_SAME_TEXT("-1 -128 -9223372036854775808", "{} {} {}", -1, std::int8_t{-128},
                    std::numeric_limits<std::int64_t>::min());
   EXPECT_SAME_TEXT("0xff -0x1    7|", "0x{:x} {:#x} {:4}|", U8{255}, -1, std::int16_t{7});
   EXPECT_SAME_TEXT("   7|0007", "{:{}}|{:04}", 7, 4, U32{7});
}

TEST(CodecTest, charactersBooleansAndRealNumbers) {
   EXPECT_SAME_TEXT("A 65 \xff", "{} {:d} {}", 'A', 'A', '\xff');
   EXPECT_SAME_TEXT("true false 1", "{} {} {:d}", true, false, true);
   EXPECT_SAME_TEXT("0.1 0.1 1e+300", "{} {} {}", 0.1, 0.1F, 1e300);
   EXPECT_SAME_TEXT("nan inf -0", "{} {} {}", std::numeric_limits<double>::quiet_NaN(),
                    std::numeric_limits<float>::infinity(), -0.0);
   EXPECT_SAME_TEXT("3.14", "{:.2f}", 3.14159F);
}

TEST(CodecTest, textOfEveryType) {
   const std::string hostile{"a\0\"\\{}%s\n\xff", 11};
   EXPECT_SAME_TEXT(hostile, "{}", hostile);
   EXPECT_SAME_TEXT(hostile, "{}", Pello::String{hostile});
   EXPECT_SAME_TEXT(hostile, "{}", std::string_view{hostile});
   EXPECT_SAME_TEXT("literal", "{}", "literal");
   const char* plain = "plain";
   EXPECT_SAME_TEXT("plain|  pl", "{}|{:>4.2}", plain, plain);
   EXPECT_SAME_TEXT("()", "({}{}{})", Pello::String{}, std::string_view{}, "");
   EXPECT_SAME_TEXT("no arguments {}", "no arguments {{}}{}", "");
}

TEST(CodecTest, values) {
   using PolicyMap::ClassMapMatchOption;
   EXPECT_SAME_TEXT("matchIpAccessGroup 77", "{} {}", ClassMapMatchOption::matchIpAccessGroup,
                    static_cast<ClassMapMatchOption>(77));
   EXPECT_SAME_TEXT("Ethernet1 |", "{} {}|", Orlix::IntfId{"Ethernet1"}, Orlix::IntfId{});
   EXPECT_SAME_TEXT("red", "{}", L3::VrfName{"red"});
   EXPECT_SAME_TEXT("10.0.0.0/8 2001:db8::/32 |", "{} {} {}|", Orlix::IpGenPrefix{"10.0.0.0/8"},
                    Orlix::IpGenPrefix{"2001:db8::/32"}, Orlix::IpGenPrefix{});
   EXPECT_SAME_TEXT("7", "{}", PolicyMap::RulePriority{7});
   EXPECT_SAME_TEXT("  10.0.0.0/8", "{:>12}", Orlix::IpGenPrefix{"10.0.0.0/8"});
}

TEST(CodecTest, compositeValues) {
   const PolicyMap::PolicyMapSmKey key{"na\"me", ""};
   EXPECT_SAME_TEXT("PolicyMap::PolicyMapSmKey(name=\"na\\\"me\", scope=\"\")", "{}", key);
   const PolicyMap::AclRuleKey rule{key, "class", "acl", 7, PolicyMap::matchIpv6AccessGroup()};
   EXPECT_SAME_TEXT(
         "5 PolicyMap::AclRuleKey(policyMapKey=PolicyMap::PolicyMapSmKey(name=\"na\\\"me\", "
         "scope=\"\"), className=\"class\", aclName=\"acl\", sequence=7, "
         "matchOption='matchIpv6AccessGroup') 6",
         "{} {} {}", 5, rule, 6);
   EXPECT_SAME_TEXT("PolicyMap::AsyncOperationResult(status=\"ok\", time=1.5)", "{}",
                    (PolicyMap::AsyncOperationResult{"ok", 1.5}));
}

TEST(CodecTest, textIsCutToWhatARecordHolds) {
   for (const std::size_t size :
        {longestText - 1, longestText, longestText + 1, 25 * longestText}) {
      const std::string text(size, 'x');
      RINGLOG_TRACE(5, "{}|{}", text, 7);
      EXPECT_EQ(TestSupport::lastRecord().text, text.substr(0, longestText) + "|7");
      RINGLOG_TRACE(5, "{}", (PolicyMap::PolicyMapSmKey{Pello::String{text}, "s"}));
      EXPECT_EQ(TestSupport::lastRecord().text, "PolicyMap::PolicyMapSmKey(name=\"" +
                                                      text.substr(0, longestText) +
                                                      "\", scope=\"s\")");
   }
}

TEST(CodecTest, argumentsAreEvaluatedOnce) {
   int evaluations = 0;
   TestSupport::TraceCapture capture;
   RINGLOG_TRACE(9, "{}", ++evaluations);
   EXPECT_EQ(evaluations, 1);
   EXPECT_EQ(capture.lines(), std::vector<std::string>{"9 1"});
}

TEST(CodecTest, theLargestTraceFitsABlock) {
   const std::string text(longestText, 'x');
   RINGLOG_TRACE(5, "{}{}{}{}{}{}{}{}{}{}{}{}{}{}{}", text, text, text, text, text, text, text,
                 text, text, text, text, text, text, text, text);
   EXPECT_EQ(TestSupport::lastRecord().text.size(), 15 * longestText);
   EXPECT_EQ(TestSupport::lastRecord().text.find_first_not_of('x'), std::string::npos);
}

RC_GTEST_PROP(CodecProperty, numbersReadAlike,
              (U64 u, std::int64_t i, U32 u32, std::int16_t i16, double d, float f, bool b,
               char c)) {
   SAME_TEXT("{} {} {:x} {:#o} {} {} {} {}", u, i, u32, i16, d, f, b, c);
}

RC_GTEST_PROP(CodecProperty, textReadsAlike,
              (const std::string& a, const std::string& b, U8 between)) {
   const auto hostile = *rc::gen::container<std::string>(rc::gen::arbitrary<char>());
   SAME_TEXT("{}{}{}{}{}", a, between, hostile, Pello::String{b}, Pello::String{hostile});
}

RC_GTEST_PROP(CodecProperty, valuesReadAlike,
              (const std::string& name, const std::string& scope, U32 number, U8 option)) {
   const PolicyMap::AclRuleKey key{PolicyMap::PolicyMapSmKey{name, scope}, scope, name, number,
                                   static_cast<PolicyMap::ClassMapMatchOption>(option % 4)};
   const U8 address[] = {option, option, U8{0}, U8{1}};
   const Orlix::IpGenPrefix prefix{Orlix::AddressFamily::ipv4, address, number % 33};
   SAME_TEXT("{} {} {} {}", key, prefix, Orlix::IntfId{name}, key.matchOption());
}

} // namespace
} // namespace Ringlog
