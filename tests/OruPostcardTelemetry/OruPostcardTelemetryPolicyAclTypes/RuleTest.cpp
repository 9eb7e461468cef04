// Rules, their filters and their actions.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleConfig.h"
#include "Pello/Slab.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace OruPostcardTelemetry {
namespace {

using Classification::TcpFlagAndMask;
using RuleFilterTest = testing::Test;
using RuleActionTest = testing::Test;
using RuleConfigTest = testing::Test;

static_assert(Pello::Detail::slabGranules(sizeof(RuleAction)) == 2,
              "every rule has an action, which takes 32 bytes of the slab");

std::string textOf(const Kiv::Entity& entity) {
   return entity.typeData().entityText(entity);
}

constexpr const char* emptyFilter =
      "OruPostcardTelemetry::RuleFilter(source=\"0.0.0.0/0\", destination=\"0.0.0.0/0\", "
      "sportDataMaskValid=false, "
      "sportDataMask=OruPostcardTelemetry::L4PortDataMask(l4PortData=0, l4PortMask=0), "
      "dportDataMaskValid=false, "
      "dportDataMask=OruPostcardTelemetry::L4PortDataMask(l4PortData=0, l4PortMask=0), proto=1, "
      "sampleDataAndMask=null, "
      "tcpFlagAndMask=Classification::TcpFlagAndMask(tcpFlag=0, tcpFlagMask=0))";

TEST_F(RuleFilterTest, aNewOneMatchesEverything) {
   const auto filter = ruleFilterFactory();
   EXPECT_EQ(filter->source(), Orlix::IpGenPrefix{"0.0.0.0/0"});
   EXPECT_EQ(filter->destination(), Orlix::IpGenPrefix{"0.0.0.0/0"});
   EXPECT_FALSE(filter->sportDataMaskValid());
   EXPECT_FALSE(filter->dportDataMaskValid());
   EXPECT_EQ(filter->sportDataMask(), L4PortDataMask{});
   EXPECT_EQ(filter->dportDataMask(), L4PortDataMask{});
   EXPECT_EQ(filter->proto().value(), 1);
   EXPECT_EQ(filter->sampleDataAndMask(), nullptr);
   EXPECT_EQ(filter->tcpFlagAndMask(), TcpFlagAndMask{});
   EXPECT_EQ(textOf(*filter), emptyFilter);
   EXPECT_EQ(filter->publisher(), nullptr);
}

TEST_F(RuleFilterTest, theSampleMatchIsKeptUnderItsNameAndReplacedUnderAnother) {
   const auto filter = ruleFilterFactory();
   const auto first = filter->sampleDataAndMaskIs("x");
   first->dataIs(7);
   first->maskIs(8);
   first->versionIs(4);
   EXPECT_EQ(filter->sampleDataAndMaskIs("x"), first);
   EXPECT_EQ(first->data(), 7U);
   const auto second = filter->sampleDataAndMaskIs("y");
   EXPECT_NE(second, first);
   EXPECT_EQ(filter->sampleDataAndMask(), second);
   EXPECT_EQ(second->name(), "y");
   EXPECT_EQ(second->data() + second->mask() + second->version(), 0U);
   EXPECT_EQ(first->references(), 1U); // released
   EXPECT_EQ(filter->sampleDataAndMaskDel(), second);
   EXPECT_EQ(filter->sampleDataAndMask(), nullptr);
   EXPECT_EQ(filter->sampleDataAndMaskDel(), nullptr);
}

// Everything is set; `n` tells fillings apart.
Pello::Ptr<RuleFilter> fullFilter(U8 n) {
   const auto filter = ruleFilterFactory();
   filter->sourceIs(Orlix::IpGenPrefix{"10.0.0." + std::to_string(n)});
   filter->destinationIs(Orlix::IpGenPrefix{"2001:db8::" + std::to_string(n)});
   filter->sportDataMaskValidIs(true);
   filter->sportDataMaskIs({n, 1});
   filter->dportDataMaskValidIs(true);
   filter->dportDataMaskIs({n, 2});
   filter->protoIs(Protocol{n});
   const auto sample = filter->sampleDataAndMaskIs("sampleDataAndMask");
   sample->dataIs(n);
   sample->maskIs(n + 1U);
   sample->versionIs(4);
   filter->tcpFlagAndMaskIs(TcpFlagAndMask{n, n});
   return filter;
}

TEST_F(RuleFilterTest, aCopyIntoANewOneReproducesIt) {
   const auto from = fullFilter(7);
   const auto to = ruleFilterFactory();
   to->copy(*from);
   EXPECT_EQ(textOf(*to), textOf(*from));
   EXPECT_NE(to->sampleDataAndMask(), from->sampleDataAndMask());
}

TEST_F(RuleFilterTest, aCopyOverwritesWhatTheOtherSets) {
   const auto to = fullFilter(9);
   const auto sample = to->sampleDataAndMask();
   to->copy(*fullFilter(7));
   EXPECT_EQ(textOf(*to), textOf(*fullFilter(7)));
   EXPECT_EQ(to->sampleDataAndMask(), sample); // it had the name already
}

TEST_F(RuleFilterTest, aCopyKeepsPortsSampleAndFlagsThatTheOtherHasNot) {
   const auto to = fullFilter(9);
   const auto from = ruleFilterFactory();
   // Without their flag these are no match.
   from->sportDataMaskIs({1, 1});
   from->dportDataMaskIs({1, 1});
   from->protoIs(Protocol{U8{17}});
   to->copy(*from);
   const auto expected = fullFilter(9);
   expected->sourceIs(anyPrefix());
   expected->destinationIs(anyPrefix());
   expected->protoIs(Protocol{U8{17}});
   EXPECT_EQ(textOf(*to), textOf(*expected));
}

TEST_F(RuleFilterTest, eachPortIsMergedByItself) {
   const auto to = fullFilter(9);
   const auto from = ruleFilterFactory();
   from->dportDataMaskValidIs(true);
   from->dportDataMaskIs({5, 6});
   to->copy(*from);
   EXPECT_TRUE(to->sportDataMaskValid());
   EXPECT_EQ(to->sportDataMask(), (L4PortDataMask{9, 1}));
   EXPECT_EQ(to->dportDataMask(), (L4PortDataMask{5, 6}));
}

TEST_F(RuleFilterTest, flagsWithoutMaskAreCopiedWhenTheyAreNotZero) {
   const auto to = fullFilter(9);
   const auto from = ruleFilterFactory();
   from->tcpFlagAndMaskIs(TcpFlagAndMask{2, 0});
   to->copy(*from);
   EXPECT_EQ(to->tcpFlagAndMask(), (TcpFlagAndMask{2, 0}));
}

TEST_F(RuleFilterTest, theSampleMatchOfACopyHasItsOwnName) {
   const auto from = ruleFilterFactory();
   from->sampleDataAndMaskIs("theirs")->dataIs(5);
   const auto to = ruleFilterFactory();
   const auto old = to->sampleDataAndMaskIs("mine");
   to->copy(*from);
   EXPECT_NE(to->sampleDataAndMask(), old);
   EXPECT_EQ(to->sampleDataAndMask()->name(), "sampleDataAndMask");
   EXPECT_EQ(to->sampleDataAndMask()->data(), 5U);
   EXPECT_EQ(from->sampleDataAndMask()->name(), "theirs");
}

TEST_F(RuleFilterTest, aCopyOfItselfKeepsItsSample) {
   const auto filter = ruleFilterFactory();
   filter->sampleDataAndMaskIs("x")->dataIs(5);
   filter->copy(*filter);
   EXPECT_EQ(filter->sampleDataAndMask()->data(), 5U);
}

TEST_F(RuleActionTest, aNewOneDoesNothing) {
   const auto action = ruleActionFactory();
   EXPECT_EQ(action->dscpDataAndMask(), DscpDataAndMask{});
   EXPECT_EQ(action->actions(), 0U);
   EXPECT_EQ(textOf(*action), "OruPostcardTelemetry::RuleAction(dscpDataAndMask="
                              "OruPostcardTelemetry::DscpDataAndMask(dscpData=0, dscpMask=0), "
                              "action={})");
}

TEST_F(RuleActionTest, actionsAreASet) {
   const auto action = ruleActionFactory();
   action->actionDel(RuleAction::policeAction);
   EXPECT_EQ(action->actions(), 0U);
   action->actionIs(RuleAction::sampleAction);
   action->actionIs(RuleAction::sampleAction);
   EXPECT_EQ(action->actions(), 1U);
   EXPECT_TRUE(action->action(RuleAction::sampleAction));
   EXPECT_TRUE(action->actionHas(RuleAction::sampleAction));
   EXPECT_FALSE(action->action(RuleAction::setDscpAction));
   action->actionDel(RuleAction::setDscpAction);
   EXPECT_EQ(action->actions(), 1U);
   action->actionDel(RuleAction::sampleAction);
   EXPECT_FALSE(action->action(RuleAction::sampleAction));
   action->actionIs(RuleAction::setDscpAction);
   action->actionDelAll();
   EXPECT_EQ(action->actions(), 0U);
}

// The set holds bytes: a number without a name is a member like any other.
TEST_F(RuleActionTest, numbersWithoutANameAreActionsToo) {
   const auto action = ruleActionFactory();
   for (const int number : {3, 63, 64, 200, 255}) {
      const auto unnamed = static_cast<RuleAction::Action>(number);
      EXPECT_FALSE(action->action(unnamed));
      action->actionIs(unnamed);
      action->actionIs(unnamed);
      EXPECT_TRUE(action->action(unnamed)) << number;
   }
   EXPECT_EQ(action->actions(), 5U);
   const auto copy = ruleActionFactory();
   copy->copy(*action);
   EXPECT_EQ(copy->actions(), 5U);
   EXPECT_TRUE(copy->action(static_cast<RuleAction::Action>(200)));
   action->actionDel(static_cast<RuleAction::Action>(200));
   EXPECT_FALSE(action->action(static_cast<RuleAction::Action>(200)));
   EXPECT_EQ(action->actions(), 4U);
}

TEST_F(RuleActionTest, aCopyAddsActionsAndLeavesTheDscp) {
   const auto from = ruleActionFactory();
   from->actionIs(RuleAction::sampleAction);
   from->dscpDataAndMaskIs({Orlix::DscpValue{1}, 2});
   const auto to = ruleActionFactory();
   to->actionIs(RuleAction::policeAction);
   to->dscpDataAndMaskIs({Orlix::DscpValue{46}, 63});
   to->copy(*from);
   EXPECT_EQ(to->actions(), 2U);
   EXPECT_TRUE(to->action(RuleAction::sampleAction) && to->action(RuleAction::policeAction));
   EXPECT_EQ(to->dscpDataAndMask(), (DscpDataAndMask{Orlix::DscpValue{46}, 63}));
   EXPECT_EQ(from->actions(), 1U);
}

TEST_F(RuleConfigTest, aNewOneHasANameOnly) {
   const auto rule = ruleConfigFactory("rule");
   EXPECT_EQ(textOf(*rule), "OruPostcardTelemetry::RuleConfig(name=\"rule\", ruleFilter=null, "
                            "ruleAction=null)");
}

TEST_F(RuleConfigTest, partsAreMadeOnceAndHandedOver) {
   const auto rule = ruleConfigFactory("rule");
   const auto filter = rule->ruleFilterIs();
   const auto action = rule->ruleActionIs();
   EXPECT_EQ(textOf(*filter), emptyFilter);
   EXPECT_EQ(rule->ruleFilterIs(), filter);
   EXPECT_EQ(rule->ruleActionIs(), action);
   EXPECT_EQ(rule->ruleFilterDel(), filter);
   EXPECT_EQ(rule->ruleActionDel(), action);
   EXPECT_EQ(rule->ruleFilterDel(), nullptr);
   EXPECT_EQ(rule->ruleActionDel(), nullptr);
   EXPECT_NE(rule->ruleFilterIs(), filter);
}

TEST_F(RuleConfigTest, aCopyMergesPartsAndLeavesTheName) {
   const auto from = ruleConfigFactory("from");
   from->ruleFilterIs()->copy(*fullFilter(7));
   from->ruleActionIs()->actionIs(RuleAction::sampleAction);
   const auto to = ruleConfigFactory("to");
   to->copy(*from);
   EXPECT_EQ(to->name(), "to");
   EXPECT_EQ(textOf(*to->ruleFilter()), textOf(*from->ruleFilter()));
   EXPECT_EQ(textOf(*to->ruleAction()), textOf(*from->ruleAction()));
   EXPECT_NE(to->ruleFilter(), from->ruleFilter());
   const auto filter = to->ruleFilter();
   to->copy(*from);
   EXPECT_EQ(to->ruleFilter(), filter);
}

// Each type is copied from a counted reference as from the object, whether it may change it or not.
template <class T>
void expectCopiedFromReference(const Pello::Ptr<T>& from, const Pello::Ptr<T>& expected,
                               const Pello::Ptr<T>& one, const Pello::Ptr<T>& other) {
   expected->copy(*from);
   one->copy(from);
   EXPECT_EQ(textOf(*one), textOf(*expected));
   other->copy(Pello::Ptr<const T>{from});
   EXPECT_EQ(textOf(*other), textOf(*expected));
}

TEST_F(RuleConfigTest, copiesAreMadeFromCountedReferencesToo) {
   const auto rule = ruleConfigFactory("rule");
   rule->ruleFilterIs()->copy(*fullFilter(7));
   rule->ruleActionIs()->actionIs(RuleAction::policeAction);
   expectCopiedFromReference(rule, ruleConfigFactory("to"), ruleConfigFactory("to"),
                             ruleConfigFactory("to"));
   expectCopiedFromReference(rule->ruleFilter(), ruleFilterFactory(), ruleFilterFactory(),
                             ruleFilterFactory());
   expectCopiedFromReference(rule->ruleAction(), ruleActionFactory(), ruleActionFactory(),
                             ruleActionFactory());
}

TEST_F(RuleConfigTest, aCopyOfARuleWithoutPartsChangesNothing) {
   const auto to = ruleConfigFactory("to");
   to->ruleFilterIs()->protoIs(Protocol{U8{6}});
   to->copy(*ruleConfigFactory("from"));
   EXPECT_EQ(to->ruleFilter()->proto().value(), 6);
   EXPECT_EQ(to->ruleAction(), nullptr);
}

TEST_F(RuleConfigTest, copiesAreTracedOutermostFirst) {
   const auto from = ruleConfigFactory("from");
   from->ruleFilterIs();
   from->ruleActionIs();
   const auto to = ruleConfigFactory("to");
   const TestSupport::TraceCapture capture;
   to->copy(*from);
   std::vector<std::string> traces;
   for (const auto& trace : capture.traces()) {
      EXPECT_EQ(trace.level, 8U);
      EXPECT_EQ(trace.text, "");
      EXPECT_EQ(trace.source, "OruPostcardTelemetryPolicyAclTypes");
      traces.push_back(trace.className + "::" + trace.functionName);
   }
   EXPECT_EQ(traces, (std::vector<std::string>{"RuleConfig::copy", "RuleFilter::copy",
                                               "RuleAction::copy"}));
}

TEST_F(RuleConfigTest, factoriesMakeNewObjectsAndCountThem) {
   const U64 before = RuleConfig::memAllocationTracker_.live();
   const auto one = ruleConfigFactory("same");
   const auto two = ruleConfigFactory("same");
   const auto three = RuleConfigIs("same");
   EXPECT_TRUE(one != two && two != three && one != three);
   EXPECT_EQ(RuleConfig::memAllocationTracker_.live(), before + 3);
   EXPECT_EQ(RuleConfig::memAllocationTracker_.objectSize(), sizeof(RuleConfig));
   EXPECT_EQ(RuleConfig::memAllocationTracker_.typeName(), "OruPostcardTelemetry::RuleConfig");
   EXPECT_NE(ruleFilterFactory(), RuleFilterIs());
   EXPECT_NE(ruleActionFactory(), RuleActionIs());
}

TEST_F(RuleConfigTest, genericCopyUsesTheTypesOwn) {
   const auto from = ruleConfigFactory("from");
   from->ruleFilterIs()->protoIs(Protocol{U8{6}});
   from->ruleActionIs()->dscpDataAndMaskIs({Orlix::DscpValue{1}, 2});
   const auto to = ruleConfigFactory("to");
   const TestSupport::TraceCapture capture;
   to->typeData().copy(*to, *from);
   EXPECT_EQ(capture.traces().size(), 3U);
   EXPECT_EQ(to->ruleFilter()->proto().value(), 6);
   EXPECT_EQ(to->ruleAction()->dscpDataAndMask(), DscpDataAndMask{});
}

} // namespace
} // namespace OruPostcardTelemetry
