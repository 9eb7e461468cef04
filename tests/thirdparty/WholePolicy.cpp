// One small policy from its classes to the text of the show command: every name, every number,
// every line.

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

// Samples some of the web traffic of a network, and all of what a name server answers.
Pello::Ptr<PolicyData> officePolicy() {
   const Pello::Ptr<PolicyData> policy{attachedPolicy("office")};
   const Class web{addClass(policy, ipv4(), 10, "web")};
   addSource(web, "10.0.0.0/8");
   addDestination(web, "192.168.1.0/24");
   addSampleMatch(web, 5, 7, 4);
   addAction(web, sample);
   addDestinationPorts(addProtocols(web, 6, 6), 0, 80, 82);
   const Class dns{addClass(policy, ipv4(), 20, "dns")};
   addDestination(dns, "192.168.53.0/24");
   addAction(dns, sampleAll);
   addSourcePorts(addProtocols(dns, 17, 17), 0, 53, 53);
   return policy;
}

std::string webRule(const std::string& ports) {
   return withFamily("web") + "-tcp-DportData-" + ports;
}

std::string dnsRule() {
   return withFamily("dns") + "-udp-SportData-53-SportMask-65535";
}

Lines webBlock(const std::string& name, const std::string& data, const std::string& mask) {
   return {"",
           "Rule Name:             " + name,
           "Rule Filter:",
           "    Source:            10.0.0.0/8",
           "    Destination:       192.168.1.0/24",
           "    Source Port:       Not Configured",
           "    Destination Port Data: " + data,
           "    Destination Port Mask: " + mask,
           "    Tcp FlagAndMask:   Not Configured",
           "    Protocol:          6",
           "    Sample:",
           "       Data:           5",
           "       Mask:           7",
           "Rule Action:",
           "    Actions:",
           "       sampleAction"};
}

Lines dnsBlock() {
   return {"",
           "Rule Name:             " + dnsRule(),
           "Rule Filter:",
           "    Source:            " + unsetPrefixText(),
           "    Destination:       192.168.53.0/24",
           "    Source Port Data:  53",
           "    Source Port Mask:  65535",
           "    Destination Port:  Not Configured",
           "    Tcp FlagAndMask:   Not Configured",
           "    Protocol:          17",
           "    Sample:",
           "       Sample Data Ignored",
           "Rule Action:",
           "    Actions:",
           "       sampleAction"};
}

Lines ending() {
   return {"",
           "Policy Interfaces:",
           "    Ethernet1",
           "Programmed Policy:     " + boolText(true),
           "Rules Client Updated:  " + boolText(true),
           "Policy Event Status:",
           "    3 rules in place",
           std::string(57, '-')};
}

void append(Lines& lines, const Lines& more) {
   lines.insert(lines.end(), more.begin(), more.end());
}

// Everything after the line of the policy's type, whose text is the platform's own.
Lines expectedRest() {
   Lines lines{};
   append(lines, webBlock(webRule("80-DportMask-65534"), "80", "65534"));
   append(lines, webBlock(webRule("82-DportMask-65535"), "82", "65535"));
   append(lines, dnsBlock());
   append(lines, ending());
   return lines;
}

void rules(const Config& config) {
   CHECK(namesInOrder(config) ==
         Lines{webRule("80-DportMask-65534"), webRule("82-DportMask-65535"), dnsRule()});
   CHECK_EQ(count(rulesByName(config)), 3);
   RuleConfig::Ptr const second{config.ruleByIndex(1)};
   CHECK(same(second, config.ruleByName(webRule("82-DportMask-65535").c_str())));
   CHECK(second->ruleFilter()->dportDataMask().isEq(L4PortDataMask{82, 0xffff}));
   CHECK(!second->ruleFilter()->sportDataMaskValid());
   CHECK_EQ(second->ruleFilter()->sampleDataAndMask()->version(), 4);
   CHECK(!config.ruleByIndex(3));
}

void shownText(const OruPostcardPolicyAclHelper& helper) {
   const Lines lines{linesOf(shownBy(helper))};
   const Lines rest{expectedRest()};
   CHECK_EQ(lines.size(), rest.size() + 3);
   if (lines.size() != rest.size() + 3) {
      return;
   }
   CHECK_EQ(lines[0], std::string(57, '-'));
   CHECK_EQ(lines[1], "Policy Name:           " + withFamily("office"));
   CHECK(lines[2].starts_with("Policy Type:           "));
   for (std::size_t line{0}; line < rest.size(); ++line) {
      CHECK_EQ(lines[line + 3], rest[line]);
   }
}

void wholePolicy() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{officePolicy()};
   bench.helper->hwInit();
   CHECK_EQ(text(bench.helper->createPolicy(policy, ipv4())), "");
   CHECK_EQ(text(bench.helper->commitPolicy(policy, ipv4())), "");
   CHECK_EQ(text(bench.helper->updatePolicyStatus(statusSuccess, "3 rules in place")), "");
   Config::Ptr const config{bench.config(policy)};
   CHECK_EQ(text(config->aclConfigKey()), withFamily("office"));
   rules(*config);
   shownText(*bench.helper);
   CHECK_EQ(text(bench.helper->deletePolicy(policy, ipv4())), "");
   CHECK_EQ(shownBy(*bench.helper), "");
   // The rules client may still read what it is asked to remove.
   CHECK_EQ(count(rulesByIndex(*bench.request->aclConfig())), 3);
   CHECK_EQ(bench.request->kickRequest(), 2);
}

const Subject subject{"whole policy", wholePolicy};

} // namespace
