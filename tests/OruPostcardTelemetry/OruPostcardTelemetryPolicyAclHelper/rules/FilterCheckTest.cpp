// Which matches of a filter are refused, and how the message names them.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/FilterCheck.h"

#include "FeatureToggle/FeatureToggle.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TcpControl.h"
#include "support/FatalLine.h"
#include "support/PolicyRecords.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace OruPostcardTelemetry {
namespace {

using Classification::NumericalRange;
using Classification::StructuredFilter;
using namespace TestSupport;

Pello::Ptr<const PostcardTelemetry::HwCapability> capability(bool tcpFlags) {
   const Pello::Ptr<PostcardTelemetry::HwCapability> made{new PostcardTelemetry::HwCapability};
   made->tcpFlagsSupportedIs(tcpFlags);
   return made;
}

std::string checked(const FilterRecords& filter, bool tcpFlags = true) {
   return checkUnsupportedFields(filter.data(), capability(tcpFlags)).str();
}

FilterRecords newFilter() {
   return FilterRecords{new StructuredFilter{0}};
}

// The message that consists of these fragments.
std::string message(const std::string& fragments) {
   return "Unsupported match(es):" + fragments + " in configuration";
}

// One thing that a filter may ask and a rule cannot, in the order of the message.
struct FilterWide {
   const char* fragment;
   void (*ask)(StructuredFilter&);
};

const FilterWide filterWide[] = {
      {" 'Source Prefix List',",
       [](StructuredFilter& filter) {
          filter.sourceIs(Orlix::IpGenPrefix{"10.0.0.0/8"});
          filter.sourceIs(Orlix::IpGenPrefix{"10.0.0.0/9"});
       }},
      {" 'Except Source Prefix List',",
       [](StructuredFilter& filter) { filter.sourceExceptIs(Orlix::IpGenPrefix{"10.0.0.0/8"}); }},
      {" 'Source Prefix Set',", [](StructuredFilter& filter) { filter.sourcePrefixSetIs("set"); }},
      {" 'Destination Prefix List',",
       [](StructuredFilter& filter) {
          filter.destinationIs(Orlix::IpGenPrefix{"10.0.0.0/8"});
          filter.destinationIs(Orlix::IpGenPrefix{"10.0.0.0/9"});
       }},
      {" 'Except Destination Prefix List',",
       [](StructuredFilter& filter) {
          filter.destinationExceptIs(Orlix::IpGenPrefix{"10.0.0.0/8"});
       }},
      {" 'Destination Prefix Set',",
       [](StructuredFilter& filter) { filter.destinationPrefixSetIs("set"); }},
      {" 'Payload Length',",
       [](StructuredFilter& filter) {
          filter.payloadLengthIs(NumericalRange{0, 0});
       }},
      {" 'Fragments',", [](StructuredFilter& filter) { filter.fragmentsIs(); }},
      {" 'IP TTL',",
       [](StructuredFilter& filter) {
          filter.ipTtlIs(NumericalRange{0, 0});
       }},
      {" 'IP Options',", [](StructuredFilter& filter) { filter.ipOptionsIs(true); }},
      {" 'Protocol',", [](StructuredFilter& filter) { filter.protocolIs(true); }},
      {" 'Protocol Neighbor',", [](StructuredFilter& filter) { filter.protocolNeighborIs(true); }},
};

TEST(FilterCheck, eachFilterWideMatchIsNamedAlone) {
   for (const FilterWide& row : filterWide) {
      const FilterRecords filter = newFilter();
      row.ask(*filter.data());
      EXPECT_EQ(checked(filter), message(row.fragment));
      EXPECT_EQ(checked(filter, false), message(row.fragment));
   }
}

TEST(FilterCheck, allFilterWideMatchesAreNamedInOrder) {
   const FilterRecords filter = newFilter();
   std::string fragments;
   for (const FilterWide& row : filterWide) {
      fragments += row.fragment;
   }
   for (auto row = std::rbegin(filterWide); row != std::rend(filterWide); ++row) {
      row->ask(*filter.data());
   }
   EXPECT_EQ(checked(filter), message(fragments));
}

TEST(FilterCheck, everySubsetIsNamedInOrder) {
   for (unsigned subset = 1; subset < 1U << std::size(filterWide); ++subset) {
      const FilterRecords filter = newFilter();
      std::string fragments;
      for (std::size_t bit = 0; bit < std::size(filterWide); ++bit) {
         if ((subset >> bit & 1U) != 0) {
            filterWide[bit].ask(*filter.data());
            fragments += filterWide[bit].fragment;
         }
      }
      ASSERT_EQ(checked(filter), message(fragments));
   }
}

// Protocol fields, with what is said about them with and without TCP flags in hardware.
struct Fields {
   const char* name;
   void (*ask)(FilterRecords&);
   const char* withFlags;
   const char* withoutFlags;
};

const Fields fields[] = {
      {"none", [](FilterRecords&) {}, "", ""},
      {"one prefix each, TCP and UDP",
       [](FilterRecords& filter) {
          filter.source("10.0.0.0/8").destination("10.0.0.0/8").sampleMatch(1, 1);
          filter.tcp().ports({{1, 2}}, {}).flag(2, 2);
          filter.udp().ports({}, {{53, 53}});
       },
       "", ""},
      {"IP protocol 1", [](FilterRecords& filter) { filter.protocol(1, 1); }, " 'IP Protocol',",
       " 'IP Protocol',"},
      {"range over TCP and UDP", [](FilterRecords& filter) { filter.protocol(6, 17); },
       " 'IP Protocol',", " 'IP Protocol',"},
      {"range that begins with TCP", [](FilterRecords& filter) { filter.protocol(6, 7); },
       " 'IP Protocol',", " 'IP Protocol',"},
      {"range that ends with UDP", [](FilterRecords& filter) { filter.protocol(16, 17); },
       " 'IP Protocol',", " 'IP Protocol',"},
      {"ICMP types of TCP", [](FilterRecords& filter) { filter.tcp().icmpType(0); },
       " 'ICMP Types',", " 'ICMP Types',"},
      {"ICMP with types", [](FilterRecords& filter) { filter.protocol(1, 1).icmpType(8); },
       " 'IP Protocol', 'ICMP Types',", " 'IP Protocol', 'ICMP Types',"},
      {"TCP flags of UDP", [](FilterRecords& filter) { filter.udp().flag(2, 2); }, " 'TCP Flag',",
       ""},
      {"TCP flags of TCP", [](FilterRecords& filter) { filter.tcp().flag(2, 2); }, "", ""},
      {"TCP flags of a range", [](FilterRecords& filter) { filter.protocol(6, 17).flag(2, 2); },
       " 'IP Protocol', 'TCP Flag',", " 'IP Protocol',"},
      {"everything in one field",
       [](FilterRecords& filter) {
          filter.protocol(1, 255).icmpType(0).flag(1, 1).portSets("s", "d").portSets("s", "d");
       },
       " 'IP Protocol', 'ICMP Types', 'TCP Flag', 'Sport Field Set', 'Dport Field Set',",
       " 'IP Protocol', 'ICMP Types', 'Sport Field Set', 'Dport Field Set',"},
      {"only the first faulty field",
       [](FilterRecords& filter) {
          filter.protocol(2, 2).icmpType(0);
          filter.protocol(1, 1);
       },
       " 'IP Protocol',", " 'IP Protocol',"},
      {"a good field before a faulty one",
       [](FilterRecords& filter) {
          filter.tcp().ports({{1, 1}}, {});
          filter.udp().icmpType(3);
          filter.protocol(18, 18);
       },
       " 'ICMP Types',", " 'ICMP Types',"},
      {"both port sets", [](FilterRecords& filter) { filter.tcp().portSets("s", "d"); },
       " 'Sport Field Set', 'Dport Field Set',", " 'Sport Field Set', 'Dport Field Set',"},
      {"source port set", [](FilterRecords& filter) { filter.tcp().portSets("s", ""); },
       " 'Sport Field Set',", " 'Sport Field Set',"},
      {"destination port set", [](FilterRecords& filter) { filter.udp().portSets("", "d"); },
       " 'Dport Field Set',", " 'Dport Field Set',"},
      {"a set in the second entry",
       [](FilterRecords& filter) {
          filter.tcp().ports({{1, 1}}, {}).portSets("", "d");
       },
       " 'Dport Field Set',", " 'Dport Field Set',"},
      {"entries after a set are not examined",
       [](FilterRecords& filter) { filter.tcp().portSets("", "d").portSets("s", ""); },
       " 'Dport Field Set',", " 'Dport Field Set',"},
      {"a faulty field has one entry examined",
       [](FilterRecords& filter) { filter.protocol(1, 1).ports({}, {}).portSets("s", "d"); },
       " 'IP Protocol',", " 'IP Protocol',"},
      {"a port set ends the protocol walk",
       [](FilterRecords& filter) {
          filter.tcp().portSets("s", "");
          filter.udp().icmpType(1);
       },
       " 'Sport Field Set',", " 'Sport Field Set',"},
};

TEST(FilterCheck, protocolFieldsAreNamed) {
   for (const Fields& row : fields) {
      FilterRecords filter = newFilter();
      row.ask(filter);
      const auto expected = [](const std::string& fragments) {
         return fragments.empty() ? std::string{} : message(fragments);
      };
      EXPECT_EQ(checked(filter), expected(row.withFlags)) << row.name;
      EXPECT_EQ(checked(filter, false), expected(row.withoutFlags)) << row.name;
   }
}

TEST(FilterCheck, protocolFieldsComeAfterFilterWideMatches) {
   FilterRecords filter = newFilter();
   filter.data()->fragmentsIs();
   filter.protocol(1, 1);
   EXPECT_EQ(checked(filter),
             "Unsupported match(es): 'Fragments', 'IP Protocol', in configuration");
}

// UDP with TCP flags is a fault only where hardware matches TCP flags.
TEST(FilterCheck, withoutACapabilityRecordTcpFlagsAreNotMatched) {
   FilterRecords filter = newFilter();
   filter.udp().flag(2, 18);
   EXPECT_EQ(checked(filter, true), message(" 'TCP Flag',"));
   EXPECT_EQ(checked(filter, false), "");
   EXPECT_EQ(checkUnsupportedFields(filter.data(), nullptr), "");
}

TEST(FilterCheck, tracesItsEntryAndTheMessage) {
   FilterRecords filter = newFilter();
   const TraceCapture capture;
   checked(filter);
   filter.data()->ipOptionsIs(true);
   checked(filter);
   EXPECT_EQ(capture.lines(),
             (std::vector<std::string>{
                   "8 ", "8 ",
                   "0 Error set to : Unsupported match(es): 'IP Options', in configuration"}));
   EXPECT_EQ(capture.traces().front().functionName, "checkUnsupportedFields");
}

// ---------------------------------------------------------------- the feature toggle
// Its answer is kept by the process, so each of these runs in one of its own.

class FilterCheckToggleDeathTest : public testing::Test {
 protected:
   FilterCheckToggleDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
   static void toggleOff() {
      FeatureToggle::toggleOverrideIs("FeaturePostcardTelemetryTcpControl", false);
   }
};

constexpr std::string_view checkFunction =
      "Kiv::String OruPostcardTelemetry::checkUnsupportedFields(const PtrConst&, const PtrConst&)";

[[noreturn]] void leave(bool good) {
   std::fputs(good ? "good\n" : "bad\n", stderr);
   std::_Exit(good ? 0 : 1);
}

TEST_F(FilterCheckToggleDeathTest, isOnByDefault) {
   EXPECT_EXIT(leave(toggleFeaturePostcardTelemetryTcpControlEnabled()), testing::ExitedWithCode(0),
               "good");
}

// Whether the toggle is on when `file`, with this text, is all that is in the toggle directory. No
// file for null.
bool onWith(const char* file, const char* text) {
   char path[] = "/tmp/postcard-toggle-XXXXXX";
   const std::filesystem::path directory{::mkdtemp(path)};
   if (file != nullptr) {
      std::ofstream{directory / file} << text;
   }
   FeatureToggle::toggleDirectoryIs(directory);
   const bool on = toggleFeaturePostcardTelemetryTcpControlEnabled();
   std::filesystem::remove_all(directory);
   return on;
}

TEST_F(FilterCheckToggleDeathTest, isDeclaredInItsFileAndElseOn) {
   const char* const common = "PostcardTelemetryCommon.json";
   const char* const off =
         R"({"toggles": {"FeaturePostcardTelemetryTcpControl": {"default": false}}})";
   const char* const otherOff = R"({"toggles": {"FeaturePostcardTelemetry": {"default": false}}})";
   const testing::ExitedWithCode well{0};
   EXPECT_EXIT(leave(!onWith(common, off)), well, "^good\n$");
   EXPECT_EXIT(leave(onWith(nullptr, nullptr)), well, "^good\n$");
   EXPECT_EXIT(leave(onWith(common, otherOff)), well, "^good\n$");
   EXPECT_EXIT(leave(onWith("PostcardTelemetry.json", off)), well, "^good\n$");
}

TEST_F(FilterCheckToggleDeathTest, keepsItsFirstAnswer) {
   EXPECT_EXIT(
         {
            const bool first = toggleFeaturePostcardTelemetryTcpControlEnabled();
            toggleOff();
            leave(first && toggleFeaturePostcardTelemetryTcpControlEnabled());
         },
         testing::ExitedWithCode(0), "good");
   EXPECT_EXIT(
         {
            toggleOff();
            const bool first = toggleFeaturePostcardTelemetryTcpControlEnabled();
            FeatureToggle::toggleOverridesDelAll();
            leave(!first && !toggleFeaturePostcardTelemetryTcpControlEnabled());
         },
         testing::ExitedWithCode(0), "good");
}

TEST_F(FilterCheckToggleDeathTest, isNotReadWithoutPortEntriesOrCapability) {
   EXPECT_EXIT(
         {
            toggleOff();
            FilterRecords filter = newFilter();
            filter.tcp();
            checked(filter);
            filter.tcp().ports({}, {}).ports({}, {});
            checked(filter, false);
            FeatureToggle::toggleOverrideIs("FeaturePostcardTelemetryTcpControl", true);
            leave(toggleFeaturePostcardTelemetryTcpControlEnabled());
         },
         testing::ExitedWithCode(0), "good");
}

TEST_F(FilterCheckToggleDeathTest, offAndSeveralPortEntriesEndTheProcess) {
   FilterRecords filter = newFilter();
   filter.tcp().ports({{1, 1}}, {}).ports({{2, 2}}, {}).ports({{3, 3}}, {});
   EXPECT_DEATH((toggleOff(), checked(filter)), fatalLine(checkFunction, "protoIter->ports() == 1",
                                                          "Expected ports() to be 1, got 3"));
}

TEST_F(FilterCheckToggleDeathTest, offEndsTheProcessForAFaultyFieldToo) {
   FilterRecords filter = newFilter();
   filter.protocol(1, 1).portSets("s", "d").ports({}, {});
   EXPECT_DEATH((toggleOff(), checked(filter)), fatalLine(checkFunction, "protoIter->ports() == 1",
                                                          "Expected ports() to be 1, got 2"));
}

TEST_F(FilterCheckToggleDeathTest, offIsNoMatterForOneEntryOrOtherHardware) {
   FilterRecords one = newFilter();
   one.tcp().ports({{1, 1}}, {});
   FilterRecords two = newFilter();
   two.udp().ports({{1, 1}}, {}).ports({{2, 2}}, {});
   EXPECT_EXIT((toggleOff(), leave(checked(one).empty() && checked(two, false).empty())),
               testing::ExitedWithCode(0), "good");
}

TEST_F(FilterCheckToggleDeathTest, offIsNoMatterForFieldsBehindAFaultyOne) {
   FilterRecords filter = newFilter();
   filter.protocol(1, 1);
   filter.tcp().ports({{1, 1}}, {}).ports({{2, 2}}, {});
   EXPECT_EXIT((toggleOff(), leave(checked(filter) == message(" 'IP Protocol',"))),
               testing::ExitedWithCode(0), "good");
}

} // namespace
} // namespace OruPostcardTelemetry
