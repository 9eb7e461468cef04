// `samePolicyClasses`: every member counts, places and meaningless orders do not.
#include "postcard/policy/PolicyDiff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace Postcard::Policy {
namespace {

Prefix prefix(const char* text) {
   return {Orlix::IpGenPrefix{text}, {}};
}

Filter filter() {
   Filter filter;
   filter.source = {prefix("10.0.0.0/8"), prefix("192.0.2.0/24")};
   filter.destination = filter.source;
   filter.sourceExcept = filter.source;
   filter.destinationExcept = filter.source;
   filter.sourcePrefixSet = Name{"s", {}};
   filter.payloadLength = NumberRange{1, 2, {}};
   filter.sample = SampleMatch{1, 3, SampleField::checksum, {}};
   ProtocolMatch tcp;
   tcp.low = tcp.high = 6;
   tcp.ports.resize(2);
   tcp.ports[0].source = {{1, 2, {}}, {3, 4, {}}};
   tcp.ports[1].destination = {{5, 6, {}}, {7, 8, {}}};
   tcp.tcpFlags = {{1, 1, {}}, {2, 2, {}}};
   tcp.icmpTypes = {{1, {}}, {2, {}}};
   ProtocolMatch udp;
   udp.low = udp.high = 17;
   filter.protocols = {tcp, udp};
   return filter;
}

// Two classes in IPv4, one of them in IPv6 too.
Policy policy() {
   Policy policy;
   policy.name.text = "p";
   policy.scope = "s";
   policy.classes.resize(2);
   policy.classes[0].name.text = "a";
   policy.classes[0].priority = 10;
   policy.classes[0].actions = {{ActionKind::sample, 0, {}}, {ActionKind::setDscp, 46, {}}};
   policy.classes[0].ipv4 = filter();
   policy.classes[1].name.text = "b";
   policy.classes[1].priority = 20;
   policy.classes[1].ipv4.emplace();
   policy.classes[1].ipv6.emplace();
   return policy;
}

struct Change {
   const char* what;
   std::function<void(Policy&)> make;
};

// A change of the first class's IPv4 filter.
Change ofFilter(const char* what, const std::function<void(Filter&)>& make) {
   return {what, [make](Policy& policy) { make(*policy.classes[0].ipv4); }};
}

// A change of the protocol TCP in that filter.
Change ofTcp(const char* what, const std::function<void(ProtocolMatch&)>& make) {
   return ofFilter(what, [make](Filter& filter) { make(filter.protocols[0]); });
}

bool isSame(const Change& change, Family family = Family::ipv4) {
   Policy changed = policy();
   change.make(changed);
   const bool same = samePolicyClasses(policy(), changed, family);
   EXPECT_EQ(samePolicyClasses(changed, policy(), family), same) << change.what;
   return same;
}

TEST(PolicyDiff, everyMemberOfAPolicyAndItsClassesCounts) {
   const Change changes[] = {
         {"scope", [](Policy& p) { p.scope = ""; }},
         {"class name", [](Policy& p) { p.classes[0].name.text = "c"; }},
         {"priority", [](Policy& p) { p.classes[0].priority = 30; }},
         {"action", [](Policy& p) { p.classes[0].actions[0].kind = ActionKind::sampleAll; }},
         {"DSCP", [](Policy& p) { p.classes[0].actions[1].dscp = 45; }},
         {"no action", [](Policy& p) { p.classes[0].actions.clear(); }},
         {"no class", [](Policy& p) { p.classes.pop_back(); }},
         {"no part in the family", [](Policy& p) { p.classes[1].ipv4.reset(); }},
   };
   for (const Change& change : changes) {
      EXPECT_FALSE(isSame(change)) << change.what;
   }
}

TEST(PolicyDiff, everyMemberOfAFilterCounts) {
   const Change changes[] = {
         ofFilter("source", [](Filter& f) { f.source[0] = prefix("10.0.0.0/9"); }),
         ofFilter("source", [](Filter& f) { f.source.pop_back(); }),
         ofFilter("destination", [](Filter& f) { f.destination.pop_back(); }),
         ofFilter("source-except", [](Filter& f) { f.sourceExcept.pop_back(); }),
         ofFilter("destination-except", [](Filter& f) { f.destinationExcept.pop_back(); }),
         ofFilter("source-prefix-set", [](Filter& f) { f.sourcePrefixSet->text = "t"; }),
         ofFilter("source-prefix-set", [](Filter& f) { f.sourcePrefixSet.reset(); }),
         ofFilter("destination-prefix-set",
                  [](Filter& f) {
                     f.destinationPrefixSet = Name{"d", {}};
                  }),
         ofFilter("payload-length", [](Filter& f) { f.payloadLength->high = 3; }),
         ofFilter("ip-ttl",
                  [](Filter& f) {
                     f.ipTtl = NumberRange{1, 1, {}};
                  }),
         ofFilter("fragments", [](Filter& f) { f.fragments = true; }),
         ofFilter("ip-options", [](Filter& f) { f.ipOptions = true; }),
         ofFilter("protocol", [](Filter& f) { f.protocol = true; }),
         ofFilter("protocol-neighbor", [](Filter& f) { f.protocolNeighbor = true; }),
         ofFilter("sample data", [](Filter& f) { f.sample->data = 2; }),
         ofFilter("sample mask", [](Filter& f) { f.sample->mask = 7; }),
         ofFilter("sample field", [](Filter& f) { f.sample->field = SampleField::ipId; }),
         ofFilter("no sample", [](Filter& f) { f.sample.reset(); }),
         ofFilter("protocols", [](Filter& f) { f.protocols.pop_back(); }),
   };
   for (const Change& change : changes) {
      EXPECT_FALSE(isSame(change)) << change.what;
   }
}

TEST(PolicyDiff, everyMemberOfAProtocolCounts) {
   const Change changes[] = {
         ofTcp("low", [](ProtocolMatch& m) { m.low = 5; }),
         ofTcp("high", [](ProtocolMatch& m) { m.high = 7; }),
         ofTcp("source port", [](ProtocolMatch& m) { m.ports[0].source[0].low = 0; }),
         ofTcp("destination port", [](ProtocolMatch& m) { m.ports[1].destination.pop_back(); }),
         ofTcp("source set",
               [](ProtocolMatch& m) {
                  m.ports[0].sourceSet = Name{"s", {}};
               }),
         ofTcp("destination set",
               [](ProtocolMatch& m) {
                  m.ports[0].destinationSet = Name{"s", {}};
               }),
         ofTcp("no port entry", [](ProtocolMatch& m) { m.ports.pop_back(); }),
         ofTcp("order of port entries", [](ProtocolMatch& m) { std::ranges::reverse(m.ports); }),
         ofTcp("flags", [](ProtocolMatch& m) { m.tcpFlags[0].flags = 0; }),
         ofTcp("flag mask", [](ProtocolMatch& m) { m.tcpFlags[1].mask = 3; }),
         ofTcp("ICMP type", [](ProtocolMatch& m) { m.icmpTypes[1].type = 3; }),
   };
   for (const Change& change : changes) {
      EXPECT_FALSE(isSame(change)) << change.what;
   }
}

TEST(PolicyDiff, whatMakesNoOtherRuleDoesNotCount) {
   const Change changes[] = {
         {"nothing", [](Policy&) {}},
         {"policy name", [](Policy& p) { p.name.text = "q"; }},
         {"interfaces",
          [](Policy& p) {
             p.ipv4Interfaces = {{"Ethernet1", {}}};
          }},
         {"the other family", [](Policy& p) { p.classes[1].ipv6->fragments = true; }},
         {"order of classes", [](Policy& p) { std::ranges::reverse(p.classes); }},
         {"written priority", [](Policy& p) { p.classes[0].priorityGiven = true; }},
         {"place of a class",
          [](Policy& p) {
             p.classes[0].name.location = {7, 7};
          }},
         {"order of actions", [](Policy& p) { std::ranges::reverse(p.classes[0].actions); }},
         {"place of an action",
          [](Policy& p) {
             p.classes[0].actions[0].location = {7, 7};
          }},
         ofFilter("place of a filter",
                  [](Filter& f) {
                     f.location = {7, 7};
                  }),
         ofFilter("order of prefixes", [](Filter& f) { std::ranges::reverse(f.source); }),
         ofFilter("place of a prefix",
                  [](Filter& f) {
                     f.source[0].location = {7, 7};
                  }),
         ofFilter("place of a sample match",
                  [](Filter& f) {
                     f.sample->location = {7, 7};
                  }),
         ofFilter("order of protocols", [](Filter& f) { std::ranges::reverse(f.protocols); }),
         ofTcp("place of a protocol",
               [](ProtocolMatch& m) {
                  m.location = {7, 7};
               }),
         ofTcp("order of ports", [](ProtocolMatch& m) { std::ranges::reverse(m.ports[0].source); }),
         ofTcp("place of a port",
               [](ProtocolMatch& m) {
                  m.ports[0].source[0].location = {7, 7};
               }),
         ofTcp("order of flags", [](ProtocolMatch& m) { std::ranges::reverse(m.tcpFlags); }),
         ofTcp("order of types", [](ProtocolMatch& m) { std::ranges::reverse(m.icmpTypes); }),
   };
   for (const Change& change : changes) {
      EXPECT_TRUE(isSame(change)) << change.what;
   }
   EXPECT_FALSE(isSame({"filter of IPv6", [](Policy& p) { p.classes[1].ipv6->fragments = true; }},
                       Family::ipv6));
}

} // namespace
} // namespace Postcard::Policy
