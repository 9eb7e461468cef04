// The walk over a policy's classes: their order, what stops it, and what stays behind.
#include "support/FatalLine.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/RuleText.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace OruPostcardTelemetry {
namespace {

using PolicyMap::ActionType;
using PolicyMap::matchIpAccessGroup;
using PolicyMap::matchIpv6AccessGroup;
using namespace TestSupport;
using Lines = std::vector<std::string>;

constexpr std::string_view walkFunction =
      "virtual Kiv::String "
      "OruPostcardTelemetry::OruPostcardPolicyAclHelper::updateRulesInAclConfig("
      "const PtrConst&, PolicyMap::ClassMapMatchOption)";

class Walk : public testing::Test {
 protected:
   // The result of the walk for IPv4, over a new configuration.
   Kiv::String walk() {
      config = records.helper->createAclConfig(policy.data(), matchIpAccessGroup());
      return records.helper->updateRulesInAclConfig(policy.data(), matchIpAccessGroup());
   }
   Kiv::String walkAgain() {
      return records.helper->updateRulesInAclConfig(policy.data(), matchIpAccessGroup());
   }
   HelperRecords records;
   PolicyRecords policy{"p", "s"};
   Pello::Ptr<PostcardTelemetryAclConfig> config;
};
using WalkDeathTest = Walk;

TEST_F(Walk, aValidClassHasRulesFromIndexZero) {
   policy.classMap("a").sample().filter4();
   EXPECT_EQ(walk(), "");
   EXPECT_EQ(namesByIndex(*config), (Lines{"0 a-ipv4-tcp", "1 a-ipv4-udp"}));
}

TEST_F(Walk, indexesRunOnInPriorityOrder) {
   policy.classMap("late").filterAt(30, matchIpAccessGroup());
   policy.classMap("early").filterAt(10, matchIpAccessGroup()).udp();
   policy.classMap("middle").filterAt(20, matchIpAccessGroup());
   EXPECT_EQ(walk(), "");
   EXPECT_EQ(namesByIndex(*config),
             (Lines{"0 early-ipv4-udp", "1 middle-ipv4-tcp", "2 middle-ipv4-udp", "3 late-ipv4-tcp",
                    "4 late-ipv4-udp"}));
}

TEST_F(Walk, theSecondOfThreeClassesStopsIt) {
   policy.classMap("first").sample().filter4();
   policy.classMap("second").sample().filter4().data()->fragmentsIs();
   policy.classMap("third").sample().filter4();
   const TraceCapture capture;
   EXPECT_EQ(walk(), "Unsupported match(es): 'Fragments', in configuration");
   EXPECT_EQ(sortedNames(*config), (Lines{"first-ipv4-tcp", "first-ipv4-udp"}));
   EXPECT_EQ(namesByIndex(*config), (Lines{"0 first-ipv4-tcp", "1 first-ipv4-udp"}));
   EXPECT_EQ(capture.count("5 Class Map : first"), 1U);
   EXPECT_EQ(capture.count("5 Class Map : second"), 1U);
   EXPECT_EQ(capture.count("5 Class Map : third"), 0U);
}

TEST_F(Walk, anUnsupportedActionStopsIt) {
   policy.classMap("a").sample().action(ActionType::police).action(ActionType::drop).filter4();
   EXPECT_EQ(walk(), "Unsupported action(s): 'drop', 'police', in configuration");
   EXPECT_EQ(config->ruleByNames() + config->ruleByIndexs(), 0U);
}

TEST_F(Walk, settingTheDscpIsSupported) {
   policy.classMap("a").setDscp(0).filter4();
   EXPECT_EQ(walk(), "");
   EXPECT_EQ(config->ruleByIndexs(), 2U);
}

TEST_F(Walk, anUnsupportedMatchHidesAnUnsupportedAction) {
   policy.classMap("a").action(ActionType::police).filter4().data()->ipOptionsIs(true);
   EXPECT_EQ(walk(), "Unsupported match(es): 'IP Options', in configuration");
}

TEST_F(Walk, noRulesAtAllIsAnOrdinaryError) {
   policy.noRules(matchIpAccessGroup());
   EXPECT_EQ(walk(), "No rules configured in policy  p/s");
}

TEST_F(Walk, theCapabilityDecidesWhatIsRefused) {
   policy.classMap("a").sample().filter4().udp().flag(1, 1);
   EXPECT_EQ(walk(), "Unsupported match(es): 'TCP Flag', in configuration");
   records.hwCapability->tcpFlagsSupportedIs(false);
   EXPECT_EQ(walkAgain(), "");
}

TEST_F(Walk, familiesAreSeparate) {
   ClassRecords a = policy.classMap("a");
   a.filter4();
   a.filter6().source("2001:db8::/32").data()->fragmentsIs();
   EXPECT_EQ(walk(), "");
   const auto six = records.helper->createAclConfig(policy.data(), matchIpv6AccessGroup());
   EXPECT_EQ(records.helper->updateRulesInAclConfig(policy.data(), matchIpv6AccessGroup()),
             "Unsupported match(es): 'Fragments', in configuration");
   EXPECT_EQ(config->ruleByIndexs(), 2U);
   EXPECT_EQ(six->ruleByIndexs(), 0U);
}

TEST_F(Walk, rulesThatAreThereStayAndIndexesStartAgain) {
   policy.classMap("a").filter4();
   walk();
   config->ruleByIndexIs(7, config->ruleByNameIs("mine"));
   config->policyIntfIs(Orlix::IntfId{"Ethernet1"});
   policy.classMap("b").filterAt(1, matchIpAccessGroup()).tcp();
   EXPECT_EQ(walkAgain(), "");
   EXPECT_EQ(namesByIndex(*config),
             (Lines{"0 b-ipv4-tcp", "1 a-ipv4-tcp", "2 a-ipv4-udp", "7 mine"}));
   EXPECT_EQ(config->policyIntfs(), 1U);
}

TEST_F(WalkDeathTest, withoutAConfigurationItEndsTheProcess) {
   policy.classMap("a").filter4();
   EXPECT_DEATH((showErrors(), walkAgain()),
                errorThenFatalLine("updateRulesInAclConfig",
                                   "Error: Acl Config not found for Policy  p/s", walkFunction,
                                   "0"));
}

TEST_F(WalkDeathTest, withoutRulesDataItEndsTheProcess) {
   policy.classMap("a").filter6();
   EXPECT_DEATH((showErrors(), walk()),
                errorThenFatalLine("updateRulesInAclConfig",
                                   "Error: Rules Data not found for Policy  p/s", walkFunction,
                                   "0"));
}

TEST_F(WalkDeathTest, otherThanOneFilterEndsTheProcess) {
   ClassRecords a = policy.classMap("a");
   a.filter4();
   const auto filters = a.collection(matchIpAccessGroup());
   filters->filterIs(1);
   EXPECT_DEATH(walk(), fatalLine(walkFunction, "sfc->filters() == 1"));
   filters->filterDelAll();
   EXPECT_DEATH(walk(), fatalLine(walkFunction, "sfc->filters() == 1"));
}

TEST_F(WalkDeathTest, anUnsupportedOptionEndsTheProcess) {
   EXPECT_DEATH(
         records.helper->updateRulesInAclConfig(policy.data(), PolicyMap::matchMacAccessGroup()),
         fatalLine("Acl::AclType OruPostcardTelemetry::matchOptionToAclType("
                   "PolicyMap::ClassMapMatchOption)",
                   R"(false && "unsupported match option")"));
}

// Gives every policy the same key, whatever the option.
class OneKey : public OruPostcardPolicyAclHelper {
 public:
   using OruPostcardPolicyAclHelper::OruPostcardPolicyAclHelper;
   Pello::String getAclConfigKey(const PolicyDataPtr&, MatchOption) override { return "key"; }
};

TEST_F(WalkDeathTest, anUnsupportedOptionEndsTheProcessWhateverTheKey) {
   const auto helper = HelperRecords::make<OneKey>(records.clientConfig, records.hwCapability);
   policy.classMap("a").filter4();
   helper->createAclConfig(policy.data(), matchIpAccessGroup());
   EXPECT_EQ(helper->updateRulesInAclConfig(policy.data(), matchIpAccessGroup()), "");
   EXPECT_DEATH(helper->updateRulesInAclConfig(policy.data(), PolicyMap::matchMacAccessGroup()),
                "^" + fatalLine("Acl::AclType OruPostcardTelemetry::matchOptionToAclType("
                                "PolicyMap::ClassMapMatchOption)",
                                R"(false && "unsupported match option")"));
}

constexpr std::string_view createFunction =
      "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::createPolicy("
      "const PtrConst&, PolicyMap::ClassMapMatchOption)";

TEST_F(WalkDeathTest, creationForAnUnsupportedOptionEndsTheProcess) {
   for (const int number : {2, 255}) {
      const auto option = static_cast<PolicyMap::ClassMapMatchOption>(number);
      EXPECT_DEATH(records.helper->createPolicy(policy.data(), option),
                   fatalLine(createFunction,
                             "matchOption == PolicyMap::matchIpAccessGroup() || "
                             "matchOption == PolicyMap::matchIpv6AccessGroup()",
                             "unsupported match option"));
   }
}

TEST_F(WalkDeathTest, creationWithoutInterfacesOfTheFamilyEndsTheProcess) {
   const PolicyRecords only4 = PolicyRecords{"p"}.intf4("Ethernet1");
   const PolicyRecords only6 = PolicyRecords{"p"}.intf6("Ethernet1");
   EXPECT_DEATH(
         records.helper->createPolicy(only6.data(), matchIpAccessGroup()),
         fatalLine(createFunction, "policyData->intf4s()", "Policy without attached interfaces"));
   EXPECT_DEATH(
         records.helper->createPolicy(only4.data(), matchIpv6AccessGroup()),
         fatalLine(createFunction, "policyData->intf6s()", "Policy without attached interfaces"));
}

} // namespace
} // namespace OruPostcardTelemetry
