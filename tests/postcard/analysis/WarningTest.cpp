// Warnings: neither a false alarm nor a silence in a world that can be counted out, and the whole
// text of each kind, from policy files.
#include "postcard/analysis/Warning.h"

#include "postcard/analysis/CompiledAcl.h"
#include "postcard/analysis/SmallWorld.h"
#include "postcard/policy/SampleRate.h"
#include "postcard/policy/file/PolicyFile.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace {

using namespace AnalysisTest;
using namespace Postcard::Analysis;
using Policy::Family;
using Postcard::Packets::parsePacket;

// More time than a program would take: sanitizers are slow.
const Limits small{.firstNodes = 20'000, .mostNodes = 1U << 20, .seconds = 600};

// ---- Counted out ----

// Class and text of each shadow.
using Shadows = std::multiset<std::pair<std::string, std::string>>;

using Ranges = std::vector<Policy::NumberRange>;

Ranges inOrder(Ranges ranges) {
   std::sort(ranges.begin(), ranges.end(), [](const auto& a, const auto& b) {
      return std::pair{a.low, a.high} < std::pair{b.low, b.high};
   });
   return ranges;
}

std::size_t firstRange(const Ranges& ranges, U16 port) {
   std::size_t first = 0;
   while (first < ranges.size() && !(ranges[first].low <= port && port <= ranges[first].high)) {
      ++first;
   }
   return first;
}

void rangesWithout(const Ranges& ranges, const std::vector<U16>& ports, const std::string& name,
                   const std::string& side, Shadows& shadows) {
   for (std::size_t i = 0; i < ranges.size(); ++i) {
      if (std::none_of(ports.begin(), ports.end(),
                       [&](U16 port) { return firstRange(ranges, port) == i; })) {
         const std::string low = std::to_string(ranges[i].low);
         const std::string high = std::to_string(ranges[i].high);
         shadows.emplace(name, side + " ports " + (low == high ? low : low + "-" + high) +
                                     " can never match: all its packets are taken before");
      }
   }
}

// `mine` are the packets that the class gets in the protocol.
void shadowsOfEntries(const Policy::Class& each, const Policy::ProtocolMatch& match,
                      std::vector<Packet> mine, Shadows& shadows) {
   for (const Policy::PortEntry& entry : match.ports) {
      if (entry.source.empty() && entry.destination.empty()) {
         continue;
      }
      std::vector<U16> sources;
      std::vector<U16> destinations;
      std::erase_if(mine, [&](const Packet& packet) {
         const bool taken = entryTakes(entry, packet);
         if (taken) {
            sources.push_back(*packet.sourcePort);
            destinations.push_back(*packet.destinationPort);
         }
         return taken;
      });
      if (sources.empty()) {
         shadows.emplace(each.name.text,
                         "this port entry can never match: all its packets are taken before");
      } else {
         rangesWithout(inOrder(entry.source), sources, each.name.text, "source", shadows);
         rangesWithout(inOrder(entry.destination), destinations, each.name.text, "destination",
                       shadows);
      }
   }
}

Shadows shadowsOf(const Policy::Policy& policy, const std::vector<Packet>& packets,
                  const Draw& draw) {
   Shadows shadows;
   for (std::size_t place = 0; place < policy.classes.size(); ++place) {
      const Policy::Class& each = policy.classes[place];
      std::vector<Packet> asked;
      std::vector<Packet> got;
      for (const Packet& packet : packets) {
         if (takes(each, packet, draw, true)) {
            asked.push_back(packet);
            if (firstClass(policy, packet, draw, true) == place) {
               got.push_back(packet);
            }
         }
      }
      if (asked.empty()) {
         continue;
      }
      if (got.empty()) {
         shadows.emplace(each.name.text, "can never match: all its packets are taken before");
         continue;
      }
      for (const Policy::ProtocolMatch& match : each.filter(draw.family)->protocols) {
         const auto ofProtocol = [&](const Packet& packet) { return packet.protocol == match.low; };
         if (std::none_of(asked.begin(), asked.end(), ofProtocol)) {
            continue;
         }
         std::vector<Packet> mine;
         std::copy_if(got.begin(), got.end(), std::back_inserter(mine), ofProtocol);
         if (mine.empty()) {
            shadows.emplace(each.name.text,
                            "protocol " + std::string{match.low == 6 ? "tcp" : "udp"} +
                                  " can never match: all its packets are taken before");
         } else {
            shadowsOfEntries(each, match, mine, shadows);
         }
      }
   }
   return shadows;
}

// Name of the later class, name of the earlier one.
using Overlaps = std::set<std::pair<std::string, std::string>>;

Overlaps overlapsOf(const Policy::Policy& policy, const std::vector<Packet>& packets,
                    const Draw& draw) {
   Overlaps overlaps;
   for (const Packet& packet : packets) {
      const std::size_t first = firstClass(policy, packet, draw, true);
      for (std::size_t later = first + 1; later < policy.classes.size(); ++later) {
         const Policy::Class& winner = policy.classes[first];
         const Policy::Class& loser = policy.classes[later];
         if (samples(winner) != samples(loser) && takes(loser, packet, draw, true)) {
            overlaps.emplace(loser.name.text, "class '" + winner.name.text + "'");
         }
      }
   }
   return overlaps;
}

const Policy::Class& classNamed(const Policy::Policy& policy, const std::string& name) {
   return *std::find_if(policy.classes.begin(), policy.classes.end(),
                        [&](const Policy::Class& each) { return each.name.text == name; });
}

class WarningsOfSmallWorld : public testing::TestWithParam<Draw> {};

TEST_P(WarningsOfSmallWorld, areNeitherTooManyNorTooFew) {
   const Draw& draw = GetParam();
   const std::vector<Packet> packets = allPackets(draw.family);
   PacketSpace space{small};
   Random random{31};
   std::size_t shadowCount = 0;
   std::size_t overlapCount = 0;
   for (int round = 0; round < 300; ++round) {
      const Policy::Policy policy = randomPolicy(random, draw);
      const CompiledAcl compiled{policy, draw.family, draw.tcpFlags};
      const Warnings warnings = warningsOf(space, policy, {draw.family, draw.tcpFlags});
      ASSERT_TRUE(warnings.notDecided.empty());
      Shadows shadows;
      Overlaps overlaps;
      for (const Warning& each : warnings.found) {
         if (each.code == WarningCode::cost || each.code == WarningCode::empty) {
            continue;
         }
         ASSERT_TRUE(each.witness.has_value() || each.code == WarningCode::rate) << each.text;
         if (!each.witness) {
            continue;
         }
         EXPECT_EQ(parsePacket(printPacket(*each.witness)), *each.witness);
         const std::size_t hit = compiled.place(*each.witness); // what `explain` would say
         const Policy::Class& mine = classNamed(policy, each.className);
         if (each.code == WarningCode::shadowed) {
            shadows.emplace(each.className, each.text);
            EXPECT_TRUE(takes(mine, *each.witness, draw, true)) << each.text;
            EXPECT_FALSE(each.blamed.empty()) << each.text;
            ASSERT_LT(hit, policy.classes.size());
         } else if (each.code == WarningCode::overlap) {
            overlaps.emplace(each.className, each.blamed.at(0).what);
            EXPECT_TRUE(takes(mine, *each.witness, draw, true));
            EXPECT_EQ("class '" + policy.classes.at(hit).name.text + "'", each.blamed.at(0).what);
         }
      }
      ASSERT_EQ(shadows, shadowsOf(policy, packets, draw)) << text(warnings, "p.yaml");
      ASSERT_EQ(overlaps, overlapsOf(policy, packets, draw)) << text(warnings, "p.yaml");
      shadowCount += shadows.size();
      overlapCount += overlaps.size();
   }
   EXPECT_GT(shadowCount, 100U);
   EXPECT_GT(overlapCount, 100U);
}

INSTANTIATE_TEST_SUITE_P(Warning, WarningsOfSmallWorld,
                         testing::Values(Draw{Family::ipv4, true}, Draw{Family::ipv6, true},
                                         Draw{Family::ipv4, false}));

// ---- Texts ----

Policy::PolicyFile fileOf(const std::string& classes) {
   const auto result = Policy::File::parsePolicyText("policies:\n"
                                                     "- name: p\n"
                                                     "  interfaces: { ipv4: [Ethernet1] }\n"
                                                     "  classes:\n" +
                                                           classes,
                                                     "f");
   EXPECT_EQ(formatFindings(result), "");
   return result.policyFile.value_or(Policy::PolicyFile{});
}

std::string warningText(const std::string& classes) {
   const Policy::PolicyFile file = fileOf(classes);
   PacketSpace space{small};
   Warnings warnings = warningsOf(file.policies.at(0));
   warnings.add(warningsOf(space, file.policies.at(0), {Family::ipv4, true}));
   return text(warnings, "f");
}

TEST(Warning, texts) {
   const std::pair<const char*, const char*> table[] = {
         {"  - { name: a, actions: [sample], ipv4: {} }\n", ""},
         {"  - { name: a, actions: [sample], ipv4: { source: [10.0.0.0/8] } }\n"
          "  - { name: b, actions: [sample], ipv4: { source: [10.1.0.0/16] } }\n",
          "f:6:13: shadowed: p ipv4: class 'b': can never match: all its packets are taken before, "
          "class 'a' (line 5): tcp 10.1.0.0:0 > 0.0.0.0:0\n"},
         // Two classes that are both needed, and one that is not.
         {"  - { name: x, actions: [sample], ipv4: { source: [10.7.0.0/16] } }\n"
          "  - { name: a, actions: [sample], ipv4: { source: [10.0.0.0/9] } }\n"
          "  - { name: b, actions: [sample], ipv4: { source: [10.128.0.0/9] } }\n"
          "  - { name: c, actions: [sample], ipv4: { source: [10.0.0.0/8] } }\n",
          "f:8:13: shadowed: p ipv4: class 'c': can never match: all its packets are taken before, "
          "class 'a' (line 6), class 'b' (line 7): tcp 10.0.0.0:0 > 0.0.0.0:0\n"},
         {"  - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp }] } }\n"
          "  - { name: b, actions: [sample], ipv4: { protocols: [{ protocol: tcp }, { protocol: "
          "udp "
          "}] } }\n",
          "f:6:67: shadowed: p ipv4: class 'b': protocol tcp can never match: all its packets are "
          "taken before, class 'a' (line 5): tcp 0.0.0.0:0 > 0.0.0.0:0\n"},
         {"  - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp, ports: [{ "
          "destination: [1-7, 2-3] }] }] } }\n",
          "f:5:101: shadowed: p ipv4: class 'a': destination ports 2-3 can never match: all its "
          "packets are taken before, destination ports 1-7 (line 5): "
          "tcp 0.0.0.0:0 > 0.0.0.0:2\n"},
         {"  - { name: a, actions: [], ipv4: { source: [10.0.0.0/8] } }\n"
          "  - { name: b, actions: [sample], ipv4: {} }\n",
          "f:6:13: overlap: p ipv4: class 'b': sampled, but an earlier class takes some of its "
          "packets unsampled, class 'a' (line 5): tcp 10.0.0.0:0 > 0.0.0.0:0\n"},
         {"  - { name: a, actions: [sample, sample-all], ipv4: { sample: { data: 1, mask: 3 } } "
          "}\n",
          "f:5:63: rate: p ipv4: class 'a': not every packet is sampled: beside sample, sample-all "
          "does not count: tcp 0.0.0.0:0 > 0.0.0.0:0\n"},
         {"  - { name: a, actions: [sample-all], ipv4: { sample: { data: 1, mask: 3 } } }\n",
          "f:5:55: rate: p ipv4: class 'a': the sample bits do not count: sample-all takes every "
          "packet: tcp 0.0.0.0:0 > 0.0.0.0:0\n"},
         {"  - { name: a, actions: [], ipv4: { sample: { data: 1, mask: 3 } } }\n",
          "f:5:45: rate: p ipv4: class 'a': the sample bits do not count: the class does not "
          "sample: "
          "tcp 0.0.0.0:0 > 0.0.0.0:0\n"},
         {"  - { name: a, actions: [sample], ipv4: { sample: { data: 0, mask: 3 } } }\n",
          "f:5:51: rate: p ipv4: class 'a': every UDP packet without a checksum is sampled, "
          "because "
          "it carries 0: udp 0.0.0.0:0 > 0.0.0.0:0\n"},
         {"  - { name: a, actions: [sample, { set-dscp: 46 }], ipv4: {} }\n",
          "f:5:34: dscp: p: class 'a': no rule will carry the DSCP 46\n"},
         {"  - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp, ports: [{ "
          "source: "
          "[1025-65535], destination: [1, 2] }] }] } }\n",
          "f:5:91: cost: p ipv4: class 'a': 1025-65535 takes 15 blocks, 1024-65535 takes 6: 18 "
          "entries fewer\n"},
         {"  - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp, ports: [{}] }] } "
          "}\n",
          "f:5:35: empty: p ipv4: class 'a': makes no rule, because its port entries have no "
          "ranges\n"},
         {"  - { name: a, actions: [sample] }\n",
          "f:5:13: empty: p: class 'a': takes part in no family\n"
          "f:2:9: empty: p ipv4: no class takes part in the family\n"},
   };
   for (const auto& [classes, expected] : table) {
      EXPECT_EQ(warningText(classes), expected) << classes;
   }
}

TEST(Warning, aClassThatSamplesTheReports) {
   struct Row {
      const char* classes;
      const char* collector;
      std::string expected;
   };
   const std::string loop =
         "loop: p ipv4: class 'a': samples the telemetry's own reports, which make "
         "further reports, the collector (line 9): udp 0.0.0.0:0 > "
         "192.0.2.9:4739\n";
   const Row table[] = {
         {"  - { name: a, actions: [sample-all], ipv4: {} }\n", "192.0.2.9/32", "f:5:13: " + loop},
         {"  - { name: a, actions: [sample], ipv4: { destination: [192.0.2.0/24] } }\n",
          "192.0.2.9/32", "f:5:13: " + loop},
         // another address, family, protocol or port; a class that does not sample, or comes later
         {"  - { name: a, actions: [sample], ipv4: { destination: [192.0.2.0/29] } }\n",
          "192.0.2.9/32", ""},
         {"  - { name: a, actions: [sample], ipv4: {} }\n", "2001:db8::9/128", ""},
         {"  - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp }] } }\n",
          "192.0.2.9/32", ""},
         {"  - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: udp, ports: [{ "
          "destination: [4738] }] }] } }\n",
          "192.0.2.9/32", ""},
         {"  - { name: a, actions: [], ipv4: {} }\n", "192.0.2.9/32", ""},
   };
   for (const auto& [classes, address, expected] : table) {
      const Policy::PolicyFile file = fileOf(classes);
      const Policy::Collector collector{Orlix::IpGenPrefix{address}, Policy::collectorPort, {9, 1}};
      PacketSpace space{small};
      EXPECT_EQ(text(warningsOf(space, file.policies.at(0), {Family::ipv4, true, &collector}), "f"),
                expected)
            << classes;
   }
}

TEST(Warning, asADocument) {
   const Policy::PolicyFile file =
         fileOf("  - { name: a, actions: [sample], ipv4: { source: [10.0.0.0/8] } }\n"
                "  - { name: b, actions: [sample], ipv4: { source: [10.1.0.0/16] } }\n");
   PacketSpace space{small};
   const Warnings warnings = warningsOf(space, file.policies[0], {});
   EXPECT_EQ(json(warnings), nlohmann::ordered_json::parse(R"([{"code": "shadowed", "policy": "p",
      "family": "ipv4", "class": "b", "line": 6, "column": 13,
      "text": "can never match: all its packets are taken before",
      "blamed": [{"what": "class 'a'", "line": 5, "column": 13}],
      "witness": "tcp 10.1.0.0:0 > 0.0.0.0:0"}])"));
   EXPECT_EQ(notDecidedJson(warnings), nlohmann::ordered_json::array());
}

// ---- Limits ----

// Classes whose sets do not fit are neither shadowed nor fine.
TEST(Warning, aClassThatIsTooLargeIsNotDecided) {
   Policy::PolicyFile file =
         fileOf("  - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: "
                "tcp, ports: [{ source: [1], destination: [1] }] }] } }\n"
                "  - { name: b, actions: [sample], ipv4: { protocols: [{ protocol: "
                "udp }] } }\n");
   auto& entries = file.policies[0].classes[0].ipv4->protocols[0].ports;
   for (U16 port = 0; port < 2'000; ++port) {
      const auto scattered = static_cast<U16>(port * 30'011U);
      entries.push_back({{{scattered, scattered, {}}}, {{port, port, {}}}, {}, {}, {}});
   }
   PacketSpace space{{.firstNodes = 4'000, .mostNodes = 4'000}};
   const Warnings warnings = warningsOf(space, file.policies[0], {Family::ipv4, true});
   EXPECT_FALSE(warnings.none());
   EXPECT_EQ(text(warnings, "f"),
             "f: p ipv4: class 'a': not decided: the answer needs more memory or "
             "time than it may use\n");
   EXPECT_EQ(notDecidedJson(warnings).dump(), R"([{"policy":"p","family":"ipv4","class":"a"}])");
}

TEST(Warning, overlapsEndAtALimit) {
   std::string classes;
   for (int i = 0; i < 30; ++i) {
      classes += "  - { name: c" + std::to_string(i) + ", actions: [" +
                 (i % 2 == 0 ? "" : "sample") + "], ipv4: { source: [10." + std::to_string(i) +
                 ".0.0/16] } }\n  - { name: d" + std::to_string(i) + ", actions: [" +
                 (i % 2 == 0 ? "" : "sample") + "], ipv4: { destination: [10." + std::to_string(i) +
                 ".0.0/16] } }\n";
   }
   const Policy::PolicyFile file = fileOf(classes);
   PacketSpace space{small};
   const Warnings warnings = warningsOf(space, file.policies[0], {});
   EXPECT_EQ(warnings.found.size(), mostOverlaps);
   EXPECT_TRUE(warnings.moreOverlaps);
   EXPECT_TRUE(
         text(warnings, "f")
               .ends_with(
                     "f: overlap: more than 100 in a policy and family; only these are listed\n"));
}

// ---- Rates ----

TEST(SamplingRate, inWordsAndNumbers) {
   const std::pair<const char*, const char*> table[] = {
         {"actions: [], ipv4: {}", "not sampled"},
         {"actions: [], ipv4: { sample: { data: 0, mask: 1 } }", "not sampled"},
         {"actions: [sample], ipv4: {}", "every packet"},
         {"actions: [sample-all], ipv4: { sample: { data: 0, mask: 1 } }", "every packet"},
         {"actions: [sample], ipv4: { sample: { data: 1, mask: 0xff } }",
          "1 packet in 256, by checksum"},
         {"actions: [sample, sample-all], ipv4: { sample: { data: 1, mask: 0x8001, field: ip-id } "
          "}",
          "1 packet in 4, by IP identification"},
         {"actions: [sample], ipv4: { sample: { data: 1, mask: 0xffff } }",
          "1 packet in 65536, by checksum"},
   };
   for (const auto& [classText, expected] : table) {
      const Policy::PolicyFile file = fileOf("  - { name: a, " + std::string{classText} + " }\n");
      EXPECT_EQ(text(samplingRate(file.policies[0].classes[0], Family::ipv4)), expected);
   }
}

} // namespace
