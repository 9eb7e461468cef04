// The order of a policy's classes, and what is asked of their actions.
#include "postcard/policy/Classes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace Postcard::Policy;

// A class with the filters that `families` names: "4", "6", "46" or none.
Class classOf(const char* name, std::uint32_t priority, std::string_view families) {
   Class made;
   made.name.text = name;
   made.priority = priority;
   if (families.find('4') != std::string_view::npos) {
      made.ipv4.emplace();
   }
   if (families.find('6') != std::string_view::npos) {
      made.ipv6.emplace();
   }
   return made;
}

std::string order(const Policy& policy, Family family) {
   std::string names;
   for (const Class* each : classesInOrder(policy, family)) {
      names += each->name.text + " ";
   }
   return names;
}

TEST(Classes, inTheOrderOfPrioritiesAndOnlyThoseOfTheFamily) {
   Policy policy;
   EXPECT_EQ(order(policy, Family::ipv4), "");
   policy.classes = {classOf("a", 10, "46"), classOf("b", 5, "4"), classOf("c", 0, "6"),
                     classOf("d", 7, ""), classOf("e", 7, "46")};
   EXPECT_EQ(order(policy, Family::ipv4), "b e a ");
   EXPECT_EQ(order(policy, Family::ipv6), "c e a ");
   EXPECT_EQ(classesInOrder(policy, Family::ipv4).front(), &policy.classes[1]);
}

TEST(Classes, theSampleMatchCountsOnlyWithTheActionSample) {
   struct Row {
      std::vector<ActionKind> actions;
      bool samples;
      bool countsSampleMatch;
   };
   const Row rows[] = {{{}, false, false},
                       {{ActionKind::sample}, true, true},
                       {{ActionKind::sampleAll}, true, false},
                       {{ActionKind::setDscp}, false, false},
                       {{ActionKind::setDscp, ActionKind::sample}, true, true},
                       {{ActionKind::sampleAll, ActionKind::sample}, true, true}};
   for (const Row& row : rows) {
      Class each = classOf("a", 1, "46");
      each.ipv4->sample = SampleMatch{1, 3, SampleField::checksum, {}};
      for (const ActionKind kind : row.actions) {
         each.actions.push_back({kind, 46, {}});
         EXPECT_EQ(actionOf(each, kind), &each.actions.back());
      }
      EXPECT_EQ(actionOf(each, ActionKind::drop), nullptr);
      EXPECT_EQ(samples(each), row.samples) << row.actions.size();
      EXPECT_EQ(sampleOf(each, Family::ipv4),
                row.countsSampleMatch ? &*each.ipv4->sample : nullptr);
      EXPECT_EQ(sampleOf(each, Family::ipv6), nullptr) << "the filter has no sample match";
   }
}

} // namespace
