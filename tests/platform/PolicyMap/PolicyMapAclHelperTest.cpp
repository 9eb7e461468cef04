// The base of a feature's helper: its switches, what each operation does where no feature has
// overridden it, and the order of the operations' slots.
#include "PolicyMap/PolicyMapAclHelper.h"

#include "Kiv/Reflection.h"

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

namespace PolicyMap {

// Commits what is not called "bad".
class Committing : public PolicyMapAclHelper {
   KIV_ENTITY(Committing, PolicyMapAclHelper, "Test::Committing");

 public:
   Kiv::String commitPolicy(const PolicyDataPtr& policyData, ClassMapMatchOption option) override {
      EXPECT_EQ(option, matchIpv6AccessGroup());
      committed_.push_back(policyData->key().strDesc().str());
      return committed_.back() == "bad" ? Kiv::String{"cannot commit bad"} : Kiv::String{};
   }
   std::vector<std::string> committed_;
};

} // namespace PolicyMap

KIV_DEFINE_ENTITY(PolicyMap::Committing)

namespace PolicyMap {
namespace {

// Helpers built elsewhere call it by this type.
static_assert(std::is_same_v<decltype(&PolicyMapAclHelper::asyncOperationResultIs),
                             void (PolicyMapAclHelper::*)(const AsyncOperationResult&)>);

using Policy = PolicyMapAclHelper::PolicyDataPtr;

Policy policyOf(const char* name) {
   return new PolicyMapSmCommonData{PolicyMapSmKey{name, ""}};
}

// A helper in which nothing is overridden.
Pello::Ptr<PolicyMapAclHelper> plainHelper() {
   return new PolicyMapAclHelper;
}

TEST(PolicyMapAclHelperTest, switchesStartAsAnAgentExpectsThem) {
   const auto helper = plainHelper();
   EXPECT_TRUE(helper->updateActionSupported());
   EXPECT_FALSE(helper->expandPortChannels());
   EXPECT_TRUE(helper->establishedSupported());
   EXPECT_TRUE(helper->subRulesForL4Ports());
   EXPECT_FALSE(helper->asyncOperations());
   EXPECT_EQ(helper->asyncOperationResult(), (AsyncOperationResult{"", 0}));
}

TEST(PolicyMapAclHelperTest, changesOfSwitchesArePublishedWithTheOldValue) {
   const auto helper = plainHelper();
   std::vector<std::pair<unsigned, bool>> changes;
   const auto subscription = helper->publisher()->subscribe([&](const Pello::Change& change) {
      const bool* old = change.oldValue.as<bool>();
      ASSERT_NE(old, nullptr);
      EXPECT_TRUE(change.key.empty());
      changes.emplace_back(change.attribute, *old);
   });
   for (int twice = 0; twice < 2; ++twice) {
      helper->updateActionSupportedIs(false);
      helper->expandPortChannelsIs(true);
      helper->establishedSupportedIs(false);
      helper->subRulesForL4PortsIs(false);
      helper->asyncOperationsIs(true);
   }
   EXPECT_EQ(changes, (std::vector<std::pair<unsigned, bool>>{
                            {130, true}, {131, false}, {132, true}, {133, true}, {134, false}}));
}

TEST(PolicyMapAclHelperTest, outcomesArePublishedWithTheOldOne) {
   const auto helper = plainHelper();
   std::vector<AsyncOperationResult> old;
   const auto subscription = helper->publisher()->subscribe([&](const Pello::Change& change) {
      EXPECT_EQ(change.attribute, 135);
      old.push_back(*change.oldValue.as<AsyncOperationResult>());
   });
   helper->asyncOperationResultIs({"failed", 1.5});
   helper->asyncOperationResultIs({"failed", 1.5});
   helper->asyncOperationResultIs({"failed", 2.5});
   EXPECT_EQ(old, (std::vector<AsyncOperationResult>{{"", 0}, {"failed", 1.5}}));
}

TEST(PolicyMapAclHelperTest, ordersThatAFeatureHasNotSaySo) {
   const auto helper = plainHelper();
   const Policy policy = policyOf("p");
   const auto ip = matchIpAccessGroup();
   const AclRuleKey key;
   const Orlix::IntfId intf{"Ethernet1"};
   const L3::VrfName vrf{"default"};
   const struct {
      const char* operation;
      Kiv::String status;
   } rows[] = {
         {"createPolicy", helper->createPolicy(policy, ip)},
         {"recreatePolicy", helper->recreatePolicy(policy, ip)},
         {"deletePolicy", helper->deletePolicy(policy, ip)},
         {"commitPolicy", helper->commitPolicy(policy, ip)},
         {"addIntfToPolicy", helper->addIntfToPolicy(policy, intf, intf, vrf, ip)},
         {"removeIntfFromPolicy", helper->removeIntfFromPolicy(policy, intf, intf, vrf, ip)},
         {"addRule", helper->addRule(policy, key)},
         {"beginUpdateActions", helper->beginUpdateActions(policy)},
         {"updateAction", helper->updateAction(policy, key)},
         {"updateNexthopGroupMatch", helper->updateNexthopGroupMatch(policy, key)},
         {"endUpdateActions", helper->endUpdateActions(policy)},
   };
   for (const auto& [operation, status] : rows) {
      EXPECT_EQ(status,
                "Operation " + std::string{operation} + " is not supported by this feature");
   }
}

TEST(PolicyMapAclHelperTest, questionsAreAnsweredNoOrNone) {
   const auto helper = plainHelper();
   const Policy policy = policyOf("p");
   EXPECT_EQ(helper->maybeAddOldRules(policy, matchIpAccessGroup()), 0U);
   EXPECT_FALSE(helper->initInPlaceUpdate(policy, matchIpAccessGroup()));
   EXPECT_FALSE(helper->tryAddRules(policy, {AclRuleKey{}}));
   EXPECT_FALSE(helper->tryMoveRules(policy, {AclRuleKey{}}));
   EXPECT_EQ(helper->getCountForRule(policy, {}), 0U);
   EXPECT_EQ(helper->getCountForRulePerInterface(policy, {}, Orlix::IntfId{"Ethernet1"}), 0U);
   EXPECT_TRUE(helper->intfExists(Orlix::IntfId{"Ethernet1"}));
   EXPECT_EQ(helper->getLastInstalledPriority(policy), 0U);
   EXPECT_FALSE(helper->dropActionSupported());
   EXPECT_EQ(helper->linecardName(), "");
}

TEST(PolicyMapAclHelperTest, actionsThatAFeatureHasNotAreRefused) {
   const auto helper = plainHelper();
   const PolicyMapAclHelper::ClassDataPtr data{new ClassMapSmCommonData{"class"}};
   EXPECT_EQ(helper->validPoliceAction(data), "Action police is not supported by this feature");
   EXPECT_EQ(helper->validEgressRedirectAction(data),
             "Action egress redirect is not supported by this feature");
   EXPECT_EQ(helper->validateUseVrfSecondaryAction(data),
             "Action use VRF secondary is not supported by this feature");
   EXPECT_EQ(helper->validateDefaultActions(policyOf("p")), "");
}

TEST(PolicyMapAclHelperTest, notificationsChangeNothingAndShowsWriteNothing) {
   const auto helper = plainHelper();
   const std::string before = helper->typeData().entityText(*helper);
   const auto subscription =
         helper->publisher()->subscribe([](const Pello::Change&) { ADD_FAILURE(); });
   helper->handleVlanTcamIdConfig();
   helper->hwInit();
   helper->cacheFieldSets(policyOf("p"), matchIpAccessGroup());
   helper->cacheUdfs(policyOf("p"), matchIpAccessGroup());
   helper->setAsyncAddRuleInProgress(true);
   constexpr U32 noDescriptor = 0x7fffffff;
   helper->showAclRule(noDescriptor, {});
   helper->showAclSummary(noDescriptor);
   EXPECT_EQ(helper->typeData().entityText(*helper), before);
}

TEST(PolicyMapAclHelperTest, anOperationThatIsLateIsNamed) {
   EXPECT_EQ(
         plainHelper()->handlePendingOperationTimeout(policyOf("web"), matchIpv6AccessGroup()),
         "Operation pending for policy web, matchIpv6AccessGroup has not been answered in time");
}

TEST(PolicyMapAclHelperTest, aBatchCommitsInOrderAndStopsAtTheFirstFailure) {
   const struct {
      std::vector<std::string> batch;
      std::vector<std::string> committed;
      std::string status;
   } rows[] = {
         {{}, {}, ""},
         {{"b", "a", "c"}, {"b", "a", "c"}, ""},
         {{"a", "bad", "c", "bad"}, {"a", "bad"}, "cannot commit bad"},
   };
   for (const auto& row : rows) {
      const Pello::Ptr<Committing> helper{new Committing};
      std::vector<Policy> policies;
      for (const std::string& name : row.batch) {
         policies.push_back(policyOf(name.c_str()));
      }
      EXPECT_EQ(helper->batchCommitPolicy(policies, matchIpv6AccessGroup()), row.status);
      EXPECT_EQ(helper->committed_, row.committed);
   }
}

// A pointer to a virtual member is, in the C++ ABI of Linux on x86-64, 1 plus the byte offset of
// its slot.
template <class Member>
std::size_t slotOf(Member member) {
   std::size_t value = 0;
   std::memcpy(&value, &member, sizeof value);
   EXPECT_EQ(value % 8, 1U) << "not a virtual member";
   return value / 8;
}

#if defined(__x86_64__)
TEST(PolicyMapAclHelperTest, operationsKeepTheirSlots) {
   using H = PolicyMapAclHelper;
   const std::size_t slots[] = {// The destructor has slots 0 and 1.
                                slotOf(&H::lastUserGone),
                                slotOf(&H::publisher),
                                slotOf(&H::typeData),
                                slotOf(&H::handleVlanTcamIdConfig),
                                slotOf(&H::hwInit),
                                slotOf(&H::cacheFieldSets),
                                slotOf(&H::cacheUdfs),
                                slotOf(&H::setAsyncAddRuleInProgress),
                                slotOf(&H::maybeAddOldRules),
                                slotOf(&H::createPolicy),
                                slotOf(&H::recreatePolicy),
                                slotOf(&H::initInPlaceUpdate),
                                slotOf(&H::deletePolicy),
                                slotOf(&H::commitPolicy),
                                slotOf(&H::batchCommitPolicy),
                                slotOf(&H::addIntfToPolicy),
                                slotOf(&H::removeIntfFromPolicy),
                                slotOf(&H::addRule),
                                slotOf(&H::tryAddRules),
                                slotOf(&H::tryMoveRules),
                                slotOf(&H::beginUpdateActions),
                                slotOf(&H::updateAction),
                                slotOf(&H::updateNexthopGroupMatch),
                                slotOf(&H::endUpdateActions),
                                slotOf(&H::getCountForRule),
                                slotOf(&H::getCountForRulePerInterface),
                                slotOf(&H::showAclRule),
                                slotOf(&H::showAclSummary),
                                slotOf(&H::handlePendingOperationTimeout),
                                slotOf(&H::intfExists),
                                slotOf(&H::getLastInstalledPriority),
                                slotOf(&H::dropActionSupported),
                                slotOf(&H::linecardName),
                                slotOf(&H::validPoliceAction),
                                slotOf(&H::validEgressRedirectAction),
                                slotOf(&H::validateUseVrfSecondaryAction),
                                slotOf(&H::validateDefaultActions)};
   std::size_t expected = 2;
   for (const std::size_t slot : slots) {
      EXPECT_EQ(slot, expected++);
   }
   EXPECT_EQ(expected, 39U);
}

TEST(PolicyMapAclHelperTest, theDestructorHasTheFirstTwoSlots) {
   // Slot 1 deletes the object: called through the table, it must give the memory back.
   const U64 before = PolicyMapAclHelper::memAllocationTracker_.live();
   auto* helper = new PolicyMapAclHelper;
   using Destructor = void (*)(PolicyMapAclHelper*);
   const Destructor* table = nullptr;
   std::memcpy(&table, static_cast<const void*>(helper), sizeof table);
   EXPECT_EQ(PolicyMapAclHelper::memAllocationTracker_.live(), before + 1);
   table[1](helper);
   EXPECT_EQ(PolicyMapAclHelper::memAllocationTracker_.live(), before);
}
#endif

} // namespace
} // namespace PolicyMap
