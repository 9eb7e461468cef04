// How the actions of a class become those of its rules, and when its sample match is dropped.
#include "support/FatalLine.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/RuleText.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <map>

namespace OruPostcardTelemetry {
namespace {

using PolicyMap::ActionType;
using namespace TestSupport;
using Lines = std::vector<std::string>;

struct Row {
   const char* name;
   void (*give)(ClassRecords&);
   const char* action;
   bool sampleDropped;
};

const Row rows[] = {
      {"nothing", [](ClassRecords&) {}, "actions= dscp=0/0", true},
      {"sample", [](ClassRecords& c) { c.sample(); }, "actions=0 dscp=0/0", false},
      {"sample all", [](ClassRecords& c) { c.sampleAll(); }, "actions=0 dscp=0/0", true},
      {"both", [](ClassRecords& c) { c.sample().sampleAll(); }, "actions=0 dscp=0/0", false},
      {"DSCP 46", [](ClassRecords& c) { c.setDscp(46); }, "actions=2 dscp=46/63", true},
      {"DSCP 0", [](ClassRecords& c) { c.setDscp(0); }, "actions=2 dscp=0/63", true},
      {"DSCP 63", [](ClassRecords& c) { c.setDscp(63); }, "actions=2 dscp=63/63", true},
      {"sample and DSCP 46", [](ClassRecords& c) { c.sample().setDscp(46); },
       "actions=02 dscp=46/63", false},
      {"all three", [](ClassRecords& c) { c.sample().sampleAll().setDscp(1); },
       "actions=02 dscp=1/63", false},
      {"others",
       [](ClassRecords& c) {
          c.action(ActionType::permit).action(ActionType::police).action(ActionType::nat);
       },
       "actions= dscp=0/0", true},
};

class RuleActionOfClass : public testing::Test {
 protected:
   HelperRecords records;
   PolicyRecords policy{"p"};
   ClassRecords classMap = policy.classMap("web");
   Pello::Ptr<RuleConfig> rule{new RuleConfig{"rule"}};
};
using RuleActionOfClassDeathTest = RuleActionOfClass;

TEST_F(RuleActionOfClass, followsTheActionsOfTheClass) {
   for (const Row& row : rows) {
      ClassRecords other = policy.classMap(row.name);
      row.give(other);
      const Pello::Ptr<RuleConfig> made{new RuleConfig{"rule"}};
      records.helper->updateRuleAction(other.data(), made);
      EXPECT_EQ(actionText(*made->ruleAction()), row.action) << row.name;
      EXPECT_EQ(records.helper->ignoreSampleData(other.data()), row.sampleDropped) << row.name;
      EXPECT_EQ(made->ruleFilter(), nullptr);
   }
}

TEST_F(RuleActionOfClass, addsToAnActionThatIsThere) {
   rule->ruleActionIs()->actionIs(RuleAction::policeAction);
   classMap.sample();
   records.helper->updateRuleAction(classMap.data(), rule);
   EXPECT_EQ(actionText(*rule->ruleAction()), "actions=01 dscp=0/0");
}

// In the order of the class's collection, which carries no meaning.
TEST_F(RuleActionOfClass, tracesEachActionThatItSets) {
   classMap.sample().sampleAll().setDscp(46).action(ActionType::permit);
   const std::map<ActionType, std::string> traces{
         {ActionType::sample, "5 Setting action Sample "},
         {ActionType::sampleAll, "5 Setting action Sample All "},
         {ActionType::setDscp, "5 Setting action Dscp, Value : 0x2e, Mask : 0x3f"}};
   Lines expected{"8 ", "9 Update action for Class : web"};
   for (const auto& action : classMap.data()->action()) {
      if (const auto found = traces.find(action.key()); found != traces.end()) {
         expected.push_back(found->second);
      }
   }
   ASSERT_EQ(expected.size(), 5U);
   const TraceCapture capture;
   records.helper->updateRuleAction(classMap.data(), rule);
   EXPECT_EQ(capture.lines(), expected);
   for (const CapturedTrace& trace : capture.traces()) {
      EXPECT_EQ(trace.functionName, "updateRuleAction");
   }
}

TEST_F(RuleActionOfClass, theQuestionForSampleDataTracesItsFinding) {
   const TraceCapture capture;
   records.helper->ignoreSampleData(classMap.data());
   classMap.sample();
   records.helper->ignoreSampleData(classMap.data());
   EXPECT_EQ(capture.lines(), (Lines{"9 Class Name : web", "9 Sample Action Present : false",
                                     "9 Class Name : web", "9 Sample Action Present : true"}));
}

TEST_F(RuleActionOfClassDeathTest, aDscpActionOfAnotherClassEndsTheProcess) {
   classMap.action(ActionType::setDscp);
   EXPECT_DEATH(records.helper->updateRuleAction(classMap.data(), rule),
                fatalLine("virtual void OruPostcardTelemetry::OruPostcardPolicyAclHelper::"
                          "updateRuleAction(const PtrConst&, const Ptr&)",
                          "dscpAction"));
}

} // namespace
} // namespace OruPostcardTelemetry
