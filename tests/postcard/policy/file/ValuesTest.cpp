// Numbers, prefixes and words.

#include "postcard/policy/file/Values.h"

#include "postcard/policy/file/Keys.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>
#include <rapidcheck.h>
#include <string>

namespace Postcard::Policy::File {
namespace {

constexpr std::uint64_t greatest = std::numeric_limits<std::uint64_t>::max();

TEST(PolicyFileValues, parseNumber) {
   const struct {
      const char* text;
      std::optional<std::uint64_t> number;
   } rows[] = {
         {"0", 0},         {"7", 7},
         {"65535", 65535}, {"18446744073709551615", greatest},
         {"0x0", 0},       {"99999999999999999999999", greatest},
         {"0xFf", 255},    {"0o17", 15},
         {"", {}},         {"00", {}},
         {"010", {}},      {"0x", {}},
         {"0o8", {}},      {"0X1", {}},
         {"+1", {}},       {"-1", {}},
         {"1.0", {}},      {"1e3", {}},
         {"1_000", {}},    {" 1", {}},
         {"1 ", {}},       {"0x-1", {}},
         {"0b1", {}},      {"ten", {}},
   };
   for (const auto& row : rows) {
      EXPECT_EQ(parseNumber(row.text), row.number) << row.text;
   }
}

// What is cut off behind the limit would change the number.
TEST(PolicyFileValues, longTextIsNoNumber) {
   const auto zeros = [](std::size_t count) { return "0x" + std::string(count, '0'); };
   EXPECT_EQ(parseNumber(zeros(60) + "50"), 0x50U);
   EXPECT_EQ(parseNumber(zeros(61) + "50"), std::nullopt);
   EXPECT_EQ(parseNumber(zeros(62) + "50"), std::nullopt);
   EXPECT_EQ(parseNumber(std::string(65, '9')), std::nullopt);
}

TEST(PolicyFileValues, longTextIsNoRange) {
   Findings findings{10};
   const Values values{findings};
   const auto range = [&](const std::string& text) {
      const auto read = values.range(Node{text, {1, 1}, 1, NodeKind::plain}, "port", 65535);
      return read ? fmt::format("{}-{}", read->low, read->high) : "";
   };
   const std::string zeros(27, '0');
   EXPECT_EQ(range("0x" + zeros + "5-0x" + zeros + "0051"), "5-81");
   EXPECT_EQ(range("0x" + zeros + "5-0x" + zeros + "00051"), "");
   EXPECT_EQ(range("0x" + std::string(62, '0') + "50"), "");
   EXPECT_EQ(range("80-0x" + std::string(59, '0') + "51"), "");
   EXPECT_EQ(findings.count(), 3U);
}

TEST(PolicyFileValues, longTextIsNoPrefix) {
   EXPECT_TRUE(parsePrefix("0000:0000:0000:0000:0000:ffff:192.168.100.200/128", Family::ipv6));
   EXPECT_FALSE(parsePrefix("::/0" + std::string(61, '0'), Family::ipv6));
   EXPECT_FALSE(parsePrefix(std::string(100, ':') + "/0", Family::ipv6));
}

TEST(PolicyFileValues, parsePrefixGivesCanonicalText) {
   const struct {
      Family family;
      const char* text;
      const char* canonical;
   } rows[] = {
         {Family::ipv4, "10.0.0.0/8", "10.0.0.0/8"},
         {Family::ipv4, "10.1.2.3/8", "10.0.0.0/8"},
         {Family::ipv4, "255.255.255.255/1", "128.0.0.0/1"},
         {Family::ipv4, "255.255.255.255/0", "0.0.0.0/0"},
         {Family::ipv4, "192.0.2.1/32", "192.0.2.1/32"},
         {Family::ipv6, "::/0", "::/0"},
         {Family::ipv6, "2001:DB8::1/32", "2001:db8::/32"},
         {Family::ipv6, "2001:db8:0:0:1:0:0:1/128", "2001:db8::1:0:0:1/128"},
         {Family::ipv6, "ffff:ffff::/17", "ffff:8000::/17"},
         {Family::ipv6, "::ffff:192.0.2.1/128", "::ffff:192.0.2.1/128"},
   };
   for (const auto& row : rows) {
      const auto prefix = parsePrefix(row.text, row.family);
      ASSERT_TRUE(prefix) << row.text;
      EXPECT_EQ(prefix->stringValue(), row.canonical);
      EXPECT_EQ(prefix->address().size(), row.family == Family::ipv4 ? 4U : 16U);
   }
}

TEST(PolicyFileValues, parsePrefixRefuses) {
   for (const char* text :
        {"", "/", "/8", "10.0.0.0", "10.0.0.0/", "10.0.0.0/33", "10.0.0.0/08", "10.0.0.0/8 ",
         " 10.0.0.0/8", "10.0.0.0/8/8", "10.0.0/8", "::/0", "10.0.0.0/99999999999999999999",
         "10.0.0.0/-0", "1.2.3.4.5/8", "010.0.0.0/8", "10.0.0.0/0x8"}) {
      EXPECT_FALSE(parsePrefix(text, Family::ipv4)) << text;
   }
   for (const char* text : {"::", "::/129", ":::/1", "1::2::3/64", "fe80::1%eth0/64", "10.0.0.0/8",
                            "12345::/16", "2001:db8::/0x20"}) {
      EXPECT_FALSE(parsePrefix(text, Family::ipv6)) << text;
   }
   EXPECT_FALSE(parsePrefix({"10.0.0.0\0/8", 11}, Family::ipv4));
   EXPECT_FALSE(parsePrefix(std::string(100000, ':') + "/64", Family::ipv6));
}

// The oracle looks at one bit at a time.
RC_GTEST_PROP(PolicyFileValues, hostBitsAreClearedAndTheOthersKept, ()) {
   const auto length = *rc::gen::inRange(0, 33);
   std::array<int, 4> bytes{};
   for (int& byte : bytes) {
      byte = *rc::gen::element(0, 1, 127, 128, 254, 255);
   }
   const auto prefix =
         parsePrefix(fmt::format("{}.{}.{}.{}/{}", bytes[0], bytes[1], bytes[2], bytes[3], length),
                     Family::ipv4);
   RC_ASSERT(prefix.has_value());
   for (int bit = 0; bit < 32; ++bit) {
      const auto byte = static_cast<std::size_t>(bit / 8);
      const int given = bytes[byte] >> (7 - bit % 8) & 1;
      const int kept = prefix->address()[byte] >> (7 - bit % 8) & 1;
      RC_ASSERT(kept == (bit < length ? given : 0));
   }
}

RC_GTEST_PROP(PolicyFileValues, canonicalTextReadsAsTheSamePrefix, ()) {
   std::string text;
   for (int i = 0; i < 8; ++i) {
      text += fmt::format("{}{:x}", i == 0 ? "" : ":", *rc::gen::element(0, 0, 1, 0xdb8, 0xffff));
   }
   const auto prefix =
         parsePrefix(fmt::format("{}/{}", text, *rc::gen::inRange(0, 129)), Family::ipv6);
   RC_ASSERT(prefix.has_value());
   const auto again = parsePrefix(prefix->stringValue(), Family::ipv6);
   RC_ASSERT(again.has_value());
   RC_ASSERT(*again == *prefix);
   RC_ASSERT(again->stringValue() == prefix->stringValue());
}

TEST(PolicyFileKeys, everyActionHasItsName) {
   for (const ActionWord& row : actionWords()) {
      EXPECT_EQ(actionName(row.kind), row.word);
      EXPECT_EQ(findWord(actionWords(), row.word), &row);
   }
   EXPECT_EQ(findWord(actionWords(), "Sample"), nullptr);
}

} // namespace
} // namespace Postcard::Policy::File
