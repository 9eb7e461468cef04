// The records of policy maps: keys, priorities, classes and actions.
#include "PolicyMap/AsyncOperationResult.h"
#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PolicyMap/SetDscpAction.h"
#include "PolicyMap/TypeModule.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <sstream>
#include <type_traits>

namespace PolicyMap {
namespace {

// A name is a name, never the generic text of a whole key.
static_assert(!std::is_convertible_v<const char*, PolicyMapSmKey>);
static_assert(!std::is_constructible_v<PolicyMapSmCommonData, const char*>);
static_assert(!std::is_constructible_v<AclRuleKey, const char*>);
static_assert(!std::is_constructible_v<AsyncOperationResult, const char*>);

TEST(PolicyMapSmKeyTest, isMadeInBraces) {
   const Pello::Ptr<PolicyMapSmCommonData> policy{new PolicyMapSmCommonData({"p1", "g1"})};
   EXPECT_EQ(policy->key(), PolicyMapSmKey("p1", "g1"));
}

TEST(PolicyMapSmKeyTest, describesItself) {
   EXPECT_EQ((PolicyMapSmKey{"web", ""}).strDesc(), "web");
   EXPECT_EQ(PolicyMapSmKey{"web"}.strDesc(), "web");
   EXPECT_EQ(PolicyMapSmKey("web"), (PolicyMapSmKey{"web", ""}));
   EXPECT_EQ((PolicyMapSmKey{"web", "linecard1"}).strDesc(), "web/linecard1");
   EXPECT_EQ((PolicyMapSmKey{"", "scope"}).strDesc(), "/scope");
   EXPECT_EQ(PolicyMapSmKey{}.strDesc(), "");
}

TEST(PolicyMapSmKeyTest, ordersByNameThenScope) {
   const std::vector<PolicyMapSmKey> ascending{PolicyMapSmKey{"", "z"}, PolicyMapSmKey{"a", "b"},
                                               PolicyMapSmKey{"a", "c"}, PolicyMapSmKey{"b", ""}};
   EXPECT_TRUE(std::ranges::is_sorted(ascending));
   EXPECT_EQ(std::ranges::adjacent_find(ascending), ascending.end());
}

TEST(PolicyMapSmKeyTest, readsItsText) {
   const PolicyMapSmKey key{"we\"b", "s"};
   EXPECT_EQ(Kiv::parseValue<PolicyMapSmKey>(Kiv::valueText(key)), key);
   EXPECT_EQ(Kiv::valueText(key), "PolicyMap::PolicyMapSmKey(name=\"we\\\"b\", scope=\"s\")");
}

AclRuleKey ruleKey(const char* className, U32 sequence = 0) {
   return {PolicyMapSmKey{"p", ""}, className, "acl", sequence, matchIpAccessGroup()};
}

TEST(AclRuleKeyTest, ordersAttributeByAttribute) {
   const auto v6 = matchIpv6AccessGroup();
   const PolicyMapSmKey p{"p", ""};
   const std::vector<AclRuleKey> ascending{{PolicyMapSmKey{"a", "z"}, "z", "z", 9, v6},
                                           {p, "a", "z", 9, v6},
                                           {p, "b", "a", 9, v6},
                                           {p, "b", "b", 1, v6},
                                           {p, "b", "b", 2, matchIpAccessGroup()},
                                           {p, "b", "b", 2, v6}};
   EXPECT_TRUE(std::ranges::is_sorted(ascending));
   EXPECT_EQ(std::ranges::adjacent_find(ascending), ascending.end());
}

TEST(AclRuleKeyTest, hashesItsAttributesInOrder) {
   const AclRuleKey key = ruleKey("class", 7);
   Kiv::HashState state{42};
   state.mix(key.policyMapKey().hash(0)).mix(Kiv::hashString("class", 0));
   state.mix(Kiv::hashString("acl", 0)).mix(Kiv::hashNumber(7, 0)).mix(Kiv::hashNumber(0, 0));
   EXPECT_EQ(key.hash(42), state.result());
}

TEST(AclRuleKeyTest, readsItsText) {
   const std::string text = "PolicyMap::AclRuleKey(policyMapKey=PolicyMap::PolicyMapSmKey("
                            "name=\"p\", scope=\"\"), className=\"class\", aclName=\"acl\", "
                            "sequence=7, matchOption='matchIpAccessGroup')";
   EXPECT_EQ(Kiv::valueText(ruleKey("class", 7)), text);
   EXPECT_EQ(Kiv::parseValue<AclRuleKey>(text), ruleKey("class", 7));
   std::ostringstream out;
   out << ruleKey("class", 7);
   EXPECT_EQ(out.str(), text);
}

TEST(RulePriorityDataTest, walksFromTheLowestPriorityUp) {
   const Pello::Ptr<RulePriorityData> data{new RulePriorityData{Acl::AclType::ipv6}};
   for (const U32 priority : {30U, 10U, 4294967295U, 20U}) {
      data->entryIs(RulePriority{priority}, ruleKey("c", priority));
   }
   std::vector<U32> order;
   for (const auto& at : data->rule()) {
      EXPECT_EQ(at.value().sequence(), at.key().value());
      order.push_back(at.key().value());
   }
   EXPECT_EQ(order, (std::vector<U32>{10, 20, 30, 4294967295}));
   EXPECT_EQ(data->aclType(), Acl::AclType::ipv6);
}

// Both sides say the same.
void expectInStep(const RulePriorityData& data) {
   EXPECT_EQ(data.rules(), data.prioritys());
   for (const auto& at : data.rule()) {
      EXPECT_TRUE(data.priorityHas(at.value()));
      EXPECT_EQ(data.priority(at.value()), at.key());
   }
}

TEST(RulePriorityDataTest, aRuleThatMovesLeavesItsOldPriority) {
   const Pello::Ptr<RulePriorityData> data{new RulePriorityData{Acl::AclType::ipv4}};
   data->entryIs(RulePriority{1}, ruleKey("a"));
   data->entryIs(RulePriority{2}, ruleKey("a"));
   EXPECT_EQ(data->rules(), 1U);
   EXPECT_EQ(data->priority(ruleKey("a")), RulePriority{2});
   expectInStep(*data);
}

TEST(RulePriorityDataTest, aPriorityThatIsTakenLosesItsOldRule) {
   const Pello::Ptr<RulePriorityData> data{new RulePriorityData{Acl::AclType::ipv4}};
   data->entryIs(RulePriority{1}, ruleKey("a"));
   data->entryIs(RulePriority{1}, ruleKey("b"));
   EXPECT_FALSE(data->priorityHas(ruleKey("a")));
   EXPECT_EQ(data->rule(RulePriority{1}), ruleKey("b"));
   expectInStep(*data);
   // From the table itself.
   data->entryIs(RulePriority{7}, (*data->rule().begin()).value());
   EXPECT_EQ(data->rule(RulePriority{7}), ruleKey("b"));
   expectInStep(*data);
}

RC_GTEST_PROP(RulePriorityDataProperty, bothSidesStayInStep, ()) {
   const Pello::Ptr<RulePriorityData> data{new RulePriorityData{Acl::AclType::ipv4}};
   const auto entries = *rc::gen::container<std::vector<std::pair<int, int>>>(
         rc::gen::pair(rc::gen::inRange(0, 4), rc::gen::inRange(0, 4)));
   for (const auto& [priority, rule] : entries) {
      const AclRuleKey key = ruleKey("c", static_cast<U32>(rule));
      data->entryIs(RulePriority{static_cast<U32>(priority)}, key);
      RC_ASSERT(data->rule(RulePriority{static_cast<U32>(priority)}) == key);
      RC_ASSERT(data->rules() == data->prioritys());
      for (const auto& at : data->rule()) {
         RC_ASSERT(data->priority(at.value()) == at.key());
      }
   }
}

TEST(ClassMapTest, keepsOneActionPerType) {
   const Pello::Ptr<ClassMapSmCommonData> data{new ClassMapSmCommonData{"class"}};
   EXPECT_EQ(data->name(), "class");
   const Pello::Ptr<Action> first{new SetDscpAction{Orlix::DscpValue{46}}};
   data->actionIs(first);
   data->actionIs(first);
   EXPECT_EQ(data->actions(), 1U);
   const Pello::Ptr<Action> second{new SetDscpAction{Orlix::DscpValue{0}}};
   data->actionIs(second);
   EXPECT_EQ(data->actions(), 1U);
   EXPECT_EQ(data->action(ActionType::setDscp), second);
   EXPECT_EQ(first->references(), 1U);
   EXPECT_FALSE(data->actionHas(ActionType::sample));
   EXPECT_EQ(data->actionDel(ActionType::sample), nullptr);
   EXPECT_EQ(data->actionDel(ActionType::setDscp), second);
   EXPECT_EQ(data->action(ActionType::setDscp), nullptr);
   data->actionIs(first);
   data->actionDelAll();
   EXPECT_EQ(data->actions(), 0U);
}

TEST(ActionTest, knowsItsClass) {
   const Pello::Ptr<Action> dscp{new SetDscpAction{Orlix::DscpValue{46}}};
   EXPECT_EQ(dscp->actionType(), ActionType::setDscp);
   EXPECT_EQ(dscp->typeData().entityText(*dscp),
             "PolicyMap::SetDscpAction(actionType='setDscp', dscp=46)");
   const Pello::Ptr<Action> plain{new Action{ActionType::setDscp}};
   EXPECT_EQ(Pello::dynamicCast<SetDscpAction>(plain), nullptr);
   EXPECT_NE(Pello::dynamicCast<SetDscpAction>(dscp), nullptr);
}

TEST(PolicyMapTest, keepsClassesInterfacesAndPriorities) {
   const Pello::Ptr<PolicyMapSmCommonData> policy{
         new PolicyMapSmCommonData{PolicyMapSmKey{"web", ""}}};
   const Pello::Ptr<ClassMapSmCommonData> first{new ClassMapSmCommonData{"a"}};
   const Pello::Ptr<ClassMapSmCommonData> second{new ClassMapSmCommonData{"a"}};
   policy->classDataIs(first);
   policy->classDataIs(second);
   EXPECT_EQ(policy->classData("a"), second);
   EXPECT_EQ(policy->classDatas(), 1U);
   EXPECT_TRUE(policy->classDataHas("a"));
   EXPECT_EQ(policy->classDataDel("a"), second);
   EXPECT_EQ(policy->classDataDel("a"), nullptr);
   policy->classDataIs(first);
   policy->classDataDelAll();
   EXPECT_EQ(policy->classDatas(), 0U);
   policy->intf4Is(Orlix::IntfId{"Ethernet1"});
   EXPECT_EQ(policy->intf4s(), 1U);
   EXPECT_EQ(policy->intf6s(), 0U);
   EXPECT_EQ(policy->rulePriority(Acl::AclType::ipv4), nullptr);
   const auto priorities = policy->rulePriorityIs(Acl::AclType::ipv4);
   EXPECT_EQ(policy->rulePriorityIs(Acl::AclType::ipv4), priorities);
   EXPECT_EQ(policy->rulePriority(Acl::AclType::ipv6), nullptr);
}

TEST(MatchOptionTest, numbersAndNames) {
   const struct {
      ClassMapMatchOption option;
      U32 number;
      std::string name;
   } rows[] = {{matchIpAccessGroup(), 0, "matchIpAccessGroup"},
               {matchIpv6AccessGroup(), 1, "matchIpv6AccessGroup"},
               {matchMacAccessGroup(), 2, "matchMacAccessGroup"}};
   for (const auto& [option, number, name] : rows) {
      EXPECT_EQ(ClassMapMatchOptionInstance(number), option);
      EXPECT_EQ(ClassMapMatchOptionInstance(name), option);
      EXPECT_EQ(stringValue(option), name);
   }
   EXPECT_THROW(ClassMapMatchOptionInstance(3), Kiv::RangeError);
   EXPECT_THROW(ActionTypeInstance(11), Kiv::RangeError);
   EXPECT_EQ(ActionTypeInstance(18), ActionType::sample);
   EXPECT_EQ(ActionTypeInstance("sampleAll"), ActionType::sampleAll);
   EXPECT_EQ(static_cast<int>(ActionType::setDscp), 7);
}

TEST(AsyncOperationResultTest, readsItsText) {
   const AsyncOperationResult result{"a \"b\"", 1700000000.25};
   EXPECT_EQ(Kiv::parseValue<AsyncOperationResult>(Kiv::valueText(result)), result);
   EXPECT_THROW(Kiv::hashOf(result, 0), Kiv::NotHashable);
}

TEST(PolicyMapModuleTest, allTypesAreRegistered) {
   EXPECT_EQ(typeModule().name, "PolicyMap");
   EXPECT_EQ(typeModule().types.size(), 13U);
   for (const Kiv::TypeData* type : typeModule().types) {
      EXPECT_EQ(Kiv::findType(type->name), type) << type->name;
   }
}

} // namespace
} // namespace PolicyMap
