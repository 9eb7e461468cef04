// The exact types of functions and members, and what C++ programmers write without looking it up.

#include "Bench.h"
#include "Check.h"

#include <cstdint>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Config = PostcardTelemetryAclConfig;
using Event = PostcardTelemetryRulesClientSmEvent;
using Helper = OruPostcardPolicyAclHelper;
using PolicyRef = Pello::Ptr<const PolicyData>;
using Request = PostcardTelemetryRulesClientSmConfig;
using Status = PostcardTelemetryAclConfigStatus;

// Free functions: taking their address picks the one with exactly this type.
using NamePort = Kiv::String (*)(Pello::String, Pello::String, L4Port);
using NameFamily = Pello::String (*)(Pello::String, Acl::AclType);
using ToFamily = Acl::AclType (*)(MatchOption);
constexpr NamePort namePort{&ruleNameL4Port};
constexpr NameFamily nameAcl{&aclName};
constexpr NameFamily nameRule{&ruleName};
constexpr ToFamily toFamily{&matchOptionToAclType};

// Members of the data model.
using SetStatus = void (Status::*)(unsigned int, const Pello::String&);
using SetRule = void (Config::*)(unsigned int, const Pello::Ptr<RuleConfig>&);
using CountUp = unsigned int (Request::*)(unsigned int);
constexpr SetStatus setStatus{&Status::statusInOrderIs};
constexpr SetRule setRule{&Config::ruleByIndexIs};
constexpr CountUp countUp{&Request::kickRequestInc};

// Operations of the helper.
using OfPolicy = Kiv::String (Helper::*)(const PolicyRef&, MatchOption);
using MakeConfig = Config::Ptr (Helper::*)(const PolicyRef&, MatchOption);
using DropConfig = void (Helper::*)(const PolicyRef&, MatchOption);
using NameConfig = Pello::String (Helper::*)(const PolicyRef&, MatchOption);
using BindIntf = void (Helper::*)(const Config::Ptr&, Orlix::IntfId, bool);
using Report = Kiv::String (Helper::*)(PostcardTelemetryRulesClientSmStatusType,
                                       const Pello::String&);
using Post = void (Helper::*)(Event, const Config::Ptr&, Orlix::IntfId);
using Show = void (Helper::*)(unsigned int) const;
using Build = std::uint32_t (Helper::*)(const PolicyMap::AclRuleKey&, const PolicyRef&,
                                        const Pello::Ptr<const ClassData>&, const Config::Ptr&,
                                        std::uint32_t);
using Act = void (Helper::*)(const Pello::Ptr<const PolicyMap::ClassMapSmCommonData>&,
                             const Pello::Ptr<RuleConfig>&);
using Ignore = bool (Helper::*)(const Pello::Ptr<const PolicyMap::ClassMapSmCommonData>&);
[[maybe_unused]] constexpr OfPolicy createOperation{&Helper::createPolicy};
[[maybe_unused]] constexpr OfPolicy commitOperation{&Helper::commitPolicy};
[[maybe_unused]] constexpr OfPolicy recreateOperation{&Helper::recreatePolicy};
[[maybe_unused]] constexpr OfPolicy deleteOperation{&Helper::deletePolicy};
[[maybe_unused]] constexpr OfPolicy updateRules{&Helper::updateRulesInAclConfig};
[[maybe_unused]] constexpr MakeConfig makeConfig{&Helper::createAclConfig};
[[maybe_unused]] constexpr DropConfig dropConfig{&Helper::deleteAclConfig};
[[maybe_unused]] constexpr NameConfig nameConfig{&Helper::getAclConfigKey};
[[maybe_unused]] constexpr BindIntf bindIntf{&Helper::updateIntfInAclConfig};
[[maybe_unused]] constexpr Report report{&Helper::updatePolicyStatus};
[[maybe_unused]] constexpr Post post{&Helper::updateRulesClientConfig};
[[maybe_unused]] constexpr Show show{&Helper::showPostcardAcl};
[[maybe_unused]] constexpr Build build{&Helper::addRules};
[[maybe_unused]] constexpr Act act{&Helper::updateRuleAction};
[[maybe_unused]] constexpr Ignore ignore{&Helper::ignoreSampleData};

static_assert(std::is_polymorphic_v<Helper>);
static_assert(std::has_virtual_destructor_v<Helper>);
static_assert(std::is_constructible_v<Helper, Request::Ptr, Pello::Ptr<const Capability>>);
static_assert(std::is_constructible_v<RuleConfig, Pello::String>);
static_assert(std::is_constructible_v<PolicyData, PolicyMap::PolicyMapSmKey>);
static_assert(!std::is_convertible_v<DscpDataAndMask, int>);
static_assert(!std::is_convertible_v<PolicyRef, Pello::Ptr<PolicyData>>);

void functionTypes() {
   CHECK_EQ(text(namePort("a", "SportData", L4Port{5})), "a-SportData-5");
   CHECK_EQ(text(nameAcl("p1", toFamily(ipv4()))), withFamily("p1", ipv4()));
   CHECK_EQ(text(nameRule("web", toFamily(ipv6()))), withFamily("web", ipv6()));
}

void memberTypes() {
   Status::Ptr const status{postcardTelemetryAclConfigStatusFactory()};
   ((*status).*setStatus)(3, "three");
   CHECK_EQ(text(status->statusInOrder(3)), "three");
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   RuleConfig::Ptr const rule{ruleConfigFactory("r")};
   ((*config).*setRule)(4, rule);
   CHECK(same(rule, config->ruleByIndex(4)));
   Request::Ptr const request{postcardTelemetryRulesClientSmConfigFactory()};
   CHECK_EQ(((*request).*countUp)(2), 2);
}

void rangesOverSets() {
   RuleAction::Ptr const action{ruleActionFactory()};
   action->actionIs(RuleAction::sampleAction);
   action->actionIs(RuleAction::setDscpAction);
   std::set<RuleAction::Action> seen{};
   for (RuleAction::Action const one : actions(*action)) {
      seen.insert(one);
   }
   CHECK(seen == std::set<RuleAction::Action>{RuleAction::sampleAction, RuleAction::setDscpAction});
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   config->policyIntfIs(intf("Ethernet1"));
   unsigned turns{0};
   for (Orlix::IntfId const one : interfaces(*config)) {
      CHECK_EQ(text(one.stringValue()), "Ethernet1");
      ++turns;
   }
   CHECK_EQ(turns, 1);
}

void bindingsOverMaps() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   config->ruleByIndexIs(1, config->ruleByNameIs("one"));
   config->ruleByIndexIs(2, config->ruleByNameIs("two"));
   std::set<std::string> named{};
   for (const auto& [name, rule] : rulesByName(*config)) {
      CHECK_EQ(text(name), text(rule->name()));
      named.insert(text(name));
   }
   CHECK(named == std::set<std::string>{"one", "two"});
   std::string numbered{};
   for (const auto& [index, rule] : rulesByIndex(*config)) {
      numbered += std::to_string(index) + text(rule->name());
   }
   CHECK_EQ(numbered, "1one2two");
   const Bench bench{};
   bench.helper->aclConfigCollIs("a");
   for (const auto& [key, held] : configs(*bench.helper)) {
      CHECK_EQ(text(key), "a");
      CHECK(same(held, bench.helper->aclConfigColl("a")));
   }
}

void steppingIterators() {
   Config::Ptr const config{postcardTelemetryAclConfigFactory("p1-acl")};
   config->ruleByIndexIs(3, ruleConfigFactory("three"));
   config->ruleByIndexIs(8, ruleConfigFactory("eight"));
   auto it = rulesByIndex(*config).begin();
   const auto before = it++;
   CHECK(before == rulesByIndex(*config).begin());
   CHECK(it != before);
   const auto& [index, rule] = *it;
   CHECK_EQ(index, 8);
   CHECK_EQ(text(rule->name()), "eight");
   ++it;
   CHECK(it == rulesByIndex(*config).end());
}

void comparisonsOfValues() {
   CHECK(DscpDataAndMask{} == DscpDataAndMask(0, 0));
   CHECK(DscpDataAndMask{10, 63} != DscpDataAndMask{10, 62});
   CHECK(L4PortDataMask{80, 0xffff} == L4PortDataMask{80, 0xffff});
   CHECK(L4Port{80} == L4Port{80});
   CHECK(Protocol{6} != Protocol{17});
   const PostcardTelemetryPolicyKey key{{"p1", "g1"}, ipv4()};
   CHECK(key == PostcardTelemetryPolicyKey{{"p1", "g1"}, ipv4()});
   CHECK(key != PostcardTelemetryPolicyKey{});
}

// Records are made with `new` or with their factory, whichever comes to hand.
void recordsAsPeopleWriteThem() {
   const auto policy = adopt(new PolicyData({"p1", "g1"}));
   CHECK(keyOf(policy) == PolicyMap::PolicyMapSmKey("p1", "g1"));
   CHECK(keyOf(makePolicy("p1", "g1")) == keyOf(policy));
   attachIntf4(policy, "Ethernet1");
   attachIntf4(policy, "Ethernet2");
   CHECK_EQ(intf4Count(policy), 2);
   CHECK_EQ(intf6Count(policy), 0);
   const auto rule = adopt(new RuleConfig{"web"});
   CHECK_EQ(text(rule->name()), "web");
   const auto config = adopt(new Config{"p1-acl"});
   CHECK_EQ(text(config->aclConfigKey()), "p1-acl");
   Orlix::IntfId const none{Pello::String{}};
   CHECK(none == intf(""));
   CHECK(!(none == intf("Ethernet1")));
}

void conveniences() {
   functionTypes();
   memberTypes();
   rangesOverSets();
   bindingsOverMaps();
   steppingIterators();
   comparisonsOfValues();
   recordsAsPeopleWriteThem();
}

const Subject subject{"conveniences", conveniences};

} // namespace
