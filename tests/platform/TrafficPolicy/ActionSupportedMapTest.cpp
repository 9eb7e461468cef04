#include "TrafficPolicy/ActionSupportedMap.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <set>

namespace TrafficPolicy {
namespace {

using PolicyMap::ActionType;

Pello::Ptr<PolicyMap::ClassMapSmCommonData> classWith(const std::vector<ActionType>& types) {
   Pello::Ptr<PolicyMap::ClassMapSmCommonData> data{new PolicyMap::ClassMapSmCommonData{"class"}};
   for (const ActionType type : types) {
      data->actionIs(new PolicyMap::Action{type});
   }
   return data;
}

TEST(ActionSupportedMapTest, namesWhatCannotBeCarriedOut) {
   using enum ActionType;
   struct Row {
      std::vector<ActionType> actions;
      std::string expected;
   };
   const Row rows[] = {
         {{}, ""},
         {{sample}, ""},
         {{sampleAll, sample}, ""},
         {{setDscp}, ""},
         {{setDscp, sample}, ""},
         {{drop}, "Unsupported action(s): 'drop',"},
         {{drop, setDscp, sample}, "Unsupported action(s): 'drop',"},
         {{mirror, permit, nat, count},
          "Unsupported action(s): 'permit', 'count', 'mirror', 'nat',"},
         {{static_cast<ActionType>(11)}, "Unsupported action(s): '11',"},
         {{static_cast<ActionType>(200), log}, "Unsupported action(s): 'log', '200',"},
   };
   const ActionSupportedMap map{sample, sampleAll};
   for (const auto& [actions, expected] : rows) {
      EXPECT_EQ(map.checkUnsupportedActionConfig(classWith(actions)), expected);
   }
}

TEST(ActionSupportedMapTest, flags) {
   const ActionSupportedMap map{ActionType::permit, ActionType::sampleAll};
   EXPECT_TRUE(map.supported(ActionType::permit));
   EXPECT_TRUE(map.supported(ActionType::sampleAll));
   EXPECT_FALSE(map.supported(ActionType::sample));
   EXPECT_FALSE(map.supported(static_cast<ActionType>(20)));
   EXPECT_FALSE(map.supported(static_cast<ActionType>(255)));
   EXPECT_THROW(ActionSupportedMap{static_cast<ActionType>(20)}, std::out_of_range);
}

RC_GTEST_PROP(ActionSupportedMapProperty, namesAscendWhateverTheOrder, ()) {
   const auto numbers = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 11));
   std::vector<ActionType> types;
   std::string expected;
   for (const int number : numbers) {
      types.push_back(static_cast<ActionType>(number));
   }
   for (const int number : std::set<int>(numbers.begin(), numbers.end())) {
      if (number != 7 && number != 3) {
         expected += " '" + stringValue(static_cast<ActionType>(number)) + "',";
      }
   }
   const ActionSupportedMap map{ActionType::police};
   RC_ASSERT(map.checkUnsupportedActionConfig(classWith(types)) ==
             (expected.empty() ? expected : "Unsupported action(s):" + expected));
}

} // namespace
} // namespace TrafficPolicy
