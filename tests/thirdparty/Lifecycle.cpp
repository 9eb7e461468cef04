// A policy's way from creation over commit and answers to its end.

#include "Bench.h"
#include "Check.h"

#include <string>
#include <vector>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Config = PostcardTelemetryAclConfig;
using Helper = OruPostcardPolicyAclHelper;

void creation() {
   const Bench bench{};
   asyncStatusIs(*bench.helper, "untouched");
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   attachIntf4(policy, "Ethernet2");
   attachIntf6(policy, "Ethernet9");
   CHECK_EQ(text(bench.helper->createPolicy(policy, ipv4())), "");
   Config::Ptr const config{bench.config(policy)};
   CHECK(config);
   CHECK(config->policyIntf(intf("Ethernet1")));
   CHECK(config->policyIntf(intf("Ethernet2")));
   CHECK(!config->policyIntf(intf("Ethernet9")));
   CHECK(count(rulesByName(*config)) > 0);
   CHECK(!config->rulesClientUpdated());
   CHECK(!config->programmedPolicy());
   // Nobody is told yet, and a success is no asynchronous result.
   CHECK_EQ(bench.request->kickRequest(), 0);
   CHECK(!bench.request->aclConfig());
   CHECK_EQ(asyncStatus(*bench.helper), "untouched");
}

void creationForIpv6() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{makePolicy("p6")};
   attachIntf4(policy, "Ethernet1");
   attachIntf6(policy, "Ethernet9");
   addAction(addClass(policy, ipv6(), 1, "web"), sampleAll);
   CHECK_EQ(text(bench.helper->createPolicy(policy, ipv6())), "");
   Config::Ptr const config{bench.config(policy, ipv6())};
   CHECK_EQ(count(interfaces(*config)), 1);
   CHECK(config->policyIntf(intf("Ethernet9")));
   CHECK_EQ(namesInOrder(*config).at(0), withFamily("web", ipv6()) + "-tcp");
   CHECK(!bench.config(policy, ipv4()));
}

void creationWithoutRules() {
   const Bench bench{};
   asyncStatusIs(*bench.helper, "before");
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   CHECK_EQ(text(bench.helper->createPolicy(policy, ipv4())), "");
   CHECK_EQ(asyncStatus(*bench.helper), "");
   CHECK(bench.config(policy));
   asyncStatusIs(*bench.helper, "before");
   CHECK_EQ(text(bench.helper->commitPolicy(policy, ipv4())), "");
   CHECK_EQ(asyncStatus(*bench.helper), "");
   CHECK_EQ(bench.request->kickRequest(), 0);
   CHECK(!bench.config(policy)->rulesClientUpdated());
}

// A helper whose rule generation answers what it is told to.
class Scripted : public Helper {
 public:
   Scripted(const Pello::Ptr<PostcardTelemetryRulesClientSmConfig>& request, const char* answer)
      : Helper{request, nullptr}, answer_{answer} {}

   Kiv::String updateRulesInAclConfig(const Pello::Ptr<const PolicyData>&, MatchOption) override {
      return answer_;
   }

 private:
   const char* answer_;
};

void answersOfRuleGeneration() {
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   const auto none =
         adopt(new Scripted{nullptr, "class a: No rules configured in policy p1, sorry"});
   asyncStatusIs(*none, "before");
   CHECK_EQ(text(none->createPolicy(policy, ipv4())), "");
   CHECK_EQ(asyncStatus(*none), "");
   const auto broken = adopt(new Scripted{nullptr, "no such class"});
   CHECK_EQ(text(broken->createPolicy(policy, ipv4())), "no such class");
   CHECK_EQ(asyncStatus(*broken), "no such class");
   CHECK(broken->aclConfigColl(broken->getAclConfigKey(policy, ipv4())));
   CHECK_EQ(text(broken->recreatePolicy(policy, ipv4())), "no such class");
}

void commits() {
   const Bench bench{};
   asyncStatusIs(*bench.helper, "untouched");
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   bench.helper->createPolicy(policy, ipv4());
   CHECK_EQ(text(bench.helper->commitPolicy(policy, ipv4())), "");
   CHECK(bench.request->event() == policyCreate);
   CHECK(same(bench.request->aclConfig(), bench.config(policy)));
   CHECK(bench.request->currIntf() == intf(""));
   CHECK_EQ(bench.request->kickRequest(), 1);
   CHECK(bench.config(policy)->rulesClientUpdated());
   CHECK_EQ(text(bench.helper->commitPolicy(policy, ipv4())), "");
   CHECK(bench.request->event() == policyUpdate);
   CHECK(bench.request->currIntf() == intf(""));
   CHECK_EQ(bench.request->kickRequest(), 2);
   CHECK_EQ(asyncStatus(*bench.helper), "untouched");
}

// Whoever reacts to the counter finds the rest of the request in place.
void orderOfRequest() {
   const Bench bench{};
   Config::Ptr const config{bench.helper->aclConfigCollIs("p1-acl")};
   bench.request->eventIs(policyDelete);
   std::vector<unsigned> identifiers{};
   bool updatedBeforeKick{false};
   const auto subscription = subscribe(bench.request->publisher(), [&](const Change& change) {
      identifiers.push_back(change.identifier);
      updatedBeforeKick = config->rulesClientUpdated();
   });
   bench.helper->updateRulesClientConfig(policyIntfUpdate, config, intf("Ethernet3"));
   CHECK(identifiers == std::vector<unsigned>{130, 131, 132, 133});
   CHECK(updatedBeforeKick);
   identifiers.clear();
   // The same request again is only counted.
   bench.helper->updateRulesClientConfig(policyIntfUpdate, config, intf("Ethernet3"));
   CHECK(identifiers == std::vector<unsigned>{133});
   bench.helper->updateRulesClientConfig(policyUpdate, config, intf(""));
   CHECK(bench.request->currIntf() == intf("Ethernet3"));
   CHECK(bench.request->event() == policyUpdate);
   CHECK_EQ(bench.request->kickRequest(), 3);
}

void statusHistory() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   bench.helper->createPolicy(policy, ipv4());
   bench.helper->commitPolicy(policy, ipv4());
   Config::Ptr const config{bench.config(policy)};
   const auto status = config->aclConfigStatus();
   CHECK_EQ(text(bench.helper->updatePolicyStatus(statusSuccess, "")), "");
   CHECK_EQ(text(bench.helper->updatePolicyStatus(statusSuccess, "done")), "");
   CHECK(config->programmedPolicy());
   CHECK_EQ(status->currentIndex(), 2);
   CHECK_EQ(count(texts(*status)), 2);
   CHECK_EQ(text(status->statusInOrder(1)), "done");
   CHECK_EQ(text(bench.helper->updatePolicyStatus(statusFailure, "table full")), "table full");
   CHECK(!config->programmedPolicy());
   CHECK_EQ(text(status->statusInOrder(2)), "table full");
   CHECK_EQ(status->currentIndex(), 3);
   CHECK(config->rulesClientUpdated());
   // One who removed the status child gets the answer all the same.
   config->aclConfigStatusDel();
   CHECK_EQ(text(bench.helper->updatePolicyStatus(statusFailure, "still full")), "still full");
   CHECK_EQ(text(bench.helper->updatePolicyStatus(statusSuccess, "")), "");
   CHECK(config->programmedPolicy());
}

void deletion() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   bench.helper->createPolicy(policy, ipv4());
   CHECK_EQ(text(bench.helper->deletePolicy(policy, ipv4())), "");
   CHECK(!bench.config(policy));
   CHECK_EQ(bench.request->kickRequest(), 0);
   bench.helper->createPolicy(policy, ipv4());
   bench.helper->commitPolicy(policy, ipv4());
   Config::Ptr const config{bench.config(policy)};
   CHECK_EQ(text(bench.helper->deletePolicy(policy, ipv4())), "");
   CHECK(bench.request->event() == policyDelete);
   CHECK(bench.request->currIntf() == intf(""));
   CHECK_EQ(bench.request->kickRequest(), 2);
   CHECK(!bench.config(policy));
   CHECK(same(config, bench.request->aclConfig()));
   std::string const message{text(bench.helper->deletePolicy(policy, ipv6()))};
   CHECK_EQ(message, "Delete Policy received for a non-existent policy, Policy : " +
                           description(policy) + " Match Option : 1");
   CHECK_EQ(bench.request->kickRequest(), 2);
}

void recreation() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   bench.helper->createPolicy(policy, ipv4());
   bench.helper->commitPolicy(policy, ipv4());
   bench.helper->updatePolicyStatus(statusSuccess, "first");
   Config::Ptr const old{bench.config(policy)};
   old->aclConfigStatus()->statusInOrderDelAll();
   old->aclConfigStatus()->statusInOrderIs(0, "zero");
   old->aclConfigStatus()->statusInOrderIs(2, "two");
   old->aclConfigStatus()->statusInOrderIs(5, "five");
   attachIntf4(policy, "Ethernet4");
   CHECK_EQ(text(bench.helper->recreatePolicy(policy, ipv4())), "");
   Config::Ptr const made{bench.config(policy)};
   CHECK(!same(old, made));
   CHECK(made->programmedPolicy());
   CHECK(made->rulesClientUpdated());
   CHECK(made->policyIntf(intf("Ethernet4")));
   CHECK(namesInOrder(*made) == namesInOrder(*old));
   CHECK_EQ(made->aclConfigStatus()->currentIndex(), 3);
   CHECK_EQ(count(texts(*made->aclConfigStatus())), 3);
   CHECK_EQ(text(made->aclConfigStatus()->statusInOrder(0)), "zero");
   CHECK_EQ(text(made->aclConfigStatus()->statusInOrder(1)), "two");
   CHECK_EQ(text(made->aclConfigStatus()->statusInOrder(2)), "five");
   CHECK_EQ(bench.request->kickRequest(), 1);
   bench.helper->commitPolicy(policy, ipv4());
   CHECK(bench.request->event() == policyUpdate);
   CHECK(same(made, bench.request->aclConfig()));
}

void recreationWithoutHistory() {
   const Bench bench{};
   const Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};
   bench.helper->createPolicy(policy, ipv4());
   CHECK_EQ(text(bench.helper->recreatePolicy(policy, ipv4())), "");
   Config::Ptr const made{bench.config(policy)};
   CHECK(!made->programmedPolicy());
   CHECK(!made->rulesClientUpdated());
   CHECK_EQ(made->aclConfigStatus()->currentIndex(), 0);
   CHECK_EQ(count(texts(*made->aclConfigStatus())), 0);
}

void lifecycle() {
   creation();
   creationForIpv6();
   creationWithoutRules();
   answersOfRuleGeneration();
   commits();
   orderOfRequest();
   statusHistory();
   deletion();
   recreation();
   recreationWithoutHistory();
}

const Subject subject{"life cycle", lifecycle};

} // namespace
