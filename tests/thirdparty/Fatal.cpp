// Calls that break their contract end the process, and say where and why.

#include "Bench.h"
#include "Check.h"
#include "Dying.h"

#include <string>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Config = PostcardTelemetryAclConfig;

const char* const source{"OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper"};

// Checks that the action ends its process on an assertion that names all of the texts.
template <typename Action, typename... Texts>
void checkFatal(int line, Action action, const Texts&... named) {
   const Death death{dying(action)};
   const auto note = [&death, line](bool held, const std::string& what) {
      Tally::instance().note(held, __FILE__, line, what + "\n   stderr: " + death.errors);
   };
   note(death.aborted, "the process went on");
   note(contains(death.errors, "Assertion"), "no assertion");
   note(contains(death.errors, source), "the source is not named");
   (note(contains(death.errors, named), std::string{"missing: "} + named), ...);
}

#define CHECK_FATAL(...) checkFatal(__LINE__, __VA_ARGS__)

void aliveOtherwise() {
   const Death death{dying([] { samplingPolicy("p1"); })};
   CHECK(!death.aborted);
   CHECK(!contains(death.errors, "Assertion"));
}

void unsupportedFamilies() {
   CHECK_FATAL([] { matchOptionToAclType(unsupportedOption()); },
               "false && \"unsupported match option\"",
               "Acl::AclType OruPostcardTelemetry::matchOptionToAclType("
               "PolicyMap::ClassMapMatchOption)");
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   CHECK_FATAL([&] { bench.helper->createPolicy(policy, unsupportedOption()); },
               "unsupported match option");
   CHECK_FATAL([&] { bench.helper->recreatePolicy(policy, unsupportedOption()); },
               "unsupported match option");
   CHECK_FATAL([&] { bench.helper->getAclConfigKey(policy, unsupportedOption()); },
               "unsupported match option");
}

void configurations() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{makePolicy("p1")};
   CHECK_FATAL([&] { bench.helper->deleteAclConfig(policy, ipv4()); },
               "virtual void OruPostcardTelemetry::OruPostcardPolicyAclHelper::deleteAclConfig("
               "const PtrConst&, PolicyMap::ClassMapMatchOption)");
   bench.helper->createAclConfig(policy, ipv4());
   CHECK_FATAL([&] { bench.helper->createAclConfig(policy, ipv4()); },
               "virtual OruPostcardTelemetry::PostcardTelemetryAclConfig::Ptr "
               "OruPostcardTelemetry::OruPostcardPolicyAclHelper::createAclConfig("
               "const PtrConst&, PolicyMap::ClassMapMatchOption)");
   // What the child process did is not seen here.
   CHECK(bench.config(policy));
}

void unattachedPolicies() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   addClass(policy, ipv6(), 1, "web6");
   CHECK_FATAL([&] { bench.helper->createPolicy(policy, ipv6()); },
               "Policy without attached interfaces", "createPolicy");
   const Pello::Ptr<PolicyData> bare{makePolicy("bare")};
   addPriorityTable(bare, ipv4());
   attachIntf6(bare, "Ethernet1");
   CHECK_FATAL([&] { bench.helper->createPolicy(bare, ipv4()); },
               "Policy without attached interfaces");
   bench.helper->createAclConfig(bare, ipv4());
   CHECK_FATAL([&] { bench.helper->recreatePolicy(bare, ipv4()); },
               "Policy without attached interfaces", "recreatePolicy");
}

void unknownPolicies() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   CHECK_FATAL([&] { bench.helper->commitPolicy(policy, ipv4()); }, "commitPolicy");
   CHECK_FATAL(
         [&] {
            bench.helper->addIntfToPolicy(policy, intf("Ethernet1"), intf("Ethernet1"),
                                          vrf("default"), ipv4());
         },
         "addIntfToPolicy");
   CHECK_FATAL(
         [&] {
            bench.helper->removeIntfFromPolicy(policy, intf("Ethernet1"), intf("Ethernet1"),
                                               vrf("default"), ipv4());
         },
         "removeIntfFromPolicy");
   CHECK_FATAL([&] { bench.helper->updateRulesInAclConfig(policy, ipv4()); },
               "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::"
               "updateRulesInAclConfig(const PtrConst&, PolicyMap::ClassMapMatchOption)");
}

void brokenPolicies() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> tableless{makePolicy("tableless")};
   bench.helper->createAclConfig(tableless, ipv4());
   CHECK_FATAL([&] { bench.helper->updateRulesInAclConfig(tableless, ipv4()); },
               "updateRulesInAclConfig");
   const Pello::Ptr<PolicyData> doubled{attachedPolicy("doubled")};
   addSecondFilter(addClass(doubled, ipv4(), 1, "web"));
   CHECK_FATAL([&] { bench.helper->createPolicy(doubled, ipv4()); }, "sfc->filters() == 1");
   const Pello::Ptr<PolicyData> maskless{attachedPolicy("maskless")};
   addSampleMatch(addClass(maskless, ipv4(), 1, "web"), 5, 0, 4);
   CHECK_FATAL([&] { bench.helper->createPolicy(maskless, ipv4()); },
               "sampleMask && \"Sample Mask should be non zero\"", "addRules");
   const Pello::Ptr<PolicyData> flagless{attachedPolicy("flagless")};
   addTcpFlags(addProtocols(addClass(flagless, ipv4(), 1, "web"), 6, 6), 2, 0);
   CHECK_FATAL([&] { bench.helper->createPolicy(flagless, ipv4()); },
               "flagIter.key().tcpFlagMask().value()");
}

void ruleWithoutPriority() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   const Class web{addClass(policy, ipv4(), 1, "web")};
   Config::Ptr const config{bench.helper->createAclConfig(policy, ipv4())};
   CHECK_FATAL(
         [&] {
            bench.helper->addRules(ruleKey(policy, "other", ipv4()), policy, web.data, config, 0);
         },
         "rulePriority->priorityHas( key )",
         "virtual U32 OruPostcardTelemetry::OruPostcardPolicyAclHelper::addRules("
         "const PolicyMap::AclRuleKey&, const PtrConst&, const PtrConst&, const Ptr&, U32)");
}

void wrongKindOfAction() {
   const Bench bench{};
   const Class web{addClass(attachedPolicy("p1"), ipv4(), 1, "web")};
   addAction(web, setDscp);
   CHECK_FATAL([&] { bench.helper->updateRuleAction(web.data, ruleConfigFactory("r")); },
               "dscpAction",
               "virtual void OruPostcardTelemetry::OruPostcardPolicyAclHelper::updateRuleAction("
               "const PtrConst&, const Ptr&)");
}

// An answer needs a request, and the request a configuration that the helper still holds.
void answersToNothing() {
   const Bench bench{};
   CHECK_FATAL([&] { bench.helper->updatePolicyStatus(statusSuccess, ""); }, "updatePolicyStatus");
   const auto bare = oruPostcardPolicyAclHelperFactory(nullptr, nullptr);
   CHECK_FATAL([&] { bare->updatePolicyStatus(statusSuccess, ""); }, "updatePolicyStatus");
   bench.request->aclConfigIs(postcardTelemetryAclConfigFactory("stranger"));
   CHECK_FATAL([&] { bench.helper->updatePolicyStatus(statusFailure, "no"); },
               "updatePolicyStatus");
}

void fatal() {
   aliveOtherwise();
   unsupportedFamilies();
   configurations();
   unattachedPolicies();
   unknownPolicies();
   brokenPolicies();
   ruleWithoutPriority();
   wrongKindOfAction();
   answersToNothing();
}

const Subject subject{"fatal paths", fatal};

} // namespace
