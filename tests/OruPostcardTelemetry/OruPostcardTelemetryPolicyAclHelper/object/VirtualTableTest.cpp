// The table of virtual operations is the interface between an agent and this helper: the slots stay
// where they are, and the operations of the helper call one another through it.
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

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

// Whether the member was declared by the helper itself: a pointer to an inherited one is a pointer
// to the base's member.
template <class Type, class Class>
constexpr bool isOwn(Type Class::*) {
   return std::is_same_v<Class, Helper>;
}

TEST(VirtualTable, slotsStandInTheirPlaces) {
   constexpr bool own = true;
   constexpr bool inherited = false;
   const struct {
      const char* name;
      int slot;
      bool isOwn;
      int expected;
      bool expectedOwn;
   } rows[] = {
         // 0 and 1 are the two destructors, which have no pointer.
         {"lastUserGone", slotOf(&Helper::lastUserGone), isOwn(&Helper::lastUserGone), 2,
          inherited},
         {"publisher", slotOf(&Helper::publisher), isOwn(&Helper::publisher), 3, inherited},
         {"typeData", slotOf(&Helper::typeData), isOwn(&Helper::typeData), 4, own},
         {"handleVlanTcamIdConfig", slotOf(&Helper::handleVlanTcamIdConfig),
          isOwn(&Helper::handleVlanTcamIdConfig), 5, inherited},
         {"hwInit", slotOf(&Helper::hwInit), isOwn(&Helper::hwInit), 6, own},
         {"cacheFieldSets", slotOf(&Helper::cacheFieldSets), isOwn(&Helper::cacheFieldSets), 7,
          inherited},
         {"cacheUdfs", slotOf(&Helper::cacheUdfs), isOwn(&Helper::cacheUdfs), 8, inherited},
         {"setAsyncAddRuleInProgress", slotOf(&Helper::setAsyncAddRuleInProgress),
          isOwn(&Helper::setAsyncAddRuleInProgress), 9, inherited},
         {"maybeAddOldRules", slotOf(&Helper::maybeAddOldRules), isOwn(&Helper::maybeAddOldRules),
          10, inherited},
         {"createPolicy", slotOf(&Helper::createPolicy), isOwn(&Helper::createPolicy), 11, own},
         {"recreatePolicy", slotOf(&Helper::recreatePolicy), isOwn(&Helper::recreatePolicy), 12,
          own},
         {"initInPlaceUpdate", slotOf(&Helper::initInPlaceUpdate),
          isOwn(&Helper::initInPlaceUpdate), 13, inherited},
         {"deletePolicy", slotOf(&Helper::deletePolicy), isOwn(&Helper::deletePolicy), 14, own},
         {"commitPolicy", slotOf(&Helper::commitPolicy), isOwn(&Helper::commitPolicy), 15, own},
         {"batchCommitPolicy", slotOf(&Helper::batchCommitPolicy),
          isOwn(&Helper::batchCommitPolicy), 16, inherited},
         {"addIntfToPolicy", slotOf(&Helper::addIntfToPolicy), isOwn(&Helper::addIntfToPolicy), 17,
          own},
         {"removeIntfFromPolicy", slotOf(&Helper::removeIntfFromPolicy),
          isOwn(&Helper::removeIntfFromPolicy), 18, own},
         {"addRule", slotOf(&Helper::addRule), isOwn(&Helper::addRule), 19, inherited},
         {"tryAddRules", slotOf(&Helper::tryAddRules), isOwn(&Helper::tryAddRules), 20, inherited},
         {"tryMoveRules", slotOf(&Helper::tryMoveRules), isOwn(&Helper::tryMoveRules), 21,
          inherited},
         {"beginUpdateActions", slotOf(&Helper::beginUpdateActions),
          isOwn(&Helper::beginUpdateActions), 22, inherited},
         {"updateAction", slotOf(&Helper::updateAction), isOwn(&Helper::updateAction), 23,
          inherited},
         {"updateNexthopGroupMatch", slotOf(&Helper::updateNexthopGroupMatch),
          isOwn(&Helper::updateNexthopGroupMatch), 24, inherited},
         {"endUpdateActions", slotOf(&Helper::endUpdateActions), isOwn(&Helper::endUpdateActions),
          25, inherited},
         {"getCountForRule", slotOf(&Helper::getCountForRule), isOwn(&Helper::getCountForRule), 26,
          inherited},
         {"getCountForRulePerInterface", slotOf(&Helper::getCountForRulePerInterface),
          isOwn(&Helper::getCountForRulePerInterface), 27, inherited},
         {"showAclRule", slotOf(&Helper::showAclRule), isOwn(&Helper::showAclRule), 28, inherited},
         {"showAclSummary", slotOf(&Helper::showAclSummary), isOwn(&Helper::showAclSummary), 29,
          inherited},
         {"handlePendingOperationTimeout", slotOf(&Helper::handlePendingOperationTimeout),
          isOwn(&Helper::handlePendingOperationTimeout), 30, inherited},
         {"intfExists", slotOf(&Helper::intfExists), isOwn(&Helper::intfExists), 31, inherited},
         {"getLastInstalledPriority", slotOf(&Helper::getLastInstalledPriority),
          isOwn(&Helper::getLastInstalledPriority), 32, inherited},
         {"dropActionSupported", slotOf(&Helper::dropActionSupported),
          isOwn(&Helper::dropActionSupported), 33, inherited},
         {"linecardName", slotOf(&Helper::linecardName), isOwn(&Helper::linecardName), 34,
          inherited},
         {"validPoliceAction", slotOf(&Helper::validPoliceAction),
          isOwn(&Helper::validPoliceAction), 35, inherited},
         {"validEgressRedirectAction", slotOf(&Helper::validEgressRedirectAction),
          isOwn(&Helper::validEgressRedirectAction), 36, inherited},
         {"validateUseVrfSecondaryAction", slotOf(&Helper::validateUseVrfSecondaryAction),
          isOwn(&Helper::validateUseVrfSecondaryAction), 37, inherited},
         {"validateDefaultActions", slotOf(&Helper::validateDefaultActions),
          isOwn(&Helper::validateDefaultActions), 38, inherited},
         {"updateRuleAction", slotOf(&Helper::updateRuleAction), isOwn(&Helper::updateRuleAction),
          39, own},
         {"ignoreSampleData", slotOf(&Helper::ignoreSampleData), isOwn(&Helper::ignoreSampleData),
          40, own},
         {"addRulesL4PortDataMask", slotOf(&Helper::addRulesL4PortDataMask),
          isOwn(&Helper::addRulesL4PortDataMask), 41, own},
         {"addRulesProtoField", slotOf(&Helper::addRulesProtoField),
          isOwn(&Helper::addRulesProtoField), 42, own},
         {"addRules", slotOf(&Helper::addRules), isOwn(&Helper::addRules), 43, own},
         {"createAclConfig", slotOf(&Helper::createAclConfig), isOwn(&Helper::createAclConfig), 44,
          own},
         {"deleteAclConfig", slotOf(&Helper::deleteAclConfig), isOwn(&Helper::deleteAclConfig), 45,
          own},
         {"getAclConfigKey", slotOf(&Helper::getAclConfigKey), isOwn(&Helper::getAclConfigKey), 46,
          own},
         {"updateRulesInAclConfig", slotOf(&Helper::updateRulesInAclConfig),
          isOwn(&Helper::updateRulesInAclConfig), 47, own},
         {"updateIntfInAclConfig", slotOf(&Helper::updateIntfInAclConfig),
          isOwn(&Helper::updateIntfInAclConfig), 48, own},
         {"updatePolicyStatus", slotOf(&Helper::updatePolicyStatus),
          isOwn(&Helper::updatePolicyStatus), 49, own},
         {"showPostcardAcl", slotOf(&Helper::showPostcardAcl), isOwn(&Helper::showPostcardAcl), 50,
          own},
         {"updateRulesClientConfig", slotOf(&Helper::updateRulesClientConfig),
          isOwn(&Helper::updateRulesClientConfig), -1, own},
         {"addRulesPortField", slotOf(&Helper::addRulesPortField),
          isOwn(&Helper::addRulesPortField), -1, own},
         {"addRulesTcpFlagField", slotOf(&Helper::addRulesTcpFlagField),
          isOwn(&Helper::addRulesTcpFlagField), -1, own},
   };
   for (const auto& row : rows) {
      EXPECT_EQ(row.slot, row.expected) << row.name;
      EXPECT_EQ(row.isOwn, row.expectedOwn) << row.name;
   }
}
#endif

// Writes down every call that comes through the table, and the operations that do not stand in it,
// should one of them be looked up here.
class Recording : public Helper {
 public:
   using Helper::Helper;

   Kiv::String createPolicy(const PolicyDataPtr& policyData, MatchOption option) override {
      return note("createPolicy"), Helper::createPolicy(policyData, option);
   }
   Kiv::String recreatePolicy(const PolicyDataPtr& policyData, MatchOption option) override {
      return note("recreatePolicy"), Helper::recreatePolicy(policyData, option);
   }
   Kiv::String deletePolicy(const PolicyDataPtr& policyData, MatchOption option) override {
      return note("deletePolicy"), Helper::deletePolicy(policyData, option);
   }
   Kiv::String commitPolicy(const PolicyDataPtr& policyData, MatchOption option) override {
      return note("commitPolicy"), Helper::commitPolicy(policyData, option);
   }
   void updateRuleAction(const ClassDataPtr& classData, const RulePtr& rule) override {
      note("updateRuleAction"), Helper::updateRuleAction(classData, rule);
   }
   bool ignoreSampleData(const ClassDataPtr& classData) override {
      return note("ignoreSampleData"), Helper::ignoreSampleData(classData);
   }
   U32 addRulesL4PortDataMask(const ProtoFieldPtr& field, const RulePtr& rule,
                              const AclConfigPtr& config, bool sportValid, L4PortDataMask sport,
                              bool dportValid, L4PortDataMask dport, bool flags,
                              U32 next) override {
      note("addRulesL4PortDataMask");
      return Helper::addRulesL4PortDataMask(field, rule, config, sportValid, sport, dportValid,
                                            dport, flags, next);
   }
   U32 addRulesProtoField(const AclConfigPtr& config, const RulePtr& rule, const FilterPtr& sf,
                          U8 proto, U32 next) override {
      note("addRulesProtoField " + std::to_string(proto) + " " + std::to_string(next));
      return Helper::addRulesProtoField(config, rule, sf, proto, next);
   }
   U32 addRules(const PolicyMap::AclRuleKey& key, const PolicyDataPtr& policyData,
                const TrafficClassDataPtr& classData, const AclConfigPtr& config,
                U32 next) override {
      note("addRules " + std::to_string(next));
      return Helper::addRules(key, policyData, classData, config, next);
   }
   AclConfigPtr createAclConfig(const PolicyDataPtr& policyData, MatchOption option) override {
      return note("createAclConfig"), Helper::createAclConfig(policyData, option);
   }
   void deleteAclConfig(const PolicyDataPtr& policyData, MatchOption option) override {
      note("deleteAclConfig"), Helper::deleteAclConfig(policyData, option);
   }
   Pello::String getAclConfigKey(const PolicyDataPtr& policyData, MatchOption option) override {
      note("getAclConfigKey");
      return Pello::String::join({"my ", Helper::getAclConfigKey(policyData, option)});
   }
   Kiv::String updateRulesInAclConfig(const PolicyDataPtr& policyData,
                                      MatchOption option) override {
      return note("updateRulesInAclConfig"), Helper::updateRulesInAclConfig(policyData, option);
   }
   void updateIntfInAclConfig(const AclConfigPtr& config, Orlix::IntfId intf,
                              bool remove) override {
      note("updateIntfInAclConfig"), Helper::updateIntfInAclConfig(config, intf, remove);
   }
   Kiv::String updatePolicyStatus(PostcardTelemetryRulesClientSmStatusType status,
                                  const Pello::String& text) override {
      return note("updatePolicyStatus"), Helper::updatePolicyStatus(status, text);
   }

   // Hide what is not virtual; nobody may arrive here.
   void updateRulesClientConfig(PostcardTelemetryRulesClientSmEvent, const AclConfigPtr&,
                                Orlix::IntfId) {
      note("hidden");
   }
   U32 addRulesPortField(const ProtoFieldPtr&, const RulePtr&, const AclConfigPtr&, bool, U32) {
      return note("hidden"), 0;
   }
   U32 addRulesTcpFlagField(const ProtoFieldPtr&, const RulePtr&, const AclConfigPtr&, U32) {
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
   U32 addRulesProtoField(const AclConfigPtr& config, const RulePtr& rule, const FilterPtr& sf,
                          U8 proto, U32 next) override {
      return Helper::addRulesProtoField(config, rule, sf, proto, next) + 100;
   }
   bool ignoreSampleData(const ClassDataPtr&) override { return true; }
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
