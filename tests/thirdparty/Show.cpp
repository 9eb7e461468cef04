// The show command's text, piece by piece.

#include "Bench.h"
#include "Check.h"
#include "Shown.h"

#include <string>
#include <vector>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Config = PostcardTelemetryAclConfig;
using Lines = std::vector<std::string>;

std::string const separator(57, '-');

// The text of a helper whose only configuration holds one rule.
struct OneRule {
   Bench bench;
   RuleConfig::Ptr rule{};

   explicit OneRule(bool tcpFlagsSupported = true) : bench{tcpFlagsSupported} {
      Config::Ptr const config{bench.helper->aclConfigCollIs("p1-acl")};
      rule = config->ruleByNameIs("web");
      config->ruleByIndexIs(0, rule);
   }

   std::string shown() const { return shownBy(*bench.helper); }
};

void nothing() {
   const Bench bench{};
   CHECK_EQ(shownBy(*bench.helper), "");
}

void bareConfiguration() {
   const Bench bench{};
   bench.helper->aclConfigCollIs("p1-acl");
   const Lines lines{linesOf(shownBy(*bench.helper))};
   CHECK_EQ(lines.size(), 9);
   if (lines.size() == 9) {
      CHECK_EQ(lines[0], separator);
      CHECK_EQ(lines[1], "Policy Name:           p1-acl");
      CHECK(lines[2].starts_with("Policy Type:           "));
      CHECK(contains(lines[2], familyName(ipv4())));
      CHECK_EQ(lines[3], "");
      CHECK_EQ(lines[4], "Policy Interfaces:");
      CHECK_EQ(lines[5], "Programmed Policy:     " + boolText(false));
      CHECK_EQ(lines[6], "Rules Client Updated:  " + boolText(false));
      CHECK_EQ(lines[7], "Policy Event Status:");
      CHECK_EQ(lines[8], separator);
   }
}

void interfacesAndStatus() {
   const Bench bench{};
   Config::Ptr const config{bench.helper->aclConfigCollIs("p1-acl")};
   config->policyIntfIs(intf("Ethernet1"));
   config->aclConfigStatusIs()->statusInOrderIs(2, "then full");
   config->aclConfigStatusIs()->statusInOrderIs(1, "first well");
   bench.helper->updateRulesClientConfig(policyUpdate, config, intf(""));
   std::string const whole{shownBy(*bench.helper)};
   CHECK(contains(whole, "\nPolicy Interfaces:\n    Ethernet1\nProgrammed Policy:"));
   CHECK(contains(whole, "Rules Client Updated:  " + boolText(true) + "\n"));
   CHECK(contains(whole, "Policy Event Status:\n    first well\n    then full\n" + separator));
}

void twoConfigurations() {
   const Bench bench{};
   bench.helper->aclConfigCollIs("a");
   bench.helper->aclConfigCollIs("b");
   std::string const whole{shownBy(*bench.helper)};
   CHECK(contains(whole, separator + "\n" + separator + "\n"));
   CHECK_EQ(occurrences(whole, separator), 4);
   CHECK(contains(whole, "Policy Name:           a\n"));
   CHECK(contains(whole, "Policy Name:           b\n"));
}

void bareRule() {
   const OneRule one{};
   CHECK(contains(one.shown(), "\n\nRule Name:             web\nRule Filter:\nRule Action:\n"
                               "    Actions:\n\nPolicy Interfaces:\n"));
}

void freshFilter() {
   const OneRule one{};
   one.rule->ruleFilterIs();
   std::string const whole{one.shown()};
   CHECK(contains(whole, "    Source:            " + unsetPrefixText() + "\n"));
   CHECK(contains(whole, "    Destination:       " + unsetPrefixText() + "\n"));
   CHECK(contains(whole, "    Source Port:       Not Configured\n"));
   CHECK(contains(whole, "    Destination Port:  Not Configured\n"));
   CHECK(contains(whole, "    Tcp FlagAndMask:   Not Configured\n"));
   CHECK(contains(whole, "    Protocol:          1\n"));
   CHECK(contains(whole, "    Sample:\n       Sample Data Ignored\n"));
}

void fullFilter() {
   const OneRule one{};
   RuleFilter::Ptr const filter{one.rule->ruleFilterIs()};
   filter->sourceIs(prefix("10.0.0.0/8"));
   filter->sportDataMaskValidIs(true);
   filter->sportDataMaskIs(L4PortDataMask{80, 0xffff});
   filter->dportDataMaskValidIs(true);
   filter->dportDataMaskIs(L4PortDataMask{1024, 0xfc00});
   filter->protoIs(Protocol{6});
   filter->tcpFlagAndMaskIs(tcpFlags(2, 18));
   const auto match = filter->sampleDataAndMaskIs("match");
   match->dataIs(4294967295u);
   match->maskIs(7);
   std::string const whole{one.shown()};
   CHECK(contains(whole, "    Source:            10.0.0.0/8\n"));
   CHECK(contains(whole, "    Source Port Data:  80\n    Source Port Mask:  65535\n"));
   CHECK(contains(whole, "    Destination Port Data: 1024\n    Destination Port Mask: 64512\n"));
   CHECK(contains(whole, "    Tcp FlagAndMask Data: 2\n    Tcp FlagAndMask Mask: 18\n"));
   CHECK(contains(whole, "    Protocol:          6\n"));
   CHECK(contains(whole, "       Data:           4294967295\n       Mask:           7\n"));
   CHECK(!contains(whole, "Sample Data Ignored"));
}

// Hardware that does not match TCP flags, and hardware nobody has described, show no line for them.
void withoutTcpFlags() {
   const OneRule one{false};
   one.rule->ruleFilterIs()->tcpFlagAndMaskIs(tcpFlags(2, 18));
   CHECK(!contains(one.shown(), "Tcp"));
   const auto bare = oruPostcardPolicyAclHelperFactory(nullptr, nullptr);
   Config::Ptr const config{bare->aclConfigCollIs("p1-acl")};
   RuleConfig::Ptr const rule{config->ruleByNameIs("web")};
   rule->ruleFilterIs()->tcpFlagAndMaskIs(tcpFlags(2, 18));
   config->ruleByIndexIs(0, rule);
   std::string const whole{shownBy(*bare)};
   CHECK(contains(whole, "    Protocol:          1\n"));
   CHECK(!contains(whole, "Tcp"));
}

void shownActions() {
   const OneRule one{};
   RuleAction::Ptr const action{one.rule->ruleActionIs()};
   action->actionIs(RuleAction::policeAction);
   CHECK(contains(one.shown(), "Rule Action:\n    Actions:\n       policeAction\n\nPolicy"));
   CHECK(!contains(one.shown(), "DSCP"));
   // The bounds of the field, once after every action.
   action->actionIs(RuleAction::setDscpAction);
   action->dscpDataAndMaskIs(DscpDataAndMask{46, 63});
   std::string const block{"    DSCP:\n       Data:           Min: 0      Max: 63\n"
                           "       Mask:           Min: 0      Max: 63\n"};
   std::string const whole{one.shown()};
   CHECK_EQ(occurrences(whole, block), 2);
   CHECK(contains(whole, "       policeAction\n" + block));
   CHECK(contains(whole, "       setDscpAction\n" + block));
}

// An action without a name is held, but there is nothing to print for it.
void unnamedAction() {
   const OneRule one{};
   RuleAction::Ptr const action{one.rule->ruleActionIs()};
   action->actionIs(static_cast<RuleAction::Action>(200));
   CHECK(contains(one.shown(), "    Actions:\n\nPolicy Interfaces:\n"));
   action->actionIs(RuleAction::sampleAction);
   CHECK(contains(one.shown(), "    Actions:\n       sampleAction\n\nPolicy Interfaces:\n"));
}

void ascendingRules() {
   const Bench bench{};
   Config::Ptr const config{bench.helper->aclConfigCollIs("p1-acl")};
   config->ruleByIndexIs(12, ruleConfigFactory("last"));
   config->ruleByIndexIs(2, ruleConfigFactory("first"));
   // A rule without an index is not among the rules that are shown.
   config->ruleByNameIs("nameless place");
   std::string const whole{shownBy(*bench.helper)};
   CHECK(whole.find(" first\n") < whole.find(" last\n"));
   CHECK(contains(whole, " last\n"));
   CHECK(!contains(whole, "nameless place"));
}

void showOutput() {
   nothing();
   bareConfiguration();
   interfacesAndStatus();
   twoConfigurations();
   bareRule();
   freshFilter();
   fullFilter();
   withoutTcpFlags();
   shownActions();
   unnamedAction();
   ascendingRules();
}

const Subject subject{"show output", showOutput};

} // namespace
