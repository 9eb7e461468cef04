// Port ranges become masked rules: which blocks, in which order, under which names, and what TCP
// flags add.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/PortExpansion.h"

#include "support/FatalLine.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/RuleText.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace OruPostcardTelemetry {
namespace {

using namespace TestSupport;
using Lines = std::vector<std::string>;

class PortExpansion : public testing::Test {
 protected:
   PortExpansion() {
      rule->ruleFilterIs()->protoIs(Protocol{U8{6}});
      rule->ruleActionIs();
   }
   U32 expandPorts(bool flags = false, U32 next = 0) {
      return records.helper->addRulesPortField(field.data(), rule, config, flags, next);
   }
   U32 expandFlags(U32 next = 0) {
      return records.helper->addRulesTcpFlagField(field.data(), rule, config, next);
   }
   // "index sport dport" of every rule, as data/mask, or - for a side that is not valid.
   Lines portsByIndex() const {
      Lines lines;
      const auto side = [](bool valid, const L4PortDataMask& match) {
         return valid ? " " + std::to_string(match.l4PortData()) + "/" +
                              std::to_string(match.l4PortMask())
                      : std::string{" -"};
      };
      for (const auto& made : config->ruleByIndex()) {
         const RuleFilter& filter = *made->ruleFilter();
         lines.push_back(std::to_string(made.key()) +
                         side(filter.sportDataMaskValid(), filter.sportDataMask()) +
                         side(filter.dportDataMaskValid(), filter.dportDataMask()));
      }
      return lines;
   }

   HelperRecords records;
   ProtoRecords field{new Classification::ProtoField{{6, 6}}};
   Pello::Ptr<PostcardTelemetryAclConfig> config{new PostcardTelemetryAclConfig{"p-ipv4"}};
   Pello::Ptr<RuleConfig> rule = config->ruleByNameIs("web-tcp");
};
using PortExpansionDeathTest = PortExpansion;

TEST(RuleNameL4Port, joinsNameLabelAndDecimalPort) {
   const TraceCapture capture;
   Kiv::String (*const exactType)(Pello::String, Pello::String, L4Port) = &ruleNameL4Port;
   EXPECT_EQ(exactType("web-tcp", "SportData", L4Port{80}), "web-tcp-SportData-80");
   EXPECT_EQ(ruleNameL4Port("", Pello::String{"DportMask"}, L4Port{U16{65535}}),
             "-DportMask-65535");
   EXPECT_EQ(ruleNameL4Port("a%s", "b", L4Port{U16{0}}), "a%s-b-0");
   EXPECT_EQ(capture.lines(), (Lines{"5 Rule Name : web-tcp-SportData-80",
                                     "5 Rule Name : -DportMask-65535", "5 Rule Name : a%s-b-0"}));
   EXPECT_EQ(capture.traces().front().functionName, "ruleNameL4Port");
}

TEST_F(PortExpansion, rangesGiveTheirBlocks) {
   const struct {
      std::pair<U32, U32> range;
      Lines ports;
   } rows[] = {
         {{80, 80}, {"0 80/65535 -"}},
         {{0, 65535}, {"0 0/0 -"}},
         {{1, 10}, {"0 1/65535 -", "1 2/65534 -", "2 4/65532 -", "3 8/65534 -", "4 10/65535 -"}},
         {{1024, 65535},
          {"0 1024/64512 -", "1 2048/63488 -", "2 4096/61440 -", "3 8192/57344 -",
           "4 16384/49152 -", "5 32768/32768 -"}},
         {{65535, 65535}, {"0 65535/65535 -"}},
         {{65534, 65535}, {"0 65534/65534 -"}},
         {{0, 0}, {"0 0/65535 -"}},
         {{10, 9}, {}},
   };
   for (const auto& row : rows) {
      config = new PostcardTelemetryAclConfig{"p-ipv4"};
      field = ProtoRecords{new Classification::ProtoField{{6, 6}}};
      field.ports({row.range}, {});
      EXPECT_EQ(expandPorts(), row.ports.size());
      EXPECT_EQ(portsByIndex(), row.ports);
   }
}

// The four kinds of port entry.
TEST_F(PortExpansion, sidesWithoutRangesAreNotValid) {
   field.ports({}, {}).ports({}, {{80, 81}}).ports({{1, 1}, {3, 3}}, {{5, 7}}).ports({{9, 9}}, {});
   EXPECT_EQ(expandPorts(false, 10), 16U);
   EXPECT_EQ(portsByIndex(), (Lines{"10 - 80/65534", "11 1/65535 5/65535", "12 1/65535 6/65534",
                                    "13 3/65535 5/65535", "14 3/65535 6/65534", "15 9/65535 -"}));
}

// Makes other rules than those that it is asked for, as a class derived from the helper may.
class Changing : public OruPostcardPolicyAclHelper {
 public:
   Changing() : OruPostcardPolicyAclHelper{nullptr, nullptr} {}
   U32 addRulesL4PortDataMask(const ProtoFieldPtr& field, const RulePtr& rule,
                              const AclConfigPtr& config, bool sportValid, L4PortDataMask sport,
                              bool dportValid, L4PortDataMask dport, bool flags,
                              U32 next) override {
      const auto make = [&](const RulePtr& from, bool withSource, L4PortDataMask source,
                            bool withDestination, L4PortDataMask destination) {
         next = OruPostcardPolicyAclHelper::addRulesL4PortDataMask(
               field, from, config, withSource, source, withDestination, destination, flags, next);
      };
      switch (calls++ % 5) {
      case 0:
         break; // passes over the rule
      case 1:
         make(rule, sportValid, sport, dportValid, {dport.l4PortData(), 0xfff0});
         make(rule, sportValid, sport, dportValid, dport);
         break;
      case 2:
         make(rule, false, {}, false, {});
         make(rule, false, {}, dportValid, dport);
         break;
      case 3:
         make(rule, true, {7, 0xffff}, dportValid, dport);
         make(rule, sportValid, sport, dportValid, dport);
         break;
      default: {
         const RulePtr other = config->ruleByNameIs("other");
         other->copy(*rule);
         make(other, sportValid, sport, dportValid, dport);
         make(rule, sportValid, sport, dportValid, dport);
      }
      }
      return next;
   }
   unsigned calls = 0;
};

TEST_F(PortExpansion, anOverrideMayAskForOtherRules) {
   const Pello::Ptr<Changing> helper{new Changing};
   field.ports({{1, 1}}, {{10, 10}, {11, 11}, {12, 12}, {13, 13}, {14, 14}, {15, 15}, {16, 16}});
   const TraceCapture capture;
   EXPECT_EQ(helper->addRulesPortField(field.data(), rule, config, false, 0), 10U);
   const std::string source = "-SportData-1-SportMask-65535";
   const auto destination = [](U32 data, U32 mask) {
      return "-DportData-" + std::to_string(data) + "-DportMask-" + std::to_string(mask);
   };
   const Lines names{"web-tcp" + source + destination(11, 0xfff0),
                     "web-tcp" + source + destination(11, 0xffff),
                     "web-tcp",
                     "web-tcp" + destination(12, 0xffff),
                     "web-tcp-SportData-7-SportMask-65535" + destination(13, 0xffff),
                     "web-tcp" + source + destination(13, 0xffff),
                     "other" + source + destination(14, 0xffff),
                     "web-tcp" + source + destination(14, 0xffff),
                     "web-tcp" + source + destination(16, 0xfff0),
                     "web-tcp" + source + destination(16, 0xffff)};
   Lines created;
   for (const std::string& line : capture.lines()) {
      if (const std::string begin = "5 Creating additional ruleConfig : ";
          line.starts_with(begin)) {
         created.push_back(line.substr(begin.size()));
      }
   }
   EXPECT_EQ(created, names);
   for (U32 index = 0; index < names.size(); ++index) {
      EXPECT_EQ(config->ruleByIndex(index)->name(), names[index]);
      EXPECT_EQ(config->ruleByName(names[index]), config->ruleByIndex(index));
   }
}

// The destinations 5-8 are three blocks: all of them for the first source, then for the second.
TEST_F(PortExpansion, twoSourceRangesAndThreeDestinationBlocks) {
   field.ports({{80, 80}, {443, 443}}, {{5, 8}});
   EXPECT_EQ(expandPorts(), 6U);
   EXPECT_EQ(namesByIndex(*config),
             (Lines{"0 web-tcp-SportData-80-SportMask-65535-DportData-5-DportMask-65535",
                    "1 web-tcp-SportData-80-SportMask-65535-DportData-6-DportMask-65534",
                    "2 web-tcp-SportData-80-SportMask-65535-DportData-8-DportMask-65535",
                    "3 web-tcp-SportData-443-SportMask-65535-DportData-5-DportMask-65535",
                    "4 web-tcp-SportData-443-SportMask-65535-DportData-6-DportMask-65534",
                    "5 web-tcp-SportData-443-SportMask-65535-DportData-8-DportMask-65535"}));
   EXPECT_EQ(portsByIndex(),
             (Lines{"0 80/65535 5/65535", "1 80/65535 6/65534", "2 80/65535 8/65535",
                    "3 443/65535 5/65535", "4 443/65535 6/65534", "5 443/65535 8/65535"}));
}

// Writes down what each rule is asked for with.
class Asked : public OruPostcardPolicyAclHelper {
 public:
   using OruPostcardPolicyAclHelper::OruPostcardPolicyAclHelper;
   U32 addRulesL4PortDataMask(const ProtoFieldPtr& protoField, const RulePtr& ruleConfig,
                              const AclConfigPtr& aclConfig, bool sportValid, L4PortDataMask sport,
                              bool dportValid, L4PortDataMask dport, bool flags,
                              U32 next) override {
      const auto side = [](bool valid, const L4PortDataMask& match) {
         return (valid ? " valid " : " not valid ") + std::to_string(match.l4PortData()) + "/" +
                std::to_string(match.l4PortMask());
      };
      asked.push_back(std::to_string(next) + side(sportValid, sport) + side(dportValid, dport) +
                      (flags ? " flags" : ""));
      same &= protoField == first.first && ruleConfig == first.second && aclConfig != nullptr;
      return next + 10;
   }
   Lines asked;
   bool same = true;
   std::pair<ProtoFieldPtr, RulePtr> first;
};

// The side that is not valid is 0, and each call takes the index that the one before returned.
TEST_F(PortExpansion, rulesAreAskedForOneByOne) {
   const auto helper = HelperRecords::make<Asked>(records.clientConfig, records.hwCapability);
   helper->first = {field.data(), rule};
   field.ports({}, {}).ports({}, {{80, 81}}).ports({{9, 9}}, {}).ports({{1, 1}}, {{2, 3}});
   EXPECT_EQ(helper->addRulesPortField(field.data(), rule, config, false, 5), 35U);
   EXPECT_EQ(helper->asked,
             (Lines{"5 not valid 0/0 valid 80/65534", "15 valid 9/65535 not valid 0/0",
                    "25 valid 1/65535 valid 2/65534"}));
   helper->asked.clear();
   EXPECT_EQ(helper->addRulesPortField(field.data(), rule, config, true, 0), 30U);
   EXPECT_EQ(helper->asked,
             (Lines{"0 not valid 0/0 valid 80/65534 flags", "10 valid 9/65535 not valid 0/0 flags",
                    "20 valid 1/65535 valid 2/65534 flags"}));
   EXPECT_TRUE(helper->same);
}

TEST_F(PortExpansion, tracesEveryBlockOnce) {
   field.ports({}, {{80, 80}}).ports({{1, 2}}, {{5, 5}, {9, 9}}).ports({{7, 7}}, {});
   const TraceCapture capture;
   expandPorts();
   Lines lines;
   for (const CapturedTrace& trace : capture.traces()) {
      if (trace.functionName == "addRulesPortField") {
         lines.push_back(std::to_string(trace.level) + " " + trace.text);
      }
   }
   EXPECT_EQ(lines, (Lines{"8 ", "5 Structured Filter with Proto fields, Sports : 0, Dports : 1",
                           "5 srcVect.size() : 0 dstVect.size() : 1",
                           "5 Only Dport Data : 0x50, Mask : 0xffff",
                           "5 Structured Filter with Proto fields, Sports : 1, Dports : 2",
                           "5 srcVect.size() : 2 dstVect.size() : 2",
                           "5 Sport Data : 0x1, Mask : 0xffff", "5 Dport Data : 0x5, Mask : 0xffff",
                           "5 Dport Data : 0x9, Mask : 0xffff", "5 Sport Data : 0x2, Mask : 0xffff",
                           "5 Dport Data : 0x5, Mask : 0xffff", "5 Dport Data : 0x9, Mask : 0xffff",
                           "5 Structured Filter with Proto fields, Sports : 1, Dports : 0",
                           "5 srcVect.size() : 1 dstVect.size() : 0",
                           "5 Sport Data : 0x7, Mask : 0xffff"}));
}

TEST_F(PortExpansion, worstRangesGiveThirtyBlocksPerSide) {
   field.ports({{1, 65534}}, {{1, 65534}});
   EXPECT_EQ(expandPorts(), 900U);
   EXPECT_EQ(config->ruleByIndexs(), 900U);
   EXPECT_EQ(config->ruleByNames(), 901U);
   EXPECT_EQ(config->ruleByIndex(0)->name(),
             "web-tcp-SportData-1-SportMask-65535-DportData-1-DportMask-65535");
   EXPECT_EQ(config->ruleByIndex(31)->name(),
             "web-tcp-SportData-2-SportMask-65534-DportData-2-DportMask-65534");
   EXPECT_EQ(config->ruleByIndex(899)->name(),
             "web-tcp-SportData-65534-SportMask-65535-DportData-65534-DportMask-65535");
}

TEST_F(PortExpansion, overlappingRangesGiveOneRuleUnderTwoIndexes) {
   field.ports({{80, 80}, {80, 81}, {81, 81}, {79, 80}}, {});
   EXPECT_EQ(expandPorts(), 5U);
   EXPECT_EQ(portsByIndex(), (Lines{"0 79/65535 -", "1 80/65535 -", "2 80/65535 -", "3 80/65534 -",
                                    "4 81/65535 -"}));
   EXPECT_EQ(config->ruleByIndex(1), config->ruleByIndex(2));
   EXPECT_EQ(config->ruleByNames(), 4U + 1U);
}

TEST_F(PortExpansion, equalEntriesWithFlagsGiveEachFlagRuleTwice) {
   field.ports({{80, 80}}, {}).ports({{80, 80}}, {}).flag(1, 1).flag(2, 2);
   EXPECT_EQ(expandPorts(true), 4U);
   EXPECT_EQ(config->ruleByIndex(0), config->ruleByIndex(2));
   EXPECT_EQ(config->ruleByIndex(1), config->ruleByIndex(3));
   EXPECT_EQ(config->ruleByNames(), 2U + 1U);
}

TEST_F(PortExpansion, flagsVaryFastest) {
   field.ports({{1, 2}}, {{5, 5}, {6, 6}}).flag(2, 2).flag(1, 1);
   EXPECT_EQ(expandPorts(true, 3), 11U);
   std::vector<std::string> seen;
   for (const auto& made : config->ruleByIndex()) {
      const RuleFilter& filter = *made->ruleFilter();
      seen.push_back(std::to_string(made.key()) + ":" +
                     std::to_string(filter.sportDataMask().l4PortData()) +
                     std::to_string(filter.dportDataMask().l4PortData()) +
                     std::to_string(filter.tcpFlagAndMask().tcpFlag().value()));
   }
   EXPECT_EQ(seen,
             (Lines{"3:151", "4:152", "5:161", "6:162", "7:251", "8:252", "9:261", "10:262"}));
}

TEST_F(PortExpansion, neitherPlacesNorDeletesTheTemplate) {
   field.ports({{1, 1}}, {}).flag(1, 1);
   expandPorts(true);
   EXPECT_EQ(config->ruleByName("web-tcp"), rule);
   EXPECT_FALSE(rule->ruleFilter()->sportDataMaskValid());
}

// ---------------------------------------------------------------- one pair of ports

struct Pair {
   bool sport;
   bool dport;
   const char* name;
   const char* filter;
};

TEST_F(PortExpansion, aPairOfPortsIsNamedByItsValidSides) {
   const Pair rows[] = {
         {true, false, "web-tcp-SportData-80-SportMask-65535", "sport=80/65535"},
         {false, true, "web-tcp-DportData-4-DportMask-65532", "dport=4/65532"},
         {true, true, "web-tcp-SportData-80-SportMask-65535-DportData-4-DportMask-65532",
          "sport=80/65535 dport=4/65532"},
         {false, false, "web-tcp", ""},
   };
   for (const Pair& row : rows) {
      EXPECT_EQ(records.helper->addRulesL4PortDataMask(field.data(), rule, config, row.sport,
                                                       {80, 0xffff}, row.dport, {4, 0xfffc}, false,
                                                       8),
                9U);
      const std::string expected = std::string{row.name} + ": 0.0.0.0/0 > 0.0.0.0/0 proto=6 " +
                                   row.filter + (*row.filter == '\0' ? "" : " ") +
                                   "actions= dscp=0/0";
      EXPECT_EQ(ruleText(*config->ruleByIndex(8)), expected);
      EXPECT_EQ(config->ruleByName(row.name), config->ruleByIndex(8));
   }
}

TEST_F(PortExpansion, theSideThatIsNotValidKeepsWhatTheTemplateHas) {
   rule->ruleFilter()->sportDataMaskValidIs(true);
   rule->ruleFilter()->sportDataMaskIs({7, 7});
   records.helper->addRulesL4PortDataMask(field.data(), rule, config, false, {1, 1}, true, {2, 2},
                                          false, 0);
   EXPECT_EQ(portsByIndex(), Lines{"0 7/7 2/2"});
}

TEST_F(PortExpansion, withFlagsThePortRuleIsReplaced) {
   field.flag(1, 1).flag(2, 18);
   EXPECT_EQ(records.helper->addRulesL4PortDataMask(field.data(), rule, config, true, {80, 0xffff},
                                                    false, {}, true, 5),
             7U);
   EXPECT_EQ(rulesByIndex(*config),
             (Lines{"5 web-tcp-SportData-80-SportMask-65535-tcpFlag-1-tcpFlagMask-1: 0.0.0.0/0 > "
                    "0.0.0.0/0 proto=6 sport=80/65535 flags=1/1 actions= dscp=0/0",
                    "6 web-tcp-SportData-80-SportMask-65535-tcpFlag-2-tcpFlagMask-18: 0.0.0.0/0 > "
                    "0.0.0.0/0 proto=6 sport=80/65535 flags=2/18 actions= dscp=0/0"}));
   EXPECT_EQ(config->ruleByName("web-tcp-SportData-80-SportMask-65535"), nullptr);
   EXPECT_EQ(config->ruleByNames(), 3U);
}

TEST_F(PortExpansion, withAnEmptyFlagSetThePortRuleStaysAtItsIndexWithoutAName) {
   EXPECT_EQ(records.helper->addRulesL4PortDataMask(field.data(), rule, config, true, {80, 0xffff},
                                                    false, {}, true, 5),
             5U);
   EXPECT_EQ(namesByIndex(*config), Lines{"5 web-tcp-SportData-80-SportMask-65535"});
   EXPECT_EQ(sortedNames(*config), Lines{"web-tcp"});
}

TEST_F(PortExpansion, aPairOfPortsTracesItsNames) {
   const TraceCapture capture;
   records.helper->addRulesL4PortDataMask(field.data(), rule, config, true, {80, 0xffff}, true,
                                          {4, 0xfffc}, false, 5);
   EXPECT_EQ(
         capture.linesWithText(),
         (Lines{"9 Rule Name : web-tcp, Sport Valid : true, Sport : 0x50, Dport Valid : true, "
                "Dport : 0x4, NextRuleIndex : 5",
                "5 Rule Name : web-tcp-SportData-80",
                "5 Rule Name : web-tcp-SportData-80-SportMask-65535",
                "5 Rule Name : web-tcp-SportData-80-SportMask-65535-DportData-4",
                "5 Rule Name : web-tcp-SportData-80-SportMask-65535-DportData-4-DportMask-65532",
                "5 Creating additional ruleConfig : "
                "web-tcp-SportData-80-SportMask-65535-DportData-4-DportMask-65532"}));
}

// ---------------------------------------------------------------- TCP flags

TEST_F(PortExpansion, flagsGiveOneRuleEachInAscendingOrder) {
   field.flag(16, 18).flag(2, 18).flag(2, 2);
   EXPECT_EQ(expandFlags(4), 7U);
   EXPECT_EQ(namesByIndex(*config),
             (Lines{"4 web-tcp-tcpFlag-2-tcpFlagMask-2", "5 web-tcp-tcpFlag-2-tcpFlagMask-18",
                    "6 web-tcp-tcpFlag-16-tcpFlagMask-18"}));
   EXPECT_EQ(config->ruleByName("web-tcp"), nullptr);
   EXPECT_EQ(config->ruleByNames(), 3U);
}

TEST_F(PortExpansion, noFlagsRemoveTheTemplateOnly) {
   EXPECT_EQ(expandFlags(4), 4U);
   EXPECT_EQ(config->ruleByNames() + config->ruleByIndexs(), 0U);
}

TEST_F(PortExpansion, flagsTraceEveryRule) {
   field.flag(2, 18).flag(255, 255);
   const TraceCapture capture;
   expandFlags(4);
   EXPECT_EQ(capture.linesWithText(),
             (Lines{"9 Rule Name : web-tcp, NextRuleIndex : 4",
                    "9 Creating addtional ruleConfig: web-tcp-tcpFlag-2-tcpFlagMask-18 for "
                    "tcpFlag 2 tcpMask 18",
                    "9 Creating addtional ruleConfig: web-tcp-tcpFlag-255-tcpFlagMask-255 for "
                    "tcpFlag 255 tcpMask 255",
                    "5 Deleting Rule : web-tcp"}));
}

const std::string zeroMask =
      fatalLine("U32 OruPostcardTelemetry::OruPostcardPolicyAclHelper::"
                "addRulesTcpFlagField(const PtrConst&, const Ptr&, const Ptr&, U32)",
                "flagIter.key().tcpFlagMask().value()");

TEST_F(PortExpansionDeathTest, aZeroFlagMaskEndsTheProcess) {
   field.ports({{1, 1}}, {}).flag(2, 0);
   EXPECT_DEATH(expandFlags(), zeroMask);
   EXPECT_DEATH(expandPorts(true), zeroMask);
}

TEST_F(PortExpansionDeathTest, aZeroFlagMaskIsFoundAfterTheOnesBeforeIt) {
   field.flag(1, 1).flag(2, 0);
   EXPECT_DEATH((Pello::traceLevelsIs("OruPostcardTelemetryPolicyAclHelper/9"), expandFlags()),
                literally("web-tcp-tcpFlag-1-tcpFlagMask-1 for tcpFlag 1 tcpMask 1") + "\n" +
                      zeroMask.substr(5));
}

} // namespace
} // namespace OruPostcardTelemetry
