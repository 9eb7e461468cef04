// What becomes of a template in one protocol: a rule as it stands, or the rules of its ports and
// TCP flags.
#include "FeatureToggle/FeatureToggle.h"
#include "Kiv/Exception.h"
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

class ProtocolExpansion : public testing::Test {
 protected:
   ProtocolExpansion() { makeTemplate("web-ipv4"); }
   void makeTemplate(const char* name) {
      config = new PostcardTelemetryAclConfig{"p-ipv4"};
      rule = config->ruleByNameIs(name);
      rule->ruleFilterIs()->sourceIs(Orlix::IpGenPrefix{"10.0.0.0/8"});
      rule->ruleActionIs()->actionIs(RuleAction::sampleAction);
   }
   U32 expand(U8 proto, U32 next = 0) {
      return records.helper->addRulesProtoField(config, rule, filter.data(), proto, next);
   }
   void capabilityIs(bool tcpFlags) { records.hwCapability->tcpFlagsSupportedIs(tcpFlags); }

   HelperRecords records;
   FilterRecords filter{new Classification::StructuredFilter{0}};
   Pello::Ptr<PostcardTelemetryAclConfig> config;
   Pello::Ptr<RuleConfig> rule;
};

// One row of the decision: what hardware can, what the TCP field has, which rules there are.
struct Decision {
   const char* name;
   bool capability;
   void (*field)(FilterRecords&);
   Lines rules;   // from index 7 on, without the template's name
   bool expanded; // whether the protocol's copy is gone
};

const auto missing = [](FilterRecords&) {};
const auto bare = [](FilterRecords& f) { f.tcp(); };
const auto flagsOnly = [](FilterRecords& f) { f.tcp().flag(2, 18).flag(1, 1); };
const auto portsOnly = [](FilterRecords& f) { f.tcp().ports({}, {{80, 80}}).ports({{9, 9}}, {}); };
const auto portsAndFlags = [](FilterRecords& f) {
   f.tcp().ports({}, {{80, 80}}).flag(2, 18).flag(1, 1);
};
const auto otherField = [](FilterRecords& f) { f.udp().ports({{1, 1}}, {}).flag(1, 1); };
const auto widerField = [](FilterRecords& f) { f.protocol(6, 17).ports({{1, 1}}, {}).flag(1, 1); };

const Decision decisions[] = {
      {"flags, missing", true, missing, {"7 -tcp"}, false},
      {"flags, another protocol's field", true, otherField, {"7 -tcp"}, false},
      {"flags, a wider field", true, widerField, {"7 -tcp"}, false},
      {"flags, neither", true, bare, {"7 -tcp"}, false},
      {"flags, flags only",
       true,
       flagsOnly,
       {"7 -tcp-tcpFlag-1-tcpFlagMask-1", "8 -tcp-tcpFlag-2-tcpFlagMask-18"},
       true},
      {"flags, both",
       true,
       portsAndFlags,
       {"7 -tcp-DportData-80-DportMask-65535-tcpFlag-1-tcpFlagMask-1",
        "8 -tcp-DportData-80-DportMask-65535-tcpFlag-2-tcpFlagMask-18"},
       true},
      {"flags, ports only",
       true,
       portsOnly,
       {"7 -tcp-DportData-80-DportMask-65535", "8 -tcp-SportData-9-SportMask-65535"},
       true},
      {"none, missing", false, missing, {"7 -tcp"}, false},
      {"none, a wider field", false, widerField, {"7 -tcp"}, false},
      {"none, neither", false, bare, {"7 -tcp"}, false},
      {"none, flags only", false, flagsOnly, {"7 -tcp"}, false},
      {"none, both", false, portsAndFlags, {"7 -tcp-DportData-80-DportMask-65535"}, true},
      {"none, ports only",
       false,
       portsOnly,
       {"7 -tcp-DportData-80-DportMask-65535", "8 -tcp-SportData-9-SportMask-65535"},
       true},
};

TEST_F(ProtocolExpansion, followsCapabilityPortsAndFlags) {
   for (const Decision& row : decisions) {
      SCOPED_TRACE(row.name);
      makeTemplate("");
      filter.data()->protoFieldDelAll();
      row.field(filter);
      capabilityIs(row.capability);
      const TraceCapture capture;
      EXPECT_EQ(expand(6, 7), 7 + row.rules.size());
      EXPECT_EQ(namesByIndex(*config), row.rules);
      EXPECT_EQ(config->ruleByName("-tcp") == nullptr, row.expanded);
      EXPECT_EQ(capture.count("5 Structured Filter with no proto fields"), row.expanded ? 0U : 1U);
      EXPECT_EQ(capture.traces().back().text,
                row.expanded ? "Deleting Rule : -tcp" : "Structured Filter with no proto fields");
      EXPECT_EQ(config->ruleByNames(), row.rules.size() + 1) << "the template stays";
   }
}

TEST_F(ProtocolExpansion, protocolsAreNamedAfterTheTemplate) {
   EXPECT_EQ(expand(6, 0), 1U);
   EXPECT_EQ(expand(17, 1), 2U);
   EXPECT_EQ(rulesByIndex(*config),
             (Lines{"0 web-ipv4-tcp: 10.0.0.0/8 > 0.0.0.0/0 proto=6 actions=0 dscp=0/0",
                    "1 web-ipv4-udp: 10.0.0.0/8 > 0.0.0.0/0 proto=17 actions=0 dscp=0/0"}));
}

TEST_F(ProtocolExpansion, theTemplateIsNeitherChangedNorPlaced) {
   const std::string before = ruleText(*rule);
   portsAndFlags(filter);
   expand(6);
   EXPECT_EQ(ruleText(*rule), before);
   EXPECT_EQ(config->ruleByName("web-ipv4"), rule);
   EXPECT_EQ(sortedNames(*config),
             (Lines{"web-ipv4", "web-ipv4-tcp-DportData-80-DportMask-65535-tcpFlag-1-tcpFlagMask-1",
                    "web-ipv4-tcp-DportData-80-DportMask-65535-tcpFlag-2-tcpFlagMask-18"}));
}

TEST_F(ProtocolExpansion, theCopyHasPartsOfItsOwn) {
   expand(6);
   const auto made = config->ruleByIndex(0);
   EXPECT_NE(made->ruleFilter(), rule->ruleFilter());
   EXPECT_NE(made->ruleAction(), rule->ruleAction());
   EXPECT_EQ(config->ruleByName("web-ipv4-tcp"), made);
}

TEST_F(ProtocolExpansion, withoutACapabilityRecordTcpFlagsAreNotExpanded) {
   const auto bareHelper = oruPostcardPolicyAclHelperFactory({}, {});
   portsAndFlags(filter);
   EXPECT_EQ(bareHelper->addRulesProtoField(config, rule, filter.data(), 6, 0), 1U);
   EXPECT_EQ(namesByIndex(*config), (Lines{"0 web-ipv4-tcp-DportData-80-DportMask-65535"}));
}

TEST_F(ProtocolExpansion, anyOtherProtocolHasTheEmptyName) {
   EXPECT_EQ(expand(1, 3), 4U);
   EXPECT_EQ(rulesByIndex(*config), Lines{"3 : 10.0.0.0/8 > 0.0.0.0/0 proto=1 actions=0 dscp=0/0"});
}

TEST_F(ProtocolExpansion, protocolZeroIsRefusedAndLeavesItsRule) {
   EXPECT_THROW(expand(0), Kiv::RangeError);
   EXPECT_EQ(sortedNames(*config), (Lines{"", "web-ipv4"}));
   EXPECT_EQ(config->ruleByIndexs(), 0U);
}

TEST_F(ProtocolExpansion, udpFieldsAreExpandedAlike) {
   filter.udp().ports({{53, 53}}, {{0, 65535}});
   EXPECT_EQ(expand(17), 1U);
   EXPECT_EQ(rulesByIndex(*config),
             Lines{"0 web-ipv4-udp-SportData-53-SportMask-65535-DportData-0-DportMask-0: "
                   "10.0.0.0/8 > 0.0.0.0/0 proto=17 sport=53/65535 dport=0/0 actions=0 dscp=0/0"});
}

// A template without a name is its own copy in such a protocol.
TEST_F(ProtocolExpansion, aTemplateWithoutANameIsCopiedOverItself) {
   makeTemplate("");
   const auto sample = rule->ruleFilter()->sampleDataAndMaskIs("of another name");
   sample->maskIs(7);
   EXPECT_EQ(expand(1), 1U);
   EXPECT_EQ(config->ruleByIndex(0), rule);
   ASSERT_NE(rule->ruleFilter()->sampleDataAndMask(), nullptr);
   EXPECT_EQ(rule->ruleFilter()->sampleDataAndMask()->name(), "sampleDataAndMask");
}

// The rule that has the copy's name already is copied over: it stays in its places by index, and
// loses its name when the copy is expanded.
TEST_F(ProtocolExpansion, aRuleOfTheCopysNameIsTakenOver) {
   expand(6, 0);
   const auto first = config->ruleByIndex(0);
   rule->ruleFilter()->destinationIs(Orlix::IpGenPrefix{"9.0.0.0/8"});
   EXPECT_EQ(expand(6, 1), 2U);
   EXPECT_EQ(config->ruleByIndex(1), first);
   EXPECT_EQ(first->ruleFilter()->destination().stringValue(), "9.0.0.0/8");
   flagsOnly(filter);
   EXPECT_EQ(expand(6, 2), 4U);
   EXPECT_EQ(config->ruleByName("web-ipv4-tcp"), nullptr);
   EXPECT_EQ(namesByIndex(*config),
             (Lines{"0 web-ipv4-tcp", "1 web-ipv4-tcp", "2 web-ipv4-tcp-tcpFlag-1-tcpFlagMask-1",
                    "3 web-ipv4-tcp-tcpFlag-2-tcpFlagMask-18"}));
}

// The copy loses its name twice when flags alone are expanded; the second time finds nothing.
TEST_F(ProtocolExpansion, flagsAloneTraceTheRemovalOfTheCopyTwice) {
   flagsOnly(filter);
   const TraceCapture capture;
   expand(6);
   std::vector<std::string> removals;
   for (const CapturedTrace& trace : capture.traces()) {
      if (trace.text == "Deleting Rule : web-ipv4-tcp") {
         removals.push_back(std::to_string(trace.level) + " " + trace.functionName);
      }
   }
   EXPECT_EQ(removals, (Lines{"5 addRulesTcpFlagField", "5 addRulesProtoField"}));
   EXPECT_EQ(capture.traces().back().text, "Deleting Rule : web-ipv4-tcp");
}

TEST_F(ProtocolExpansion, tracesItsDecisions) {
   const TraceCapture capture;
   expand(17, 300);
   EXPECT_EQ(capture.traces().front().functionName, "addRulesProtoField");
   EXPECT_EQ(capture.linesWithText(),
             (Lines{"9 Rule Name : web-ipv4, Proto : 0x11, NextRuleIndex : 300",
                    "5 Creating Additional Rules : web-ipv4-udp",
                    "5 Structured Filter with no proto fields"}));
}

// ---------------------------------------------------------------- the feature toggle

constexpr std::string_view protoFieldFunction =
      "virtual U32 OruPostcardTelemetry::OruPostcardPolicyAclHelper::"
      "addRulesProtoField(const Ptr&, const Ptr&, const PtrConst&, U8, U32)";

class ProtocolExpansionToggleDeathTest : public ProtocolExpansion {
 protected:
   ProtocolExpansionToggleDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
   static void toggleOff() {
      FeatureToggle::toggleOverrideIs("FeaturePostcardTelemetryTcpControl", false);
   }
   [[noreturn]] static void leave(bool good) {
      std::fputs(good ? "good\n" : "bad\n", stderr);
      std::_Exit(good ? 0 : 1);
   }
};

TEST_F(ProtocolExpansionToggleDeathTest, offAndSeveralEntriesEndTheProcessWithoutCapability) {
   portsOnly(filter);
   capabilityIs(false);
   EXPECT_DEATH((toggleOff(), expand(6)), fatalLine(protoFieldFunction, "protoField->ports() == 1",
                                                    "Expected ports() to be 1, got 2"));
}

TEST_F(ProtocolExpansionToggleDeathTest, offIsNoMatterWithCapabilityOrOneEntryOrNone) {
   EXPECT_EXIT(
         {
            toggleOff();
            portsOnly(filter);
            bool good = expand(6, 0) == 2;
            capabilityIs(false);
            filter.data()->protoFieldDelAll();
            good &= expand(6, 2) == 3;
            bare(filter);
            good &= expand(6, 3) == 4;
            portsAndFlags(filter);
            good &= expand(6, 4) == 5;
            leave(good);
         },
         testing::ExitedWithCode(0), "good");
}

// Each kind of hardware has its own place where the count is checked.
TEST_F(ProtocolExpansionToggleDeathTest, aWholePolicyFailsInThePlaceOfItsHardware) {
   PolicyRecords policy{"p"};
   policy.intf4("Ethernet1")
         .classMap("web")
         .filter4()
         .tcp()
         .ports({{1, 1}}, {})
         .ports({{2, 2}}, {});
   const auto create = [&] {
      toggleOff();
      records.helper->createPolicy(policy.data(), PolicyMap::matchIpAccessGroup());
   };
   const std::string_view message = "Expected ports() to be 1, got 2";
   EXPECT_DEATH(create(), fatalLine("Kiv::String OruPostcardTelemetry::checkUnsupportedFields("
                                    "const PtrConst&, const PtrConst&)",
                                    "protoIter->ports() == 1", message));
   capabilityIs(false);
   EXPECT_DEATH(create(), fatalLine(protoFieldFunction, "protoField->ports() == 1", message));
}

} // namespace
} // namespace OruPostcardTelemetry
