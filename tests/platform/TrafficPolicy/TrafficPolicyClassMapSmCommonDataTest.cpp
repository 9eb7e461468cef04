#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

#include "TrafficPolicy/TypeModule.h"

#include <gtest/gtest.h>

namespace TrafficPolicy {
namespace {

TEST(TrafficPolicyClassMapTest, keepsItsFiltersByAclAndNumber) {
   const Pello::Ptr<TrafficPolicyClassMapSmCommonData> data{
         new TrafficPolicyClassMapSmCommonData{"class"}};
   EXPECT_EQ(data->aclStructuredFilter("acl"), nullptr);
   const auto filters = data->aclStructuredFilterIs("acl");
   EXPECT_EQ(data->aclStructuredFilterIs("acl"), filters);
   EXPECT_EQ(filters->name(), "acl");
   const auto filter = filters->filterIs(0);
   EXPECT_EQ(filters->filter(0), filter);
   EXPECT_EQ(filters->filter(1), nullptr);
   EXPECT_EQ(filters->filters(), 1U);
   EXPECT_EQ(filters->filterDel(0), filter);
   EXPECT_EQ(filters->filters(), 0U);
}

TEST(TrafficPolicyClassMapTest, isAClassMap) {
   const Pello::Ptr<TrafficPolicyClassMapSmCommonData> data{
         new TrafficPolicyClassMapSmCommonData{"class"}};
   data->actionIs(new PolicyMap::Action{PolicyMap::ActionType::sample});
   const Pello::Ptr<PolicyMap::ClassMapSmCommonData> common = data;
   EXPECT_EQ(Pello::dynamicCast<TrafficPolicyClassMapSmCommonData>(common), data);
   EXPECT_EQ(common->typeData().name, "TrafficPolicy::TrafficPolicyClassMapSmCommonData");
   EXPECT_EQ(common->typeData().entityText(*common),
             "TrafficPolicy::TrafficPolicyClassMapSmCommonData(name=\"class\", "
             "action={'sample': PolicyMap::Action(actionType='sample')}, aclStructuredFilter={})");
}

TEST(TrafficPolicyModuleTest, allTypesAreRegistered) {
   EXPECT_EQ(typeModule().name, "TrafficPolicy");
   EXPECT_EQ(typeModule().types.size(), 2U);
   for (const Kiv::TypeData* type : typeModule().types) {
      EXPECT_EQ(Kiv::findType(type->name), type) << type->name;
   }
   const auto& type = TrafficPolicyClassMapSmCommonData::kivTypeData();
   EXPECT_EQ(type.attribute("aclStructuredFilter").id, 258);
}

} // namespace
} // namespace TrafficPolicy
