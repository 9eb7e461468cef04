// Origins: every entry of every random policy has exactly one, whose ranges contain what the rule
// matches; and an ACL that the policy did not become is an error that names the entry.
#include "postcard/host/RuleOrigin.h"

#include "postcard/analysis/CompiledAcl.h"
#include "postcard/analysis/SmallWorld.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/report/RuleList.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>

namespace {

using namespace AnalysisTest;
using namespace OruPostcardTelemetry;
using Policy::Family;
using Postcard::Host::CompiledPolicy;
using Postcard::Host::forEachRule;
using Postcard::Host::OriginError;
using Postcard::Host::RuleOrigin;

// ---- Every entry of random policies ----

// Bounds that need many blocks, and bounds at which blocks of several ranges are equal.
void widenPorts(Random& random, Policy::Policy& policy, Family family) {
   for (Policy::Class& each : policy.classes) {
      auto& filter = family == Family::ipv4 ? each.ipv4 : each.ipv6;
      for (Policy::ProtocolMatch& match : filter->protocols) {
         for (Policy::PortEntry& entry : match.ports) {
            for (auto* ranges : {&entry.source, &entry.destination}) {
               if (!ranges->empty() && chance(random, 50)) {
                  ranges->back().high = pick<U16>(random, {7, 1000, 65534, 65535});
               }
            }
         }
      }
   }
}

bool contains(const Policy::NumberRange* range, bool valid, const L4PortDataMask& ports) {
   if (range == nullptr || !valid) {
      return (range == nullptr) == !valid;
   }
   const unsigned last = ports.l4PortData() | (~ports.l4PortMask() & 0xffffU);
   return range->low <= ports.l4PortData() && last <= range->high;
}

// Reads nothing but the rule and the policy.
void expectOrigin(const RuleConfig& rule, const RuleOrigin& origin, Family family) {
   const RuleFilter& filter = *rule.ruleFilter();
   EXPECT_EQ(rule.name().view().substr(0, origin.which->name.text.size() + 1),
             origin.which->name.text + "-");
   EXPECT_EQ(filter.proto().value(), origin.protocol);
   EXPECT_TRUE(contains(origin.source, filter.sportDataMaskValid(), filter.sportDataMask()));
   EXPECT_TRUE(contains(origin.destination, filter.dportDataMaskValid(), filter.dportDataMask()));
   const auto& flags = filter.tcpFlagAndMask();
   EXPECT_EQ(flags.tcpFlagMask().value(), origin.flags == nullptr ? 0 : origin.flags->mask);
   EXPECT_EQ(flags.tcpFlag().value(), origin.flags == nullptr ? 0 : origin.flags->flags);
   const Policy::Filter& from = *origin.which->filter(family);
   if (origin.match == nullptr) {
      EXPECT_TRUE(from.protocols.empty());
   } else {
      EXPECT_TRUE(origin.match >= from.protocols.data() &&
                  origin.match < from.protocols.data() + from.protocols.size());
      EXPECT_EQ(origin.match->low, origin.protocol);
      EXPECT_EQ(origin.entry, origin.entryNumber == 0
                                    ? nullptr
                                    : &origin.match->ports.at(origin.entryNumber - 1));
   }
}

TEST(RuleOrigin, everyEntryOfRandomPoliciesHasExactlyOne) {
   Random random{11};
   std::size_t entries = 0;
   std::size_t withPorts = 0;
   for (int round = 0; round < 500; ++round) {
      const Draw draw{chance(random, 50) ? Family::ipv4 : Family::ipv6, chance(random, 70)};
      auto policy = randomPolicy(random, draw);
      widenPorts(random, policy, draw.family);
      const CompiledAcl compiled{policy, draw.family, draw.tcpFlags};
      ASSERT_EQ(compiled.message(), "");
      U32 next = 0;
      forEachRule({policy, draw.family, draw.tcpFlags, compiled.acl()},
                  [&](U32 index, const RuleConfig& rule, const RuleOrigin& origin) {
                     EXPECT_EQ(index, next++);
                     EXPECT_EQ(&rule, compiled.acl().ruleByIndex(index).get());
                     expectOrigin(rule, origin, draw.family);
                     withPorts += origin.entry == nullptr ? 0 : 1;
                  });
      EXPECT_EQ(next, compiled.acl().ruleByIndexs());
      entries += next;
      ASSERT_FALSE(HasFailure()) << "round " << round;
   }
   EXPECT_GT(entries, 5'000U);
   EXPECT_GT(withPorts, entries / 2);
}

// ---- Another ACL than that of the policy ----

const std::string file = R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
      - name: web
        actions: [sample]
        ipv4:
          source: [10.0.0.0/8]
          sample: { rate: 256 }
          protocols:
            - { protocol: tcp, ports: [{ destination: [8000-8002] }],
                tcp-flags: [{ flags: [syn], mask: [syn, ack] }] }
      - { name: rest, actions: [sample-all], ipv4: {} }
)";

const Policy::Policy& policyOfFile() {
   static const auto loaded = Postcard::Policy::File::parsePolicyText(file, "p.yaml");
   return loaded.policyFile->policies.front();
}

struct Row {
   const char* name;
   std::function<void(CompiledAcl::Config&)> change;
   std::string message;
};

RuleFilter& filterAt(CompiledAcl::Config& acl, U32 index) {
   return *acl.ruleByIndex(index)->ruleFilter();
}

const std::string web = "class 'web', from 11:40 entry 1 dport 8000-8002 flags 0x2/0x12";
const std::string webRule = "p-ipv4: the rule 'web-ipv4-tcp-DportData-8000-DportMask-65534-tcpFlag-"
                            "2-tcpFlagMask-18' at index 0 is not what the policy makes: ";

const std::vector<Row> rows = {
      {"a port",
       [](auto& acl) {
          filterAt(acl, 0).dportDataMaskIs({8000, 0xffff});
       },
       webRule + "it was to come from " + web},
      {"a port that does not count",
       [](auto& acl) { filterAt(acl, 0).dportDataMaskValidIs(false); },
       webRule + "it was to come from " + web},
      {"a protocol", [](auto& acl) { filterAt(acl, 0).protoIs(Protocol{17}); },
       webRule + "it was to come from " + web},
      {"a prefix", [](auto& acl) { filterAt(acl, 0).sourceIs(Orlix::IpGenPrefix{"10.0.0.0/9"}); },
       webRule + "it was to come from " + web},
      {"a flag",
       [](auto& acl) {
          filterAt(acl, 0).tcpFlagAndMaskIs({16, 18});
       },
       webRule + "it was to come from " + web},
      {"sample bits", [](auto& acl) { filterAt(acl, 0).sampleDataAndMask()->maskIs(0x7f); },
       webRule + "it was to come from " + web},
      {"the order of two rules of a class",
       [](auto& acl) {
          const auto first = acl.ruleByIndex(0);
          acl.ruleByIndexIs(0, acl.ruleByIndex(1));
          acl.ruleByIndexIs(1, first);
       },
       "p-ipv4: the rule 'web-ipv4-tcp-DportData-8002-DportMask-65535-tcpFlag-2-tcpFlagMask-18' at "
       "index 0 is not what the policy makes: it was to come from " +
             web},
      {"a class that lacks a rule", [](auto& acl) { acl.ruleByIndexIs(1, nullptr); },
       "p-ipv4: the rule 'rest-ipv4-tcp' at index 2 is not what the policy makes: it was to come "
       "from " +
             web},
      {"a missing last rule", [](auto& acl) { acl.ruleByIndexIs(3, nullptr); },
       "p-ipv4: entry 3 is missing: class 'rest', from 13:17"},
      {"a rule too many", [](auto& acl) { acl.ruleByIndexIs(4, acl.ruleByIndex(3)); },
       "p-ipv4: the rule 'rest-ipv4-udp' at index 4 is not what the policy makes: the policy makes "
       "no such entry"},
};

TEST(RuleOrigin, anAclThatThePolicyDidNotBecomeIsAnError) {
   for (const Row& row : rows) {
      CompiledAcl compiled{policyOfFile(), Family::ipv4};
      row.change(compiled.acl());
      std::string message = "none";
      try {
         forEachRule(
               {policyOfFile(), Family::ipv4, true, compiled.acl()},
               [](U32 /*index*/, const RuleConfig& /*rule*/, const RuleOrigin& /*origin*/) {});
      } catch (const OriginError& error) {
         message = error.what();
      }
      EXPECT_EQ(message, row.message) << row.name;
   }
}

TEST(RuleOrigin, hardwareWithoutFlagsMakesOtherRules) {
   CompiledAcl compiled{policyOfFile(), Family::ipv4, false};
   std::string places;
   forEachRule({policyOfFile(), Family::ipv4, false, compiled.acl()},
               [&](U32 /*index*/, const RuleConfig& /*rule*/, const RuleOrigin& origin) {
                  places += text(origin) + "\n";
               });
   EXPECT_EQ(places, "from 11:40 entry 1 dport 8000-8002\n"
                     "from 11:40 entry 1 dport 8000-8002\n"
                     "from 13:17\n"
                     "from 13:17\n");
}

TEST(RuleList, showsWhatARuleMatchesAndDoes) {
   const CompiledAcl compiled{policyOfFile(), Family::ipv4};
   EXPECT_EQ(Postcard::Report::ruleText(*compiled.acl().ruleByIndex(0)),
             "tcp 10.0.0.0/8 > any dport 8000-8001 flags 0x2/0x12 checksum 0x1/0xff  sample");
   EXPECT_EQ(Postcard::Report::ruleText(*compiled.acl().ruleByIndex(3)), "udp any > any  sample");
}

} // namespace
