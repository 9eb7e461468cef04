// ACL configurations: two tables of rules, interfaces, status texts.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

#include <gtest/gtest.h>

#include <vector>

namespace OruPostcardTelemetry {
namespace {

class AclConfigTest : public testing::Test {
 protected:
   Pello::Ptr<PostcardTelemetryAclConfig> config_ = postcardTelemetryAclConfigFactory("key");

   std::vector<U32> indexes() const {
      std::vector<U32> indexes;
      for (const auto& at : config_->ruleByIndex()) {
         indexes.push_back(at.key());
      }
      return indexes;
   }
};

using AclConfigStatusTest = testing::Test;

TEST_F(AclConfigTest, aNewOneIsEmpty) {
   EXPECT_EQ(config_->typeData().entityText(*config_),
             "OruPostcardTelemetry::PostcardTelemetryAclConfig(aclConfigKey=\"key\", "
             "aclType='ipv4', ruleByName={}, ruleByIndex={}, policyIntf={}, "
             "programmedPolicy=false, rulesClientUpdated=false, aclConfigStatus=null)");
   EXPECT_EQ(static_cast<int>(config_->aclType()), 0);
   EXPECT_EQ(config_->publisher(), nullptr);
}

TEST_F(AclConfigTest, plainAttributes) {
   config_->aclTypeIs(Acl::AclType::ipv6);
   config_->programmedPolicyIs(true);
   config_->rulesClientUpdatedIs(true);
   EXPECT_EQ(config_->aclType(), Acl::AclType::ipv6);
   EXPECT_TRUE(config_->programmedPolicy());
   EXPECT_TRUE(config_->rulesClientUpdated());
   config_->programmedPolicyIs(false);
   EXPECT_FALSE(config_->programmedPolicy());
}

TEST_F(AclConfigTest, aRuleIsMadeOncePerName) {
   EXPECT_EQ(config_->ruleByName("a"), nullptr);
   const auto rule = config_->ruleByNameIs("a");
   EXPECT_EQ(rule->name(), "a");
   EXPECT_EQ(rule->ruleFilter(), nullptr);
   EXPECT_EQ(rule->ruleAction(), nullptr);
   const auto filter = rule->ruleFilterIs();
   const auto action = rule->ruleActionIs();
   EXPECT_EQ(config_->ruleByNameIs("a"), rule);
   EXPECT_EQ(rule->ruleFilter(), filter);
   EXPECT_EQ(rule->ruleAction(), action);
   EXPECT_EQ(config_->ruleByNames(), 1U);
   EXPECT_TRUE(config_->ruleByNameHas("a"));
   EXPECT_EQ(config_->ruleByName("a"), rule);
}

TEST_F(AclConfigTest, rulesGoByName) {
   const auto a = config_->ruleByNameIs("a");
   config_->ruleByNameIs("b");
   EXPECT_EQ(config_->ruleByNameDel("a"), a);
   EXPECT_EQ(config_->ruleByNameDel("a"), nullptr);
   EXPECT_FALSE(config_->ruleByNameHas("a"));
   EXPECT_EQ(config_->ruleByNames(), 1U);
   config_->ruleByNameDelAll();
   EXPECT_EQ(config_->ruleByNames(), 0U);
}

TEST_F(AclConfigTest, ruleByIndexIsHasFiveCases) {
   const auto a = ruleConfigFactory("a");
   const auto b = ruleConfigFactory("b");
   config_->ruleByIndexIs(7, nullptr); // absent, null
   EXPECT_EQ(config_->ruleByIndexs(), 0U);
   config_->ruleByIndexIs(7, a); // absent, a rule
   EXPECT_EQ(config_->ruleByIndex(7), a);
   EXPECT_EQ(a->references(), 2U);
   config_->ruleByIndexIs(7, a); // the very object
   EXPECT_EQ(a->references(), 2U);
   config_->ruleByIndexIs(7, b); // another object
   EXPECT_EQ(config_->ruleByIndex(7), b);
   EXPECT_EQ(a->references(), 1U);
   EXPECT_EQ(config_->ruleByIndexs(), 1U);
   config_->ruleByIndexIs(7, nullptr); // present, null
   EXPECT_EQ(config_->ruleByIndex(7), nullptr);
   EXPECT_FALSE(config_->ruleByIndexHas(7));
   EXPECT_EQ(b->references(), 1U);
   EXPECT_EQ(config_->ruleByNames(), 0U);
}

// Whoever passes these setters on needs their addresses.
TEST_F(AclConfigTest, settersOfTheOrderedCollectionsHaveAnAddress) {
   void (PostcardTelemetryAclConfig::*const enterRule)(U32, const Pello::Ptr<RuleConfig>&) =
         &PostcardTelemetryAclConfig::ruleByIndexIs;
   const auto acl = postcardTelemetryAclConfigFactory("p-ipv4");
   const auto rule = ruleConfigFactory("rule");
   ((*acl).*enterRule)(4, rule);
   EXPECT_EQ(acl->ruleByIndex(4), rule);
   ((*acl).*enterRule)(4, nullptr);
   EXPECT_EQ(acl->ruleByIndexs(), 0U);
   void (PostcardTelemetryAclConfigStatus::*const enterText)(U32, const Pello::String&) =
         &PostcardTelemetryAclConfigStatus::statusInOrderIs;
   const auto status = postcardTelemetryAclConfigStatusFactory();
   ((*status).*enterText)(3, "full");
   ((*status).*enterText)(3, "invalid");
   EXPECT_EQ(status->statusInOrder(3), "invalid");
   EXPECT_EQ(status->statusInOrders(), 1U);
}

TEST_F(AclConfigTest, ruleByIndexIsNullLeavesTheRuleUnderItsName) {
   const auto rule = config_->ruleByNameIs("a");
   config_->ruleByIndexIs(0, rule);
   config_->ruleByIndexIs(0, nullptr);
   EXPECT_EQ(config_->ruleByName("a"), rule);
   EXPECT_EQ(config_->ruleByIndexs(), 0U);
}

TEST_F(AclConfigTest, rulesGoByIndexAndByIterator) {
   for (const U32 index : {5U, 1U, 3U, 4294967295U, 0U}) {
      config_->ruleByIndexIs(index, ruleConfigFactory(std::to_string(index)));
   }
   EXPECT_EQ(indexes(), (std::vector<U32>{0, 1, 3, 5, 4294967295}));
   EXPECT_EQ(config_->ruleByIndexDel(3)->name(), "3");
   EXPECT_EQ(config_->ruleByIndexDel(3), nullptr);
   EXPECT_EQ(config_->ruleByIndexDel(config_->ruleByIndex().begin())->name(), "0");
   EXPECT_EQ(config_->ruleByIndexDel(config_->ruleByIndex().find(5))->name(), "5");
   EXPECT_EQ(config_->ruleByIndexDel(config_->ruleByIndex().find(5)), nullptr);
   EXPECT_EQ(config_->ruleByIndexDel(config_->ruleByIndex().end()), nullptr);
   EXPECT_EQ(indexes(), (std::vector<U32>{1, 4294967295}));
   config_->ruleByIndexDelAll();
   EXPECT_EQ(config_->ruleByIndexs(), 0U);
}

TEST_F(AclConfigTest, aRuleLivesWhileItIsInOneOfTheTables) {
   const U64 before = RuleConfig::memAllocationTracker_.live();
   config_->ruleByIndexIs(1, config_->ruleByNameIs("a"));
   config_->ruleByNameDel("a");
   EXPECT_EQ(config_->ruleByIndex(1)->name(), "a");
   EXPECT_EQ(RuleConfig::memAllocationTracker_.live(), before + 1);
   config_->ruleByIndexDel(1);
   EXPECT_EQ(RuleConfig::memAllocationTracker_.live(), before);
   config_->ruleByIndexIs(1, config_->ruleByNameIs("b"));
   config_->ruleByIndexDelAll();
   EXPECT_EQ(RuleConfig::memAllocationTracker_.live(), before + 1);
   config_->ruleByNameDelAll();
   EXPECT_EQ(RuleConfig::memAllocationTracker_.live(), before);
}

TEST_F(AclConfigTest, interfacesAreASet) {
   const Orlix::IntfId one{"Ethernet1"};
   const Orlix::IntfId two{"Ethernet2"};
   config_->policyIntfDel(one);
   config_->policyIntfIs(one);
   config_->policyIntfIs(one);
   config_->policyIntfIs(two);
   EXPECT_EQ(config_->policyIntfs(), 2U);
   EXPECT_TRUE(config_->policyIntf(one));
   EXPECT_TRUE(config_->policyIntfHas(two));
   EXPECT_FALSE(config_->policyIntf(Orlix::IntfId{}));
   config_->policyIntfDel(one);
   config_->policyIntfDel(one);
   EXPECT_EQ(config_->policyIntfs(), 1U);
   EXPECT_EQ(*config_->policyIntf().begin(), two);
   config_->policyIntfDelAll();
   EXPECT_EQ(config_->policyIntfs(), 0U);
}

TEST_F(AclConfigTest, theStatusIsMadeOnceAndHandedOver) {
   const auto status = config_->aclConfigStatusIs();
   EXPECT_EQ(config_->aclConfigStatusIs(), status);
   EXPECT_EQ(config_->aclConfigStatusDel(), status);
   EXPECT_EQ(config_->aclConfigStatus(), nullptr);
   EXPECT_EQ(config_->aclConfigStatusDel(), nullptr);
}

TEST_F(AclConfigTest, factoriesMakeNewObjects) {
   const auto made = postcardTelemetryAclConfigFactory("key");
   const auto is = PostcardTelemetryAclConfigIs("key");
   EXPECT_TRUE(made != is && made != config_ && is != config_);
   EXPECT_EQ(is->aclConfigKey(), "key");
   EXPECT_NE(postcardTelemetryAclConfigStatusFactory(), PostcardTelemetryAclConfigStatusIs());
}

TEST_F(AclConfigTest, destroyingItReleasesEverything) {
   const auto kept = config_->ruleByNameIs("kept");
   config_->ruleByIndexIs(0, kept);
   config_->ruleByNameIs("a")->ruleFilterIs()->sampleDataAndMaskIs("x");
   config_->aclConfigStatusIs()->statusInOrderIs(0, "text");
   config_->policyIntfIs(Orlix::IntfId{"Ethernet1"});
   config_ = nullptr;
   EXPECT_EQ(kept->references(), 1U);
   EXPECT_EQ(kept->name(), "kept");
}

TEST_F(AclConfigTest, genericCopyTakesEverythingButTheKey) {
   config_->aclTypeIs(Acl::AclType::ipv6);
   const auto rule = config_->ruleByNameIs("a");
   rule->ruleActionIs()->actionIs(RuleAction::sampleAction);
   rule->ruleFilterIs();
   config_->ruleByNameIs("without parts");
   config_->ruleByIndexIs(4, rule);
   const auto stray = ruleConfigFactory("stray");
   config_->ruleByIndexIs(5, stray);
   config_->policyIntfIs(Orlix::IntfId{"Ethernet1"});
   config_->aclConfigStatusIs()->statusInOrderIs(2, "text");
   const auto copy = postcardTelemetryAclConfigFactory("other");
   copy->typeData().copy(*copy, *config_);
   EXPECT_EQ(copy->aclConfigKey(), "other");
   EXPECT_EQ(copy->aclType(), Acl::AclType::ipv6);
   EXPECT_EQ(copy->ruleByNames(), 2U);
   EXPECT_NE(copy->ruleByName("a"), rule);
   EXPECT_TRUE(copy->ruleByName("a")->ruleAction()->action(RuleAction::sampleAction));
   EXPECT_EQ(copy->ruleByIndex(4), copy->ruleByName("a"));
   EXPECT_EQ(copy->ruleByIndex(5), stray); // a rule that the source only refers to
   EXPECT_TRUE(copy->policyIntf(Orlix::IntfId{"Ethernet1"}));
   EXPECT_EQ(copy->aclConfigStatus()->statusInOrder(2), "text");
   EXPECT_NE(copy->aclConfigStatus(), config_->aclConfigStatus());
}

TEST_F(AclConfigStatusTest, textsStandInOrderOfTheirKeys) {
   const auto status = postcardTelemetryAclConfigStatusFactory();
   EXPECT_EQ(status->currentIndex(), 0U);
   EXPECT_EQ(status->statusInOrders(), 0U);
   for (const U32 key : {5U, 1U, 3U}) {
      status->statusInOrderIs(key, std::to_string(key));
   }
   EXPECT_EQ(status->typeData().entityText(*status),
             "OruPostcardTelemetry::PostcardTelemetryAclConfigStatus("
             "statusInOrder={1: \"1\", 3: \"3\", 5: \"5\"}, currentIndex=0)");
   status->statusInOrderIs(3, "new");
   EXPECT_EQ(status->statusInOrder(3), "new");
   EXPECT_EQ(status->statusInOrders(), 3U);
}

TEST_F(AclConfigStatusTest, absentTextsReadAsEmptyButEmptyOnesAreThere) {
   const auto status = postcardTelemetryAclConfigStatusFactory();
   EXPECT_EQ(status->statusInOrder(0), "");
   EXPECT_EQ(status->statusInOrderDel(0), "");
   status->statusInOrderIs(0, "");
   EXPECT_TRUE(status->statusInOrderHas(0));
   status->statusInOrderIs(0, "text");
   status->statusInOrderIs(0, "");
   EXPECT_TRUE(status->statusInOrderHas(0));
   EXPECT_EQ(status->statusInOrders(), 1U);
}

TEST_F(AclConfigStatusTest, textsGoByKeyAndByIterator) {
   const auto status = postcardTelemetryAclConfigStatusFactory();
   status->currentIndexIs(9);
   for (const U32 key : {0U, 1U, 2U}) {
      status->statusInOrderIs(key, std::to_string(key));
   }
   EXPECT_EQ(status->statusInOrderDel(1), "1");
   EXPECT_EQ(status->statusInOrderDel(status->statusInOrder().begin()), "0");
   EXPECT_EQ(status->statusInOrderDel(status->statusInOrder().end()), "");
   EXPECT_EQ(status->statusInOrders(), 1U);
   status->statusInOrderDelAll();
   EXPECT_EQ(status->statusInOrders(), 0U);
   EXPECT_EQ(status->currentIndex(), 9U);
}

TEST_F(AclConfigStatusTest, nodesShowKeyAndContent) {
   using Text = PostcardTelemetryAclConfigStatus::KivStatusInOrder;
   using Rule = PostcardTelemetryAclConfig::KivRuleByIndex;
   static_assert(std::is_same_v<Text, std::pair<const U32, Pello::String>>);
   static_assert(std::is_same_v<Rule, std::pair<const U32, Pello::Ptr<RuleConfig>>>);
   EXPECT_EQ((Text{3, "x"}).first, 3U);
}

} // namespace
} // namespace OruPostcardTelemetry
