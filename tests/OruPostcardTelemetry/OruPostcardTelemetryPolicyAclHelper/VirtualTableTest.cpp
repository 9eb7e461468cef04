// The table of virtual operations is the interface between an agent and this helper: the slots stay
// where they are, and the operations of the helper call one another through it.
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"

#include <gtest/gtest.h>

#include <cstring>

namespace OruPostcardTelemetry {
namespace {

using Kiv::Entity;
using PolicyMap::matchIpAccessGroup;
using PolicyMap::matchIpv6AccessGroup;
using PolicyMap::PolicyMapAclHelper;
using namespace TestSupport;
using Helper = OruPostcardPolicyAclHelper;
using Lines = std::vector<std::string>;

#if defined(__x86_64__)
// The Itanium C++ ABI: a pointer to a virtual member is one more than its offset in the table, in
// bytes; a pointer to any other member is an address, and even. -1 for that.
template <class Member>
int slotOf(Member member) {
   std::intptr_t words[2];
   static_assert(sizeof member == sizeof words);
   std::memcpy(words, &member, sizeof words);
   return (words[0] & 1) != 0 ? static_cast<int>((words[0] - 1) / 8) : -1;
}

TEST(VirtualTable, slotsStandInTheirPlaces) {
   const struct {
      const char* name;
      int slot;
      int expected;
   } rows[] = {
         // 0 and 1 are the two destructors, which have no pointer.
         {"lastUserGone", slotOf(&Helper::lastUserGone), 2},
         {"publisher", slotOf(&Helper::publisher), 3},
         {"typeData", slotOf(&Helper::typeData), 4},
         {"handleVlanTcamIdConfig", slotOf(&Helper::handleVlanTcamIdConfig), 5},
         {"hwInit", slotOf(&Helper::hwInit), 6},
         {"cacheFieldSets", slotOf(&Helper::cacheFieldSets), 7},
         {"cacheUdfs", slotOf(&Helper::cacheUdfs), 8},
         {"setAsyncAddRuleInProgress", slotOf(&Helper::setAsyncAddRuleInProgress), 9},
         {"maybeAddOldRules", slotOf(&Helper::maybeAddOldRules), 10},
         {"createPolicy", slotOf(&Helper::createPolicy), 11},
         {"recreatePolicy", slotOf(&Helper::recreatePolicy), 12},
         {"initInPlaceUpdate", slotOf(&Helper::initInPlaceUpdate), 13},
         {"deletePolicy", slotOf(&Helper::deletePolicy), 14},
         {"commitPolicy", slotOf(&Helper::commitPolicy), 15},
         {"batchCommitPolicy", slotOf(&Helper::batchCommitPolicy), 16},
         {"addIntfToPolicy", slotOf(&Helper::addIntfToPolicy), 17},
         {"removeIntfFromPolicy", slotOf(&Helper::removeIntfFromPolicy), 18},
         {"addRule", slotOf(&Helper::addRule), 19},
         {"tryAddRules", slotOf(&Helper::tryAddRules), 20},
         {"tryMoveRules", slotOf(&Helper::tryMoveRules), 21},
         {"beginUpdateActions", slotOf(&Helper::beginUpdateActions), 22},
         {"updateAction", slotOf(&Helper::updateAction), 23},
         {"updateNexthopGroupMatch", slotOf(&Helper::updateNexthopGroupMatch), 24},
         {"endUpdateActions", slotOf(&Helper::endUpdateActions), 25},
         {"getCountForRule", slotOf(&Helper::getCountForRule), 26},
         {"getCountForRulePerInterface", slotOf(&Helper::getCountForRulePerInterface), 27},
         {"showAclRule", slotOf(&Helper::showAclRule), 28},
         {"showAclSummary", slotOf(&Helper::showAclSummary), 29},
         {"handlePendingOperationTimeout", slotOf(&Helper::handlePendingOperationTimeout), 30},
         {"intfExists", slotOf(&Helper::intfExists), 31},
         {"getLastInstalledPriority", slotOf(&Helper::getLastInstalledPriority), 32},
         {"dropActionSupported", slotOf(&Helper::dropActionSupported), 33},
         {"linecardName", slotOf(&Helper::linecardName), 34},
         {"validPoliceAction", slotOf(&Helper::validPoliceAction), 35},
         {"validEgressRedirectAction", slotOf(&Helper::validEgressRedirectAction), 36},
         {"validateUseVrfSecondaryAction", slotOf(&Helper::validateUseVrfSecondaryAction), 37},
         {"validateDefaultActions", slotOf(&Helper::validateDefaultActions), 38},
         {"updateRuleAction", slotOf(&Helper::updateRuleAction), 39},
         {"ignoreSampleData", slotOf(&Helper::ignoreSampleData), 40},
         {"addRulesL4PortDataMask", slotOf(&Helper::addRulesL4PortDataMask), 41},
         {"addRulesProtoField", slotOf(&Helper::addRulesProtoField), 42},
         {"addRules", slotOf(&Helper::addRules), 43},
         {"createAclConfig", slotOf(&Helper::createAclConfig), 44},
         {"deleteAclConfig", slotOf(&Helper::deleteAclConfig), 45},
         {"getAclConfigKey", slotOf(&Helper::getAclConfigKey), 46},
         {"updateRulesInAclConfig", slotOf(&Helper::updateRulesInAclConfig), 47},
         {"updateIntfInAclConfig", slotOf(&Helper::updateIntfInAclConfig), 48},
         {"updatePolicyStatus", slotOf(&Helper::updatePolicyStatus), 49},
         {"showPostcardAcl", slotOf(&Helper::showPostcardAcl), 50},
         {"updateRulesClientConfig", slotOf(&Helper::updateRulesClientConfig), -1},
         {"addRulesPortField", slotOf(&Helper::addRulesPortField), -1},
         {"addRulesTcpFlagField", slotOf(&Helper::addRulesTcpFlagField), -1},
   };
   for (const auto& row : rows) {
      EXPECT_EQ(row.slot, row.expected) << row.name;
   }
}
#endif

// Writes down every call that comes through the table, and the operations that do not stand in it,
// should one of them be looked up here.
class Recording : public Helper {
 public:
   using Helper::Helper;

   Kiv::String createPolicy(const PolicyData& policyData, MatchOption option) override {
      return note("createPolicy"), Helper::createPolicy(policyData, option);
   }
   Kiv::String recreatePolicy(const PolicyData& policyData, MatchOption option) override {
      return note("recreatePolicy"), Helper::recreatePolicy(policyData, option);
   }
   Kiv::String deletePolicy(const PolicyData& policyData, MatchOption option) override {
      return note("deletePolicy"), Helper::deletePolicy(policyData, option);
   }
   Kiv::String commitPolicy(const PolicyData& policyData, MatchOption option) override {
      return note("commitPolicy"), Helper::commitPolicy(policyData, option);
   }
   void updateRuleAction(const ClassData& classData, const Rule& rule) override {
      note("updateRuleAction"), Helper::updateRuleAction(classData, rule);
   }
   bool ignoreSampleData(const ClassData& classData) override {
      return note("ignoreSampleData"), Helper::ignoreSampleData(classData);
   }
   U32 addRulesL4PortDataMask(const ProtoField& field, const Rule& rule, const AclConfig& config,
                              bool sportValid, L4PortDataMask sport, bool dportValid,
                              L4PortDataMask dport, bool flags, U32 next) override {
      note("addRulesL4PortDataMask");
      return Helper::addRulesL4PortDataMask(field, rule, config, sportValid, sport, dportValid,
                                            dport, flags, next);
   }
   U32 addRulesProtoField(const AclConfig& config, const Rule& rule, const Filter& sf, U8 proto,
                          U32 next) override {
      note("addRulesProtoField " + std::to_string(proto) + " " + std::to_string(next));
      return Helper::addRulesProtoField(config, rule, sf, proto, next);
   }
   U32 addRules(const PolicyMap::AclRuleKey& key, const PolicyData& policyData,
                const TrafficClassData& classData, const AclConfig& config, U32 next) override {
      note("addRules " + std::to_string(next));
      return Helper::addRules(key, policyData, classData, config, next);
   }
   AclConfig createAclConfig(const PolicyData& policyData, MatchOption option) override {
      return note("createAclConfig"), Helper::createAclConfig(policyData, option);
   }
   void deleteAclConfig(const PolicyData& policyData, MatchOption option) override {
      note("deleteAclConfig"), Helper::deleteAclConfig(policyData, option);
   }
   Pello::String getAclConfigKey(const PolicyData& policyData, MatchOption option) override {
      note("getAclConfigKey");
      return Pello::String::join({"my ", Helper::getAclConfigKey(policyData, option)});
   }
   Kiv::String updateRulesInAclConfig(const PolicyData& policyData, MatchOption option) override {
      return note("updateRulesInAclConfig"), Helper::updateRulesInAclConfig(policyData, option);
   }
   void updateIntfInAclConfig(const AclConfig& config, Orlix::IntfId intf, bool remove) override {
      note("updateIntfInAclConfig"), Helper::updateIntfInAclConfig(config, intf, remove);
   }
   Kiv::String updatePolicyStatus(PostcardTelemetryRulesClientSmStatusType status,
                                  const Pello::String& text) override {
      return note("updatePolicyStatus"), Helper::updatePolicyStatus(status, text);
   }

   // Hide what is not virtual; nobody may arrive here.
   void updateRulesClientConfig(PostcardTelemetryRulesClientSmEvent, const AclConfig&,
                                Orlix::IntfId) {
      note("hidden");
   }
   U32 addRulesPortField(const ProtoField&, const Rule&, const AclConfig&, bool, U32) {
      return note("hidden"), 0;
   }
   U32 addRulesTcpFlagField(const ProtoField&, const Rule&, const AclConfig&, U32) {
      return note("hidden"), 0;
   }

   Lines calls;

 private:
   void note(std::string call) { calls.push_back(std::move(call)); }
};

class VirtualCalls : public testing::Test {
 protected:
   VirtualCalls() {
      policy.intf4("Ethernet1");
      ClassRecords web = policy.classMap("web").sample();
      FilterRecords filter = web.filter4().sampleMatch(0, 1);
      filter.tcp().ports({{1, 2}}, {{80, 80}}).flag(2, 2).flag(4, 4);
      filter.udp();
      policy.classMap("rest").sampleAll().filter4();
   }
   Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> data() { return policy.data(); }

   HelperRecords records;
   Pello::Ptr<Recording> helper{
         HelperRecords::make<Recording>(records.clientConfig, records.hwCapability)};
   PolicyRecords policy{"edge"};
};

TEST_F(VirtualCalls, createPolicyCallsEveryBuilderThroughTheTable) {
   EXPECT_EQ(helper->createPolicy(data(), matchIpAccessGroup()), "");
   EXPECT_EQ(helper->calls,
             (Lines{"createPolicy", "createAclConfig", "getAclConfigKey", "updateIntfInAclConfig",
                    "updateRulesInAclConfig", "getAclConfigKey", "addRules 0", "ignoreSampleData",
                    "updateRuleAction", "addRulesProtoField 6 0", "addRulesL4PortDataMask",
                    "addRulesL4PortDataMask", "addRulesProtoField 17 4", "addRules 5",
                    "ignoreSampleData", "updateRuleAction", "addRulesProtoField 6 5",
                    "addRulesProtoField 17 6"}));
}

TEST_F(VirtualCalls, anOverriddenKeyIsHonoured) {
   helper->createPolicy(data(), matchIpAccessGroup());
   EXPECT_NE(helper->aclConfigColl("my edge-ipv4"), nullptr);
   EXPECT_EQ(helper->aclConfigColls(), 1U);
   helper->deleteAclConfig(data(), matchIpAccessGroup());
   EXPECT_EQ(helper->aclConfigColls(), 0U);
}

TEST_F(VirtualCalls, deleteAclConfigAsksForTheKey) {
   helper->createAclConfig(data(), matchIpAccessGroup());
   helper->calls.clear();
   helper->deleteAclConfig(data(), matchIpAccessGroup());
   EXPECT_EQ(helper->calls, (Lines{"deleteAclConfig", "getAclConfigKey"}));
}

TEST_F(VirtualCalls, commitAndDeletePostThemselves) {
   helper->createPolicy(data(), matchIpAccessGroup());
   helper->calls.clear();
   EXPECT_EQ(helper->commitPolicy(data(), matchIpAccessGroup()), "");
   EXPECT_EQ(helper->deletePolicy(data(), matchIpAccessGroup()), "");
   EXPECT_EQ(helper->calls, (Lines{"commitPolicy", "getAclConfigKey", "deletePolicy",
                                   "getAclConfigKey", "deleteAclConfig", "getAclConfigKey"}));
   EXPECT_EQ(records.clientConfig->kickRequest(), 2U);
}

TEST_F(VirtualCalls, theFlagExpansionStaysInsideTheHelper) {
   helper->createPolicy(data(), matchIpAccessGroup());
   EXPECT_EQ(std::ranges::count(helper->calls, "hidden"), 0);
   EXPECT_EQ(helper->aclConfigColl("my edge-ipv4")->ruleByIndexs(), 7U);
}

// The index that an override returns is the one that the next rule takes.
class Skipping : public Helper {
 public:
   using Helper::Helper;
   U32 addRulesProtoField(const AclConfig& config, const Rule& rule, const Filter& sf, U8 proto,
                          U32 next) override {
      return Helper::addRulesProtoField(config, rule, sf, proto, next) + 100;
   }
   bool ignoreSampleData(const ClassData&) override { return true; }
};

TEST_F(VirtualCalls, whatAnOverrideReturnsIsUsed) {
   const auto skipping = HelperRecords::make<Skipping>(records.clientConfig, records.hwCapability);
   skipping->createPolicy(data(), matchIpAccessGroup());
   std::vector<U32> indexes;
   for (const auto& rule : skipping->aclConfigColl("edge-ipv4")->ruleByIndex()) {
      indexes.push_back(rule.key());
      EXPECT_EQ(rule->ruleFilter()->sampleDataAndMask(), nullptr);
   }
   EXPECT_EQ(indexes, (std::vector<U32>{0, 1, 2, 3, 104, 205, 306}));
}

} // namespace
} // namespace OruPostcardTelemetry
