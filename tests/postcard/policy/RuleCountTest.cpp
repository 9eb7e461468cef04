// How many rules a filter makes, against counting block by block.

#include "postcard/policy/RuleCount.h"

#include "postcard/policy/file/PolicyFileFrames.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <rapidcheck.h>

namespace Postcard::Policy::File {
namespace {

// The fewest aligned blocks that make up the range, by halving the whole space: a block within the
// range counts one, a block outside none, any other is split.
std::uint64_t naiveBlocks(std::uint32_t low, std::uint32_t high, std::uint32_t start,
                          std::uint32_t size) {
   const std::uint32_t last = start + size - 1;
   if (last < low || start > high) {
      return 0;
   }
   if (start >= low && last <= high) {
      return 1;
   }
   return naiveBlocks(low, high, start, size / 2) +
          naiveBlocks(low, high, start + size / 2, size / 2);
}

NumberRange ports(unsigned int low, unsigned int high) {
   return {static_cast<std::uint16_t>(low), static_cast<std::uint16_t>(high), {}};
}

TEST(RuleCount, blockCount) {
   const struct {
      unsigned int low;
      unsigned int high;
      std::uint64_t blocks;
   } rows[] = {{1, 65534, 30}, {1024, 65535, 6},  {0, 65535, 1}, {65535, 65535, 1}, {0, 0, 1},
               {1, 10, 5},     {1025, 65534, 29}, {80, 80, 1},   {0, 65534, 16},    {1, 65535, 16}};
   for (const auto& row : rows) {
      EXPECT_EQ(blockCount(ports(row.low, row.high)), row.blocks) << row.low << "-" << row.high;
   }
}

TEST(RuleCount, blockCountOfEveryRangeOfSixBits) {
   for (unsigned int low = 0; low < 64; ++low) {
      for (unsigned int high = low; high < 64; ++high) {
         ASSERT_EQ(blockCount(ports(low, high)), naiveBlocks(low, high, 0, 65536));
      }
   }
}

RC_GTEST_PROP(RuleCount, blockCountAgreesWithHalving, ()) {
   const auto bound = rc::gen::element<unsigned int>(0, 1, 2, 3, 1023, 1024, 1025, 32767, 32768,
                                                     40000, 65533, 65534, 65535);
   const unsigned int one = *bound;
   const unsigned int other = *bound;
   const unsigned int low = std::min(one, other);
   const unsigned int high = std::max(one, other);
   RC_ASSERT(blockCount(ports(low, high)) == naiveBlocks(low, high, 0, 65536));
}

TEST(RuleCount, ruleCount) {
   const struct {
      const char* filter;
      std::uint64_t withFlags;
      std::uint64_t withoutFlags;
   } rows[] = {
         {"      fragments: false\n", 2, 2},
         {"      protocols: [{protocol: 6}]\n", 1, 1},
         {"      protocols: [{protocol: udp}]\n", 1, 1},
         {"      protocols: [{protocol: udp}, {protocol: tcp}]\n", 2, 2},
         {"      protocols: [{protocol: 6-17}]\n", 2, 2},
         {"      protocols: [{protocol: tcp, ports: [{}]}]\n", 0, 0},
         {"      protocols: [{protocol: tcp, ports: [{source: [1-10]}]}]\n", 5, 5},
         {"      protocols: [{protocol: tcp, ports: [{destination: [1-10, 1-11]}]}]\n", 9, 9},
         {"      protocols: [{protocol: udp, ports: [{source: [1-65534], destination: [1-65534]}]}]"
          "\n",
          900, 900},
         {"      protocols: [{protocol: tcp, ports: [{source: [1-10]}, {destination: [80, 443]}],\n"
          "        tcp-flags: [{flags: 1, mask: 1}, {flags: 2, mask: 2}, {flags: 4, mask: 4}]}]\n",
          21, 7},
         {"      protocols: [{protocol: tcp, tcp-flags: [{flags: 1, mask: 1}, {flags: 2, mask: "
          "2}]}]\n",
          2, 1},
   };
   for (const auto& row : rows) {
      const LoadResult result = parsePolicyText(framed(Frame::ipv4, row.filter), "F");
      ASSERT_TRUE(result.policyFile) << formatFindings(result);
      const Filter& filter = *result.policyFile->policies[0].classes[0].ipv4;
      EXPECT_EQ(ruleCount(filter, true), row.withFlags) << row.filter;
      EXPECT_EQ(ruleCount(filter, false), row.withoutFlags) << row.filter;
   }
}

// Counts that would wrap 64 bits stop at what a rule index can hold.
TEST(RuleCount, countsDoNotWrap) {
   Filter filter;
   ProtocolMatch& match = filter.protocols.emplace_back();
   match.low = 6;
   match.high = 6;
   match.tcpFlags.resize(200000);
   const std::vector<NumberRange> many(200000, ports(1, 65534));
   match.ports = {{many, many, {}, {}, {}}, {many, many, {}, {}, {}}};
   EXPECT_EQ(ruleCount(filter, true), mostRules);
   EXPECT_EQ(ruleCount(filter, false), mostRules);
}

std::string twoFamiliesOf900() {
   const std::string entry = "      protocols: [{protocol: tcp, ports: [{source: [1-65534], "
                             "destination: [1-65534]}]}]\n";
   return framed(Frame::ipv4, entry) + "    ipv6:\n" + entry + "  - name: d\n    ipv4: {}\n";
}

TEST(RuleCount, limitCountsTheWholeFileAndIsReportedOnce) {
   LoadOptions options;
   options.maxRules = 1802;
   EXPECT_TRUE(parsePolicyText(twoFamiliesOf900(), "F", options).policyFile);
   options.maxRules = 1799;
   EXPECT_EQ(findingsOf(parsePolicyText(twoFamiliesOf900(), "F", options)),
             "8:5: class 'c' adds 900 ipv6 rules, which makes more than 1799 in the file\n");
}

TEST(RuleCount, hugeCountIsAtLeast) {
   std::string ranges;
   for (int i = 1; i < 5000; ++i) {
      ranges += fmt::format("{}{}-{}", i == 1 ? "" : ", ", i, 65535 - i);
   }
   const std::string text = framed(
         Frame::ipv6, fmt::format("      protocols: [{{protocol: udp, ports: [{{source: [{0}], "
                                  "destination: [{0}]}}]}}]\n",
                                  ranges));
   EXPECT_EQ(findingsOf(parsePolicyText(text, "F")),
             "6:5: class 'c' adds at least 4294967296 ipv6 rules, which makes more than 2000000 in "
             "the file\n");
}

} // namespace
} // namespace Postcard::Policy::File
