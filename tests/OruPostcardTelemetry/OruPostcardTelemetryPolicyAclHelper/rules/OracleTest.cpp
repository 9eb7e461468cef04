// Whole policies against a naive oracle: some written out, and many drawn from small sets of values
// that collide (few classes, overlapping ranges, equal flags), so that rules meet under one name.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/rules/PolicyOracle.h"
#include "support/HelperRecords.h"
#include "support/PolicyRecords.h"
#include "support/RuleText.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace OruPostcardTelemetry {
namespace {

using namespace TestSupport;
using PolicyMap::ActionType;

void buildFilter(FilterRecords filter, const Oracle::Filter& wanted) {
   if (!wanted.source.empty()) {
      filter.source(wanted.source);
   }
   if (!wanted.destination.empty()) {
      filter.destination(wanted.destination);
   }
   if (wanted.sample) {
      filter.sampleMatch(wanted.sample->first, wanted.sample->second, wanted.version);
   }
   if (wanted.fragments) {
      filter.data()->fragmentsIs();
   }
   for (const auto& [range, proto] : wanted.protocols) {
      ProtoRecords field = filter.protocol(range.first, range.second);
      for (const auto& entry : proto.ports) {
         field.ports({entry.sources.begin(), entry.sources.end()},
                     {entry.destinations.begin(), entry.destinations.end()});
      }
      for (const auto& [flag, mask] : proto.flags) {
         field.flag(static_cast<U8>(flag), static_cast<U8>(mask));
      }
   }
}

PolicyRecords build(const Oracle::Policy& wanted) {
   PolicyRecords policy{"p"};
   const auto option = wanted.family == "ipv4" ? PolicyMap::matchIpAccessGroup()
                                               : PolicyMap::matchIpv6AccessGroup();
   policy.noRules(option);
   for (const auto& [name, actions] : wanted.classes) {
      ClassRecords classMap = policy.classMap(name);
      for (const unsigned type : actions.types) {
         classMap.action(static_cast<ActionType>(type));
      }
      if (actions.dscp) {
         classMap.setDscp(static_cast<U8>(*actions.dscp));
      }
   }
   for (std::size_t i = 0; i < wanted.entries.size(); ++i) {
      ClassRecords classMap = policy.classMap(wanted.entries[i].className);
      buildFilter(classMap.filter(option, "acl" + std::to_string(i)), wanted.entries[i].filter);
   }
   return policy;
}

Oracle::Result actual(const Oracle::Policy& wanted) {
   const PolicyRecords policy = build(wanted);
   const HelperRecords records{wanted.tcpFlags};
   const auto option = wanted.family == "ipv4" ? PolicyMap::matchIpAccessGroup()
                                               : PolicyMap::matchIpv6AccessGroup();
   const auto config = records.helper->createAclConfig(policy.data(), option);
   const Kiv::String status = records.helper->updateRulesInAclConfig(policy.data(), option);
   return {status.str(), rulesByIndex(*config), rulesByName(*config)};
}

// ---------------------------------------------------------------- written out

TEST(PolicyAgainstOracle, anOracleThatIsItselfKnown) {
   Oracle::Policy policy;
   policy.classes["a"] = {{18}, 46};
   Oracle::Entry entry{"a", {}};
   entry.filter.sample = {1, 255};
   entry.filter.protocols[{6, 6}] = {{{{}, {{80, 81}}}}, {{2, 18}}};
   policy.entries = {entry};
   const Oracle::Result expected = Oracle::expectedRules(policy);
   EXPECT_EQ(
         expected.byIndex,
         std::vector<std::string>{
               "0 a-ipv4-tcp-DportData-80-DportMask-65534-tcpFlag-2-tcpFlagMask-18: 0.0.0.0/0 > "
               "0.0.0.0/0 proto=6 dport=80/65534 flags=2/18 sample=1/255/0 actions=02 dscp=0/0"});
   EXPECT_EQ(actual(policy).byIndex, expected.byIndex);
}

// A class that matches twice, first as it stands and then by its ports: the rule of the first time
// is taken as the copy of the second, stays at its index and loses its name.
TEST(PolicyAgainstOracle, aClassTwiceMeetsItsOwnRules) {
   Oracle::Policy policy;
   policy.classes["a"] = {{18}, std::nullopt};
   Oracle::Entry plain{"a", {}};
   plain.filter.sample = {1, 3};
   Oracle::Entry ports{"a", {}};
   ports.filter.source = "10.0.0.0/8";
   ports.filter.protocols[{6, 6}].ports = {{{{7, 7}}, {}}};
   policy.entries = {plain, ports};
   const Oracle::Result got = actual(policy);
   EXPECT_EQ(got.byIndex,
             (std::vector<std::string>{
                   "0 (without name) a-ipv4-tcp: 10.0.0.0/8 > 0.0.0.0/0 proto=6 sample=1/3/0 "
                   "actions=0 dscp=0/0",
                   "1 a-ipv4-udp: 0.0.0.0/0 > 0.0.0.0/0 proto=17 sample=1/3/0 actions=0 dscp=0/0",
                   "2 a-ipv4-tcp-SportData-7-SportMask-65535: 10.0.0.0/8 > 0.0.0.0/0 proto=6 "
                   "sport=7/65535 sample=1/3/0 actions=0 dscp=0/0"}));
   EXPECT_EQ(got.byIndex, Oracle::expectedRules(policy).byIndex);
}

TEST(PolicyAgainstOracle, theSameClassTwiceIsOneRuleUnderTwoIndexes) {
   Oracle::Policy policy;
   policy.classes["a"] = {};
   policy.entries = {{"a", {}}, {"a", {}}};
   const Oracle::Result got = actual(policy);
   EXPECT_EQ(got.byIndex.size(), 4U);
   EXPECT_EQ(got.byName.size(), 2U);
   EXPECT_EQ(got.byIndex, Oracle::expectedRules(policy).byIndex);
}

// Classes that are named like another's rules do not meet them: every rule's name carries the
// family behind the class's name.
TEST(PolicyAgainstOracle, aClassNamedLikeAnothersRulesIsSeparate) {
   Oracle::Policy policy;
   policy.classes = {{"a", {{18}, 1}}, {"a-ipv4-tcp", {{19}, 2}}, {"a-ipv4", {}}};
   policy.entries = {{"a", {}}, {"a-ipv4-tcp", {}}, {"a-ipv4", {}}, {"a", {}}};
   const Oracle::Result got = actual(policy);
   EXPECT_EQ(got.byIndex[2].substr(0, 26), "2 a-ipv4-tcp-ipv4-tcp: 0.0");
   EXPECT_EQ(got.byName.size(), 6U);
   EXPECT_EQ(got.byIndex, Oracle::expectedRules(policy).byIndex);
   EXPECT_EQ(got.byName, Oracle::expectedRules(policy).byName);
}

TEST(PolicyAgainstOracle, theWidestRangesGiveNineHundredRules) {
   Oracle::Policy policy;
   policy.classes["a"] = {};
   Oracle::Entry entry{"a", {}};
   entry.filter.protocols[{17, 17}].ports = {{{{1, 65534}}, {{1, 65534}}}};
   policy.entries = {entry};
   const Oracle::Result got = actual(policy);
   EXPECT_EQ(got.byIndex.size(), 900U);
   EXPECT_EQ(got.byIndex, Oracle::expectedRules(policy).byIndex);
   EXPECT_EQ(got.byName, Oracle::expectedRules(policy).byName);
}

// ---------------------------------------------------------------- drawn

template <class T>
T oneOf(std::initializer_list<T> values) {
   return *rc::gen::elementOf(std::vector<T>{values});
}
// From 0 to `most`, all alike whatever size is asked for.
int number(int most) {
   return *rc::gen::resize(rc::kNominalSize, rc::gen::inRange(0, most + 1));
}
bool oneIn(int count) {
   return number(count - 1) == 0;
}

std::set<Oracle::Range> drawRanges() {
   std::set<Oracle::Range> ranges;
   for (int count = number(2); count > 0; --count) {
      const unsigned low = oneOf({0U, 1U, 2U, 80U, 65534U, 65535U});
      ranges.emplace(low, std::min(65535U, low + oneOf({0U, 1U, 5U, 65535U})));
   }
   return ranges;
}

Oracle::Proto drawProto() {
   Oracle::Proto proto;
   for (int count = number(2); count > 0; --count) {
      proto.ports.push_back({drawRanges(), drawRanges()});
   }
   for (int count = number(2); count > 0; --count) {
      proto.flags.emplace(oneOf({0U, 2U, 18U}), oneOf({1U, 18U, 255U}));
   }
   return proto;
}

Oracle::Filter drawFilter() {
   Oracle::Filter filter;
   filter.source = oneOf<std::string>({"", "10.0.0.0/8", "2001:db8::/32"});
   filter.destination = oneOf<std::string>({"", "0.0.0.0/0", "192.0.2.0/24"});
   if (oneIn(2)) {
      filter.sample.emplace(oneOf({0U, 1U, 0xffffU}), oneOf({1U, 0xffU}));
      filter.version = oneOf({0U, 4U});
   }
   for (const Oracle::Range& range : {Oracle::Range{6, 6}, Oracle::Range{17, 17}}) {
      if (oneIn(2)) {
         filter.protocols[range] = drawProto();
         // Flags of UDP are refused by most hardware; not too often here.
         if (range.first == 17 && !oneIn(8)) {
            filter.protocols[range].flags.clear();
         }
      }
   }
   if (oneIn(12)) {
      filter.protocols[oneOf<Oracle::Range>({{1, 1}, {6, 17}, {18, 18}})] = drawProto();
   }
   filter.fragments = oneIn(20);
   return filter;
}

Oracle::Policy drawPolicy() {
   Oracle::Policy policy;
   policy.family = oneOf<std::string>({"ipv4", "ipv6"});
   policy.tcpFlags = oneIn(2);
   for (const char* name : {"a", "a-ipv4", "a-ipv4-tcp"}) {
      Oracle::ClassActions& actions = policy.classes[name];
      for (const unsigned type : {18U, 19U}) {
         if (oneIn(2)) {
            actions.types.insert(type);
         }
      }
      if (oneIn(2)) {
         actions.dscp = oneOf({0U, 46U});
      }
      if (oneIn(20)) {
         actions.types.insert(3);
      }
   }
   for (int count = oneIn(20) ? 0 : 1 + number(3); count > 0; --count) {
      policy.entries.push_back(
            {oneOf<std::string>({"a", "a", "a-ipv4", "a-ipv4-tcp"}), drawFilter()});
   }
   return policy;
}

RC_GTEST_PROP(PolicyAgainstOracle, drawnPoliciesBecomeWhatTheOracleSays, ()) {
   for (int policies = 0; policies < 5; ++policies) {
      const Oracle::Policy policy = drawPolicy();
      const Oracle::Result got = actual(policy);
      const Oracle::Result expected = Oracle::expectedRules(policy);
      RC_ASSERT(got.status == expected.status);
      RC_ASSERT(got.byIndex == expected.byIndex);
      RC_ASSERT(got.byName == expected.byName);
   }
}

} // namespace
} // namespace OruPostcardTelemetry
