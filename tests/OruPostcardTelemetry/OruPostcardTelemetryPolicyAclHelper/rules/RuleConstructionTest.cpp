// The rules of one class: what the template takes from the filter, which protocols are expanded,
// and that the template goes.
#include "support/FatalLine.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/RuleText.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace OruPostcardTelemetry {
namespace {

using PolicyMap::matchIpAccessGroup;
using PolicyMap::matchIpv6AccessGroup;
using namespace TestSupport;
using Lines = std::vector<std::string>;

constexpr std::string_view addRulesFunction =
      "virtual U32 OruPostcardTelemetry::OruPostcardPolicyAclHelper::addRules("
      "const PolicyMap::AclRuleKey&, const PtrConst&, const PtrConst&, const Ptr&, U32)";

class RulesOfClass : public testing::Test {
 protected:
   U32 addRules(U32 next = 0, PolicyMap::ClassMapMatchOption option = matchIpAccessGroup()) {
      return records.helper->addRules(classMap.key(option), policy.data(), classMap.data(), config,
                                      next);
   }
   HelperRecords records;
   PolicyRecords policy{"p"};
   ClassRecords classMap = policy.classMap("web");
   FilterRecords filter = classMap.filter4();
   Pello::Ptr<PostcardTelemetryAclConfig> config{new PostcardTelemetryAclConfig{"p-ipv4"}};
};
using RulesOfClassDeathTest = RulesOfClass;

TEST_F(RulesOfClass, anEmptyFilterGivesOneRulePerProtocol) {
   EXPECT_EQ(addRules(5), 7U);
   EXPECT_EQ(rulesByIndex(*config),
             (Lines{"5 web-ipv4-tcp: 0.0.0.0/0 > 0.0.0.0/0 proto=6 actions= dscp=0/0",
                    "6 web-ipv4-udp: 0.0.0.0/0 > 0.0.0.0/0 proto=17 actions= dscp=0/0"}));
   EXPECT_EQ(sortedNames(*config), (Lines{"web-ipv4-tcp", "web-ipv4-udp"}));
}

TEST_F(RulesOfClass, prefixesSampleAndActionsReachEveryRule) {
   classMap.sample().setDscp(46);
   filter.source("10.1.2.3/8").destination("192.0.2.1/32").sampleMatch(0x12, 0xff, 4);
   addRules();
   EXPECT_EQ(rulesByIndex(*config),
             (Lines{"0 web-ipv4-tcp: 10.0.0.0/8 > 192.0.2.1/32 proto=6 sample=18/255/4 "
                    "actions=02 dscp=0/0",
                    "1 web-ipv4-udp: 10.0.0.0/8 > 192.0.2.1/32 proto=17 sample=18/255/4 "
                    "actions=02 dscp=0/0"}));
}

TEST_F(RulesOfClass, sampleMatchesOfTwoRulesAreTwoObjects) {
   classMap.sample();
   filter.sampleMatch(1, 1);
   addRules();
   const auto tcp = config->ruleByIndex(0)->ruleFilter()->sampleDataAndMask();
   const auto udp = config->ruleByIndex(1)->ruleFilter()->sampleDataAndMask();
   EXPECT_NE(tcp, udp);
   EXPECT_NE(tcp, filter.data()->tcpUdpCheckSumOrIpId());
   EXPECT_EQ(tcp->name(), "sampleDataAndMask");
}

TEST_F(RulesOfClass, ipv6WithoutPrefixesKeepsTheSameDefault) {
   FilterRecords filter6 = classMap.filter6();
   filter6.destination("2001:DB8::/32").tcp();
   EXPECT_EQ(addRules(0, matchIpv6AccessGroup()), 1U);
   EXPECT_EQ(rulesByIndex(*config),
             Lines{"0 web-ipv6-tcp: 0.0.0.0/0 > 2001:db8::/32 proto=6 actions= dscp=0/0"});
}

TEST_F(RulesOfClass, ofTwoPrefixesTheSmallestIsUsed) {
   filter.source("10.0.0.0/9")
         .source("10.0.0.0/8")
         .destination("9.0.0.0/8")
         .destination("8.0.0.0/8");
   addRules();
   EXPECT_EQ(config->ruleByIndex(0)->ruleFilter()->source().stringValue(), "10.0.0.0/8");
   EXPECT_EQ(config->ruleByIndex(0)->ruleFilter()->destination().stringValue(), "8.0.0.0/8");
}

TEST_F(RulesOfClass, withoutAPlainSampleActionTheSampleMatchIsDropped) {
   classMap.sampleAll();
   filter.sampleMatch(1, 0xff);
   const TraceCapture capture;
   addRules();
   EXPECT_EQ(config->ruleByIndex(0)->ruleFilter()->sampleDataAndMask(), nullptr);
   EXPECT_EQ(capture.count("5 Setting Sample mask to zero"), 1U);
   EXPECT_EQ(capture.count("5 Sample data : 0x1 Sample Mask : 0xff Sample Version : 0 "), 1U);
}

TEST_F(RulesOfClass, theSampleMatchIsDroppedBeforeTheActionsAreSet) {
   classMap.sampleAll();
   filter.sampleMatch(1, 0xff).tcp();
   const TraceCapture capture;
   addRules();
   Lines lines;
   for (const CapturedTrace& trace : capture.traces()) {
      if (trace.source == "OruPostcardTelemetryPolicyAclHelper") {
         lines.push_back(std::to_string(trace.level) + " " + trace.functionName + ": " +
                         trace.text);
      }
   }
   lines.erase(lines.begin(), std::ranges::find(lines, "5 addRules: Class : web, Acl Type : ipv4"));
   lines.resize(8);
   EXPECT_EQ(lines, (Lines{"5 addRules: Class : web, Acl Type : ipv4",
                           "5 addRules: Sample data : 0x1 Sample Mask : 0xff Sample Version : 0 ",
                           "9 ignoreSampleData: Class Name : web",
                           "9 ignoreSampleData: Sample Action Present : false",
                           "5 addRules: Setting Sample mask to zero", "8 updateRuleAction: ",
                           "9 updateRuleAction: Update action for Class : web",
                           "5 updateRuleAction: Setting action Sample All "}));
}

TEST_F(RulesOfClass, withASampleActionButNoMatchNothingIsWritten) {
   classMap.sample();
   const TraceCapture capture;
   addRules();
   EXPECT_EQ(config->ruleByIndex(0)->ruleFilter()->sampleDataAndMask(), nullptr);
   EXPECT_EQ(capture.count("5 Setting Sample mask to zero"), 0U);
   EXPECT_EQ(capture.count("5 Sample data : 0x0 Sample Mask : 0x0 Sample Version : 0 "), 1U);
}

// Which protocols are expanded, by the fields that the filter has.
struct Protocols {
   std::vector<std::pair<U32, U32>> fields;
   Lines traces;
   Lines names;
};

TEST_F(RulesOfClass, protocolsFollowTheFieldsThatNameThem) {
   const std::string tcp = "5 Creating rules for TCP protocol";
   const std::string udp = "5 Creating rules for UDP protocol";
   const std::string both = "5 Creating rules for TCP and UDP protocols";
   const std::string expanded = "8 "; // the entry into a protocol's expansion
   const Lines two{"3 web-ipv4-tcp", "4 web-ipv4-udp"};
   const Protocols rows[] = {
         {{{6, 6}, {17, 17}}, {tcp, expanded, udp, expanded}, two},
         {{{6, 6}}, {tcp, expanded}, {"3 web-ipv4-tcp"}},
         {{{17, 17}}, {udp, expanded}, {"3 web-ipv4-udp"}},
         {{}, {both, expanded, expanded}, two},
         {{{6, 17}}, {both, expanded, expanded}, two},
         {{{1, 255}, {1, 1}}, {both, expanded, expanded}, two},
         {{{6, 17}, {17, 17}}, {udp, expanded}, {"3 web-ipv4-udp"}},
   };
   for (const Protocols& row : rows) {
      filter.data()->protoFieldDelAll();
      for (const auto& [low, high] : row.fields) {
         filter.protocol(low, high);
      }
      config = new PostcardTelemetryAclConfig{"p-ipv4"};
      const TraceCapture capture;
      EXPECT_EQ(addRules(3), 3 + row.names.size());
      EXPECT_EQ(namesByIndex(*config), row.names);
      Lines traces;
      for (const CapturedTrace& trace : capture.traces()) {
         if (trace.text.starts_with("Creating rules for") ||
             (trace.level == 8 && trace.functionName == "addRulesProtoField")) {
            traces.push_back(std::to_string(trace.level) + " " + trace.text);
         }
      }
      EXPECT_EQ(traces, row.traces);
   }
}

TEST_F(RulesOfClass, aRuleOfTheTemplatesNameIsGoneAfterwards) {
   const auto mine = config->ruleByNameIs("web-ipv4");
   config->ruleByIndexIs(9, mine);
   addRules();
   EXPECT_EQ(config->ruleByName("web-ipv4"), nullptr);
   EXPECT_EQ(config->ruleByIndex(9), mine);
   EXPECT_EQ(namesByIndex(*config), (Lines{"0 web-ipv4-tcp", "1 web-ipv4-udp", "9 web-ipv4"}));
}

// What such a rule has already, the class's rules inherit: the template is made over it.
TEST_F(RulesOfClass, aRuleOfTheTemplatesNameShinesThrough) {
   const auto mine = config->ruleByNameIs("web-ipv4");
   mine->ruleFilterIs()->sourceIs(Orlix::IpGenPrefix{"10.0.0.0/8"});
   mine->ruleFilter()->tcpFlagAndMaskIs(Classification::TcpFlagAndMask{2, 18});
   mine->ruleActionIs()->actionIs(RuleAction::policeAction);
   filter.destination("9.0.0.0/8").tcp();
   classMap.sampleAll();
   addRules();
   EXPECT_EQ(rulesByIndex(*config),
             Lines{"0 web-ipv4-tcp: 10.0.0.0/8 > 9.0.0.0/8 proto=6 flags=2/18 actions=01 "
                   "dscp=0/0"});
}

TEST_F(RulesOfClass, portEntriesWithoutRangesGiveNoRuleAndKeepTheIndex) {
   filter.tcp().ports({}, {});
   EXPECT_EQ(addRules(4), 4U);
   EXPECT_EQ(config->ruleByNames() + config->ruleByIndexs(), 0U);
}

TEST_F(RulesOfClassDeathTest, aKeyWithoutPriorityEndsTheProcess) {
   const auto rules = policy.changeable()->rulePriority(Acl::AclType{0});
   rules->priorityDelAll();
   EXPECT_DEATH(addRules(), fatalLine(addRulesFunction, "rulePriority->priorityHas( key )"));
}

TEST_F(RulesOfClassDeathTest, aKeyThatDiffersInOnePartHasNoPriority) {
   const PolicyMap::AclRuleKey key = classMap.key(matchIpAccessGroup());
   const PolicyMap::AclRuleKey other{key.policyMapKey(), key.className(), key.aclName(),
                                     key.sequence() + 1, key.matchOption()};
   EXPECT_DEATH(records.helper->addRules(other, policy.data(), classMap.data(), config, 0),
                fatalLine(addRulesFunction, "rulePriority->priorityHas( key )"));
}

TEST_F(RulesOfClassDeathTest, aZeroSampleMaskEndsTheProcess) {
   filter.sampleMatch(1, 0);
   const auto line =
         fatalLine(addRulesFunction, R"(sampleMask && "Sample Mask should be non zero")");
   EXPECT_DEATH(addRules(), line);
   classMap.sample();
   EXPECT_DEATH(addRules(), line);
   // Before the match is traced, and before the class is asked whether it is dropped.
   EXPECT_DEATH((Pello::traceLevelsIs("OruPostcardTelemetryPolicyAclHelper/0-9"), addRules()),
                literally("OruPostcardTelemetryPolicyAclHelper 5 OruPostcardPolicyAclHelper::"
                          "addRules: Class : web, Acl Type : ipv4\n") +
                      line.substr(5));
}

TEST_F(RulesOfClassDeathTest, anUnsupportedOptionInTheKeyEndsTheProcess) {
   const PolicyMap::AclRuleKey key = classMap.key(matchIpAccessGroup());
   const PolicyMap::AclRuleKey other{key.policyMapKey(), key.className(), key.aclName(),
                                     key.sequence(), PolicyMap::matchMacAccessGroup()};
   EXPECT_DEATH(records.helper->addRules(other, policy.data(), classMap.data(), config, 0),
                fatalLine("Acl::AclType OruPostcardTelemetry::matchOptionToAclType("
                          "PolicyMap::ClassMapMatchOption)",
                          R"(false && "unsupported match option")"));
}

} // namespace
} // namespace OruPostcardTelemetry
