// Interfaces that a policy gains and loses while it stands.

#include "Bench.h"
#include "Check.h"

#include <string>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Config = PostcardTelemetryAclConfig;

// A created policy, and the two calls with the arguments that do not matter filled in.
struct Standing {
   Bench bench{};
   Pello::Ptr<PolicyData> policy{samplingPolicy("p1")};

   Standing() { bench.helper->createPolicy(policy, ipv4()); }

   Config::Ptr config() const { return bench.config(policy); }

   std::string add(const char* name) const {
      return text(bench.helper->addIntfToPolicy(policy, intf(name), intf("Vlan7"), vrf("default"),
                                                ipv4()));
   }

   std::string remove(const char* name) const {
      return text(bench.helper->removeIntfFromPolicy(policy, intf(name), intf("Vlan7"),
                                                     vrf("default"), ipv4()));
   }

   std::string aborted(const char* beginning) const {
      return std::string{beginning} +
             " received for a non committed policy, aborting further processing,  Policy : " +
             description(policy) + " Match Option : 0";
   }
};

void programmed() {
   const Standing standing{};
   standing.bench.helper->commitPolicy(standing.policy, ipv4());
   standing.bench.helper->updatePolicyStatus(statusSuccess, "");
   asyncStatusIs(*standing.bench.helper, "untouched");
   CHECK_EQ(standing.add("Ethernet5"), "");
   CHECK(standing.config()->policyIntf(intf("Ethernet5")));
   CHECK(standing.bench.request->event() == policyIntfUpdate);
   CHECK(standing.bench.request->currIntf() == intf("Ethernet5"));
   CHECK_EQ(standing.bench.request->kickRequest(), 2);
   CHECK_EQ(standing.remove("Ethernet1"), "");
   CHECK(!standing.config()->policyIntf(intf("Ethernet1")));
   CHECK(standing.bench.request->event() == policyIntfUpdate);
   CHECK(standing.bench.request->currIntf() == intf("Ethernet1"));
   CHECK_EQ(standing.bench.request->kickRequest(), 3);
   CHECK_EQ(asyncStatus(*standing.bench.helper), "untouched");
   // A request without an interface leaves the last one standing.
   standing.bench.helper->commitPolicy(standing.policy, ipv4());
   CHECK(standing.bench.request->currIntf() == intf("Ethernet1"));
}

void neverReported() {
   const Standing standing{};
   std::string const added{standing.add("Ethernet5")};
   CHECK_EQ(added, standing.aborted("Add Interface to Policy"));
   CHECK_EQ(asyncStatus(*standing.bench.helper), added);
   CHECK(standing.config()->policyIntf(intf("Ethernet5")));
   std::string const removed{standing.remove("Ethernet5")};
   CHECK_EQ(removed, standing.aborted("Remove Interface from Policy"));
   CHECK_EQ(asyncStatus(*standing.bench.helper), removed);
   CHECK(!standing.config()->policyIntf(intf("Ethernet5")));
   CHECK_EQ(standing.bench.request->kickRequest(), 0);
}

void lastReport() {
   const Standing standing{};
   const auto status = standing.config()->aclConfigStatus();
   status->statusInOrderIs(0, "first");
   status->statusInOrderIs(1, "second");
   status->currentIndexIs(2);
   CHECK_EQ(standing.add("Ethernet5"), "second");
   CHECK_EQ(asyncStatus(*standing.bench.helper), "second");
   CHECK_EQ(standing.remove("Ethernet5"), "second");
   // A history with a gap at its end has nothing to say.
   status->currentIndexIs(4);
   CHECK_EQ(standing.add("Ethernet6"), "");
   CHECK_EQ(asyncStatus(*standing.bench.helper), "");
   CHECK(standing.config()->policyIntf(intf("Ethernet6")));
}

void withoutStatus() {
   const Standing standing{};
   standing.config()->aclConfigStatusDel();
   CHECK_EQ(standing.add("Ethernet5"), standing.aborted("Add Interface to Policy"));
   CHECK_EQ(standing.remove("Ethernet5"), standing.aborted("Remove Interface from Policy"));
}

void withoutRules() {
   const Standing standing{};
   standing.config()->ruleByNameDelAll();
   asyncStatusIs(*standing.bench.helper, "before");
   CHECK_EQ(standing.add("Ethernet5"), "");
   CHECK(!standing.config()->policyIntf(intf("Ethernet5")));
   CHECK_EQ(asyncStatus(*standing.bench.helper), "");
   CHECK_EQ(standing.remove("Ethernet1"), "");
   CHECK(standing.config()->policyIntf(intf("Ethernet1")));
   CHECK_EQ(standing.bench.request->kickRequest(), 0);
}

void oneConfiguration() {
   const Bench bench{};
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   bench.helper->updateIntfInAclConfig(config, intf("Ethernet1"), false);
   bench.helper->updateIntfInAclConfig(config, intf("Ethernet1"), false);
   CHECK_EQ(count(interfaces(*config)), 1);
   bench.helper->updateIntfInAclConfig(config, intf("Ethernet2"), true);
   CHECK_EQ(count(interfaces(*config)), 1);
   bench.helper->updateIntfInAclConfig(config, intf("Ethernet1"), true);
   CHECK_EQ(count(interfaces(*config)), 0);
}

void interfaceBinding() {
   programmed();
   neverReported();
   lastReport();
   withoutStatus();
   withoutRules();
   oneConfiguration();
}

const Subject subject{"interfaces", interfaceBinding};

} // namespace
