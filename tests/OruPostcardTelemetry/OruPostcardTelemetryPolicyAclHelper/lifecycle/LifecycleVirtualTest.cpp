// The life cycle calls the helper's own operations through the table of virtual operations: a
// derived helper that replaces one is asked, and what it returns is used. Posting a request is the
// exception.
#include "support/LifecycleRecords.h"

namespace OruPostcardTelemetry {
namespace {

using TestSupport::HelperRecords;
using TestSupport::Lines;
using Helper = OruPostcardPolicyAclHelper;

// Writes down what it is asked.
class Asked : public Helper {
 public:
   using Helper::Helper;

   AclConfigPtr createAclConfig(const PolicyDataPtr& policyData, MatchOption option) override {
      calls.emplace_back("create");
      return Helper::createAclConfig(policyData, option);
   }
   void deleteAclConfig(const PolicyDataPtr& policyData, MatchOption option) override {
      calls.emplace_back("delete");
      Helper::deleteAclConfig(policyData, option);
   }
   Pello::String getAclConfigKey(const PolicyDataPtr& policyData, MatchOption option) override {
      calls.emplace_back("key");
      return Pello::String::join({"my ", Helper::getAclConfigKey(policyData, option)});
   }
   Kiv::String updateRulesInAclConfig(const PolicyDataPtr&, MatchOption) override {
      calls.emplace_back("rules");
      aclConfigColl("my p-ipv4")->ruleByNameIs("rule");
      return {};
   }
   void updateIntfInAclConfig(const AclConfigPtr& config, Orlix::IntfId intf,
                              bool removal) override {
      calls.push_back((removal ? "remove " : "add ") + intf.stringValue().str());
      Helper::updateIntfInAclConfig(config, intf, removal);
   }
   // Hides what does not stand in the table; nobody may arrive here.
   void updateRulesClientConfig(PostcardTelemetryRulesClientSmEvent, const AclConfigPtr&,
                                Orlix::IntfId) {
      calls.emplace_back("hidden");
   }

   Lines calls;
};

class LifecycleVirtual : public testing::Test {
 protected:
   LifecycleVirtual() {
      policy.intf4("Ethernet1");
      helper->createPolicy(data, ipv4);
   }
   Lines calls() { return std::exchange(helper->calls, {}); }

   static constexpr auto ipv4 = PolicyMap::matchIpAccessGroup();
   const Orlix::IntfId intf{"Ethernet2"};
   HelperRecords records;
   Pello::Ptr<Asked> helper{HelperRecords::make<Asked>(records.clientConfig, records.hwCapability)};
   TestSupport::PolicyRecords policy{"p", "s"};
   Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> data{policy.data()};
};

TEST_F(LifecycleVirtual, creation) {
   EXPECT_EQ(calls(), (Lines{"create", "key", "add Ethernet1", "rules"}));
   EXPECT_NE(helper->aclConfigColl("my p-ipv4"), nullptr);
}

TEST_F(LifecycleVirtual, recreation) {
   calls();
   EXPECT_EQ(helper->recreatePolicy(data, ipv4), "");
   EXPECT_EQ(calls(), (Lines{"key", "delete", "key", "create", "key", "add Ethernet1", "rules"}));
   EXPECT_EQ(helper->aclConfigColls(), 1U);
}

TEST_F(LifecycleVirtual, requestsArePostedByTheHelperItself) {
   calls();
   helper->commitPolicy(data, ipv4);
   EXPECT_EQ(calls(), (Lines{"key"}));
   EXPECT_EQ(helper->updatePolicyStatus(statusSuccess, ""), "");
   EXPECT_EQ(calls(), Lines{});
   helper->addIntfToPolicy(data, intf, {}, {}, ipv4);
   EXPECT_EQ(calls(), (Lines{"key", "add Ethernet2"}));
   helper->removeIntfFromPolicy(data, intf, {}, {}, ipv4);
   EXPECT_EQ(calls(), (Lines{"key", "remove Ethernet2"}));
   helper->deletePolicy(data, ipv4);
   EXPECT_EQ(calls(), (Lines{"key", "delete", "key"}));
   EXPECT_EQ(records.clientConfig->kickRequest(), 4U);
   EXPECT_EQ(records.clientConfig->aclConfig()->aclConfigKey(), "my p-ipv4");
}

// Interfaces go into the configuration that the creation returned, whatever stands under the key.
class Lending : public TestSupport::ScriptedHelper {
 public:
   using ScriptedHelper::ScriptedHelper;
   AclConfigPtr createAclConfig(const PolicyDataPtr& policyData, MatchOption option) override {
      ScriptedHelper::createAclConfig(policyData, option);
      return lent;
   }
   AclConfigPtr lent{postcardTelemetryAclConfigFactory("lent")};
};

TEST_F(LifecycleVirtual, theReturnedConfigurationIsUsed) {
   const auto lending = HelperRecords::make<Lending>(records.clientConfig, records.hwCapability);
   lending->lent->aclConfigStatusIs();
   lending->createPolicy(data, ipv4);
   EXPECT_EQ(lending->lent->policyIntfs(), 1U);
   EXPECT_EQ(lending->aclConfigColl("p-ipv4")->policyIntfs(), 0U);
   lending->aclConfigColl("p-ipv4")->programmedPolicyIs(true);
   lending->recreatePolicy(data, ipv4);
   EXPECT_TRUE(lending->lent->programmedPolicy());
   EXPECT_FALSE(lending->aclConfigColl("p-ipv4")->programmedPolicy());
}

// A helper that refuses every interface.
class Refusing : public TestSupport::ScriptedHelper {
 public:
   using ScriptedHelper::ScriptedHelper;
   void updateIntfInAclConfig(const AclConfigPtr&, Orlix::IntfId, bool) override {}
};

TEST_F(LifecycleVirtual, interfacesGoThroughOneOperation) {
   const auto refusing = HelperRecords::make<Refusing>(records.clientConfig, records.hwCapability);
   refusing->createPolicy(data, ipv4);
   refusing->recreatePolicy(data, ipv4);
   refusing->aclConfigColl("p-ipv4")->policyIntfIs(Orlix::IntfId{"Ethernet3"});
   refusing->addIntfToPolicy(data, intf, {}, {}, ipv4);
   refusing->removeIntfFromPolicy(data, Orlix::IntfId{"Ethernet3"}, {}, {}, ipv4);
   EXPECT_EQ(refusing->aclConfigColl("p-ipv4")->policyIntfs(), 1U);
   EXPECT_TRUE(refusing->aclConfigColl("p-ipv4")->policyIntfHas(Orlix::IntfId{"Ethernet3"}));
}

TEST_F(LifecycleVirtual, anAnswerGoesToTheConfigurationOfTheRecordsKey) {
   helper->commitPolicy(data, ipv4);
   helper->updatePolicyStatus(statusFailure, "no");
   EXPECT_EQ(helper->aclConfigColl("my p-ipv4")->aclConfigStatus()->statusInOrder(0), "no");
}

} // namespace
} // namespace OruPostcardTelemetry
