// One rule: its filter, its action, and how a rule is copied into another one.

#include "Check.h"
#include "Guesses.h"
#include "OruPostcardTelemetry/L4PortDataMask.h"
#include "OruPostcardTelemetry/RuleAction.h"
#include "OruPostcardTelemetry/RuleConfig.h"
#include "OruPostcardTelemetry/RuleFilter.h"

#include <set>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

void newRule() {
   RuleConfig::Ptr const rule{ruleConfigFactory("web-tcp")};
   CHECK_EQ(text(rule->name()), "web-tcp");
   CHECK(!rule->ruleFilter());
   CHECK(!rule->ruleAction());
   CHECK(!rule->ruleFilterDel());
   CHECK(!rule->ruleActionDel());
   // The factory makes, it never finds.
   CHECK(!same(rule, ruleConfigFactory("web-tcp")));
   CHECK_EQ(text(createdRule("dns-udp")->name()), "dns-udp");
   CHECK(createdFilter());
   CHECK(createdAction());
}

void children() {
   RuleConfig::Ptr const rule{ruleConfigFactory("r")};
   RuleFilter::Ptr const filter{rule->ruleFilterIs()};
   CHECK(same(filter, rule->ruleFilterIs()));
   CHECK(same(filter, rule->ruleFilter()));
   CHECK(same(filter, rule->ruleFilterDel()));
   CHECK(!rule->ruleFilter());
   CHECK(!same(filter, rule->ruleFilterIs()));
   RuleAction::Ptr const action{rule->ruleActionIs()};
   CHECK(same(action, rule->ruleActionIs()));
   CHECK(same(action, rule->ruleActionDel()));
   CHECK(!rule->ruleAction());
}

void newFilter() {
   RuleFilter::Ptr const filter{ruleFilterFactory()};
   CHECK(filter->source() == prefix("0.0.0.0/0"));
   CHECK(filter->destination() == prefix("0.0.0.0/0"));
   CHECK(!filter->sportDataMaskValid());
   CHECK(!filter->dportDataMaskValid());
   CHECK(filter->sportDataMask().isEq(L4PortDataMask{}));
   CHECK(filter->dportDataMask().isEq(L4PortDataMask{}));
   CHECK_EQ(filter->proto().value(), 1);
   CHECK(!filter->sampleDataAndMask());
   CHECK(filter->tcpFlagAndMask() == tcpFlags(0, 0));
}

void filterSetters() {
   RuleFilter::Ptr const filter{ruleFilterFactory()};
   filter->sourceIs(prefix("10.0.0.0/8"));
   filter->destinationIs(prefix("192.168.1.0/24"));
   filter->sportDataMaskValidIs(true);
   filter->sportDataMaskIs(L4PortDataMask{80, 0xffff});
   filter->dportDataMaskValidIs(true);
   filter->dportDataMaskIs(L4PortDataMask{1024, 0xfc00});
   filter->protoIs(Protocol{17});
   filter->tcpFlagAndMaskIs(tcpFlags(2, 18));
   CHECK(filter->source() == prefix("10.0.0.0/8"));
   CHECK_EQ(text(filter->destination().stringValue()), "192.168.1.0/24");
   CHECK(filter->sportDataMaskValid());
   CHECK_EQ(filter->sportDataMask().l4PortData(), 80);
   CHECK(filter->dportDataMaskValid());
   CHECK_EQ(filter->dportDataMask().l4PortMask(), 0xfc00);
   CHECK(filter->proto().isEq(Protocol{17}));
   CHECK_EQ(filter->tcpFlagAndMask().tcpFlagMask().value(), 18);
   CHECK_EQ(filter->tcpFlagAndMask().tcpFlag().value(), 2);
}

void sampleChild() {
   RuleFilter::Ptr const filter{ruleFilterFactory()};
   const auto x = filter->sampleDataAndMaskIs("x");
   x->dataIs(5);
   x->maskIs(7);
   x->versionIs(4);
   CHECK(same(x, filter->sampleDataAndMaskIs("x")));
   CHECK_EQ(filter->sampleDataAndMask()->data(), 5);
   const auto y = filter->sampleDataAndMaskIs("y");
   CHECK(!same(x, y));
   CHECK_EQ(y->data(), 0);
   CHECK_EQ(y->mask(), 0);
   CHECK_EQ(y->version(), 0);
   // Whoever still holds the old child keeps it as it was.
   CHECK_EQ(x->mask(), 7);
   CHECK(same(y, filter->sampleDataAndMaskDel()));
   CHECK(!filter->sampleDataAndMask());
   CHECK(!filter->sampleDataAndMaskDel());
}

void actionSet() {
   RuleAction::Ptr const action{ruleActionFactory()};
   CHECK(action->dscpDataAndMask().isEq(DscpDataAndMask{0, 0}));
   CHECK(!action->action(RuleAction::sampleAction));
   action->actionIs(RuleAction::sampleAction);
   action->actionIs(RuleAction::sampleAction);
   CHECK(action->action(RuleAction::sampleAction));
   CHECK_EQ(count(actions(*action)), 1);
   action->actionDel(RuleAction::policeAction);
   CHECK_EQ(count(actions(*action)), 1);
   action->actionIs(RuleAction::setDscpAction);
   action->actionDel(RuleAction::sampleAction);
   CHECK(!action->action(RuleAction::sampleAction));
   CHECK(action->action(RuleAction::setDscpAction));
   action->actionDelAll();
   CHECK_EQ(count(actions(*action)), 0);
}

// The set holds a byte; a number without a name is a member like any other.
void unnamedAction() {
   const auto unnamed = static_cast<RuleAction::Action>(200);
   RuleAction::Ptr const action{ruleActionFactory()};
   action->actionIs(unnamed);
   CHECK(action->action(unnamed));
   CHECK(!action->action(RuleAction::sampleAction));
   action->actionIs(RuleAction::policeAction);
   std::set<int> numbers{};
   for (const auto one : actions(*action)) {
      numbers.insert(static_cast<int>(one));
   }
   CHECK(numbers == std::set<int>{1, 200});
   action->actionDel(unnamed);
   CHECK(!action->action(unnamed));
}

RuleFilter::Ptr fullFilter() {
   RuleFilter::Ptr const filter{ruleFilterFactory()};
   filter->sourceIs(prefix("10.0.0.0/8"));
   filter->destinationIs(prefix("192.168.1.0/24"));
   filter->sportDataMaskValidIs(true);
   filter->sportDataMaskIs(L4PortDataMask{80, 0xffff});
   filter->protoIs(Protocol{6});
   filter->tcpFlagAndMaskIs(tcpFlags(2, 18));
   const auto child = filter->sampleDataAndMaskIs("named otherwise");
   child->dataIs(5);
   child->maskIs(7);
   child->versionIs(4);
   return filter;
}

void copyIntoFreshFilter() {
   RuleFilter::Ptr const from{fullFilter()};
   RuleFilter::Ptr const to{ruleFilterFactory()};
   to->copy(*from);
   CHECK(to->source() == from->source());
   CHECK(to->destination() == from->destination());
   CHECK(to->sportDataMaskValid());
   CHECK(to->sportDataMask().isEq(L4PortDataMask{80, 0xffff}));
   CHECK(!to->dportDataMaskValid());
   CHECK_EQ(to->proto().value(), 6);
   CHECK(to->tcpFlagAndMask() == tcpFlags(2, 18));
   CHECK(!same(to->sampleDataAndMask(), from->sampleDataAndMask()));
   CHECK_EQ(to->sampleDataAndMask()->data(), 5);
   CHECK_EQ(to->sampleDataAndMask()->mask(), 7);
   CHECK_EQ(to->sampleDataAndMask()->version(), 4);
   // A copied child always gets one and the same name.
   CHECK(same(to->sampleDataAndMask(), to->sampleDataAndMaskIs("sampleDataAndMask")));
}

void copyKeepsWhatOtherLeavesOut() {
   RuleFilter::Ptr const to{fullFilter()};
   RuleFilter::Ptr const from{ruleFilterFactory()};
   from->dportDataMaskValidIs(true);
   from->dportDataMaskIs(L4PortDataMask{53, 0xffff});
   const auto child = to->sampleDataAndMask();
   to->copy(RuleFilter::PtrConst{from});
   CHECK(to->sportDataMaskValid());
   CHECK(to->sportDataMask().isEq(L4PortDataMask{80, 0xffff}));
   CHECK(to->dportDataMaskValid());
   CHECK(to->dportDataMask().isEq(L4PortDataMask{53, 0xffff}));
   CHECK(same(child, to->sampleDataAndMask()));
   CHECK(to->tcpFlagAndMask() == tcpFlags(2, 18));
   // Prefixes and protocol are copied whatever they are.
   CHECK(to->source() == prefix("0.0.0.0/0"));
   CHECK_EQ(to->proto().value(), 1);
}

void copyOfActions() {
   RuleAction::Ptr const from{ruleActionFactory()};
   from->actionIs(RuleAction::sampleAction);
   from->dscpDataAndMaskIs(DscpDataAndMask{46, 63});
   RuleAction::Ptr const to{ruleActionFactory()};
   to->actionIs(RuleAction::policeAction);
   to->dscpDataAndMaskIs(DscpDataAndMask{10, 63});
   to->copy(*from);
   CHECK(to->action(RuleAction::sampleAction));
   CHECK(to->action(RuleAction::policeAction));
   CHECK_EQ(count(actions(*to)), 2);
   CHECK(to->dscpDataAndMask().isEq(DscpDataAndMask{10, 63}));
   RuleAction::Ptr const fresh{ruleActionFactory()};
   fresh->copy(to);
   CHECK_EQ(count(actions(*fresh)), 2);
   CHECK(fresh->dscpDataAndMask().isEq(DscpDataAndMask{0, 0}));
}

void copyOfRules() {
   RuleConfig::Ptr const from{ruleConfigFactory("from")};
   from->ruleFilterIs()->protoIs(Protocol{17});
   from->ruleActionIs()->actionIs(RuleAction::sampleAction);
   RuleConfig::Ptr const byObject{ruleConfigFactory("to")};
   byObject->copy(*from);
   CHECK_EQ(text(byObject->name()), "to");
   CHECK(!same(byObject->ruleFilter(), from->ruleFilter()));
   CHECK_EQ(byObject->ruleFilter()->proto().value(), 17);
   CHECK(byObject->ruleAction()->action(RuleAction::sampleAction));
   RuleConfig::Ptr const byReference{ruleConfigFactory("too")};
   byReference->copy(from);
   CHECK_EQ(byReference->ruleFilter()->proto().value(), 17);
   CHECK(!same(byReference->ruleAction(), from->ruleAction()));
}

void ruleEntities() {
   newRule();
   children();
   newFilter();
   filterSetters();
   sampleChild();
   actionSet();
   unnamedAction();
   copyIntoFreshFilter();
   copyKeepsWhatOtherLeavesOut();
   copyOfActions();
   copyOfRules();
}

const Subject subject{"rule entities", ruleEntities};

} // namespace
