// Differences: what is treated otherwise, and the words for it, equal enumeration in a world that
// can be counted out; the whole text of each kind, from policy files; limits.
#include "postcard/analysis/Difference.h"

#include "postcard/analysis/SmallWorld.h"
#include "postcard/analysis/WordsReader.h"
#include "postcard/policy/SampleRate.h"
#include "postcard/policy/file/PolicyFile.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <tuple>

namespace {

using namespace AnalysisTest;
using namespace Postcard::Analysis;
using Policy::Family;
using Postcard::Packets::printPacket;

// More time than a program would take: sanitizers are slow.
const Limits small{.firstNodes = 20'000, .mostNodes = 1U << 20, .seconds = 600};

// ---- Counted out ----

// Name of the class that gets a packet, and its rate as text; no name and "not sampled" without a
// class.
using Fate = std::pair<std::string, std::string>;
// The packets, as places in the list of all, by what happens to them in either version.
using Changed = std::map<std::pair<Fate, Fate>, std::set<std::size_t>>;

Fate fateOf(const Policy::Policy* policy, const Packet& packet, const Draw& draw) {
   if (policy == nullptr) {
      return {"", "not sampled"};
   }
   const std::size_t place = firstClass(*policy, packet, draw, true);
   if (place == policy->classes.size()) {
      return {"", "not sampled"};
   }
   return {policy->classes[place].name.text,
           text(samplingRate(policy->classes[place], draw.family))};
}

Changed changedOf(const Policy::Policy* before, const Draw& drawBefore, const Policy::Policy* after,
                  const Draw& drawAfter, const std::vector<Packet>& packets) {
   Changed changed;
   for (std::size_t i = 0; i < packets.size(); ++i) {
      const Fate was = fateOf(before, packets[i], drawBefore);
      const Fate is = fateOf(after, packets[i], drawAfter);
      if (was != is) {
         changed[{was, is}].insert(i);
      }
   }
   return changed;
}

Difference kindOf(const Fate& was, const Fate& is) {
   if ((was.second == "not sampled") != (is.second == "not sampled")) {
      return Difference::sampling;
   }
   return was.second != is.second ? Difference::rate : Difference::className;
}

// Words must hold for exactly the packets of the difference. Reading words takes long, so every
// round looks at other packets.
void expectWords(const TreatedOtherwise& each, const std::set<std::size_t>& wanted,
                 const std::vector<Packet>& packets, int round) {
   for (auto i = static_cast<std::size_t>(round % 23); i < packets.size(); i += 23) {
      ASSERT_EQ(wordsHold(each.words, packets[i]), wanted.contains(i))
            << printPacket(packets[i]) << "\n"
            << each.words.front();
   }
}

struct Counts {
   int pairs = 0;
   int same = 0;
   int rows = 0;
   int withWords = 0;
};

void expectEnumerated(const Differences& differences, Changed changed,
                      const std::vector<Packet>& packets, Counts& counts) {
   EXPECT_TRUE(differences.notDecided.empty());
   for (const TreatedOtherwise& each : differences.found) {
      const Fate was{each.before.className, text(each.before.rate)};
      const Fate is{each.after.className, text(each.after.rate)};
      const auto found = changed.find({was, is});
      ASSERT_NE(found, changed.end()) << text(differences);
      EXPECT_EQ(each.difference, kindOf(was, is));
      if (!each.words.empty()) {
         expectWords(each, found->second, packets, counts.pairs);
         ++counts.withWords;
      }
      changed.erase(found);
      ++counts.rows;
   }
   EXPECT_TRUE(changed.empty()) << "missing: " << changed.size();
}

// The witness is in no list of packets: it is asked about as `explain` would.
void expectWitnesses(const Differences& differences, const Policy::Policy* before,
                     const Draw& drawBefore, const Policy::Policy* after, const Draw& drawAfter) {
   for (const TreatedOtherwise& each : differences.found) {
      const Packet printed = Postcard::Packets::parsePacket(printPacket(each.witness));
      EXPECT_EQ(fateOf(before, printed, drawBefore).first, each.before.className);
      EXPECT_EQ(fateOf(after, printed, drawAfter).first, each.after.className);
   }
}

// Another version of a policy: one or two small changes.
Policy::Policy changedVersion(Random& random, Policy::Policy policy, const Draw& draw) {
   for (std::size_t changes = random() % 3; changes > 0; --changes) {
      Policy::Class& each = policy.classes[random() % policy.classes.size()];
      auto& filter = draw.family == Family::ipv4 ? each.ipv4 : each.ipv6;
      switch (random() % 5) {
      case 0:
         filter = randomFilter(random, draw);
         break;
      case 1:
         each.actions.clear();
         break;
      case 2:
         std::swap(each.priority, policy.classes[random() % policy.classes.size()].priority);
         break;
      case 3:
         if (policy.classes.size() > 1) {
            policy.classes.erase(policy.classes.begin() + (&each - policy.classes.data()));
         }
         break;
      default:
         each.name.text = "renamed" + std::to_string(changes);
      }
   }
   // `firstClass` takes the classes as they stand in the list.
   std::sort(policy.classes.begin(), policy.classes.end(),
             [](const auto& a, const auto& b) { return a.priority < b.priority; });
   return policy;
}

TEST(Difference, equalsEnumeration) {
   Random random{12};
   PacketSpace space{small};
   Counts counts;
   for (int round = 0; round < 500; ++round) {
      const Draw before{chance(random, 60) ? Family::ipv4 : Family::ipv6, chance(random, 80)};
      const auto old = randomPolicy(random, before);
      // Where the hardware matches TCP flags, UDP must not ask for them.
      const Draw after{before.family, before.tcpFlags && chance(random, 90)};
      const auto changed =
            chance(random, 70) ? changedVersion(random, old, after) : randomPolicy(random, after);
      const bool gone = chance(random, 5);
      const auto packets = allPackets(before.family);
      const auto differences = differencesOf(space, before.family, {&old, before.tcpFlags},
                                             {gone ? nullptr : &changed, after.tcpFlags});
      expectEnumerated(differences,
                       changedOf(&old, before, gone ? nullptr : &changed, after, packets), packets,
                       counts);
      expectWitnesses(differences, &old, before, gone ? nullptr : &changed, after);
      ASSERT_FALSE(testing::Test::HasFailure()) << "round " << round;
      counts.pairs += 1;
      counts.same += differences.none() ? 1 : 0;
   }
   EXPECT_GT(counts.same, 50);
   EXPECT_GT(counts.rows, 700);
   EXPECT_GT(counts.withWords, counts.rows / 2);
}

// ---- From policy files ----

struct Compared {
   std::optional<Policy::PolicyFile> before;
   std::optional<Policy::PolicyFile> after;

   Differences differences(PacketSpace& space, Family family = Family::ipv4) const {
      return differencesOf(space, family, {&before->policies.at(0), before->hardware.tcpFlags},
                           {&after->policies.at(0), after->hardware.tcpFlags});
   }
};

std::optional<Policy::PolicyFile> fileOf(const std::string& classes, const std::string& head = "") {
   auto loaded = Policy::File::parsePolicyText(
         head + "policies:\n- name: p\n  interfaces: { ipv4: [Ethernet1] }\n  classes:\n" + classes,
         "p.yaml");
   EXPECT_EQ(formatFindings(loaded), "");
   return loaded.policyFile;
}

struct Row {
   const char* name;
   std::string before;
   std::string after;
   std::string text;
};

const std::string web = "  - { name: web, actions: [sample], ipv4: { protocols: [{ protocol: tcp, "
                        "ports: [{ destination: [80] }] }] } }\n";
const std::string dns = "  - { name: dns, actions: [], ipv4: { protocols: [{ protocol: udp, ports: "
                        "[{ destination: [53] }] }] } }\n";

std::string sampled(const std::string& sample) {
   return "  - { name: c, actions: [sample], ipv4: { source: [10.0.0.0/8], " + sample + " } }\n";
}

const std::vector<Row> rows = {
      {"itself", web + dns, web + dns, ""},
      {"two classes that do not meet change places", web + dns, dns + web, ""},
      {"a rate instead of a mask", sampled("sample: { data: 1, mask: 0xff }"),
       sampled("sample: { rate: 256 }"), ""},
      {"a range in two pieces",
       "  - { name: c, actions: [sample], ipv4: { protocols: [{ protocol: tcp, ports: "
       "[{ source: [1-9] }] }] } }\n",
       "  - { name: c, actions: [sample], ipv4: { protocols: [{ protocol: tcp, ports: "
       "[{ source: [4-9] }, { source: [1-3] }] }] } }\n",
       ""},
      {"one bit of a mask", sampled("sample: { data: 1, mask: 0xff }"),
       sampled("sample: { data: 1, mask: 0x7f }"),
       "   rate: class 'c', 1 packet in 256, by checksum -> class 'c', 1 packet in 128, by "
       "checksum\n"
       "      all: tcp,udp 10.0.0.0/8 > any checksum 0x1/0xff\n"
       "      such as: tcp 10.0.0.0:0 > 0.0.0.0:0 checksum=0x0001\n"
       "   sampling: no class, not sampled -> class 'c', 1 packet in 128, by checksum\n"
       "      all: tcp,udp 10.0.0.0/8 > any checksum 0x81/0xff\n"
       "      such as: tcp 10.0.0.0:0 > 0.0.0.0:0 checksum=0x0081\n"},
      {"another name", web, "  - { name: www" + web.substr(15),
       "   class: class 'web', every packet -> class 'www', every packet\n"
       "      all: tcp any > any dport 80\n"
       "      such as: tcp 0.0.0.0:0 > 0.0.0.0:80\n"},
      {"an earlier class takes a part",
       "  - { name: all, actions: [sample-all], ipv4: { protocols: [{ protocol: tcp }] } }\n",
       "  - { name: not, actions: [], ipv4: { destination: [10.1.2.0/24], protocols: [{ protocol: "
       "tcp, ports: [{ destination: [2-10] }] }] } }\n"
       "  - { name: all, actions: [sample-all], ipv4: { protocols: [{ protocol: tcp }] } }\n",
       "   sampling: class 'all', every packet -> class 'not', not sampled\n"
       "      all: tcp any > 10.1.2.0/24 dport 2-10\n"
       "      such as: tcp 0.0.0.0:0 > 10.1.2.0:2\n"},
      {"a hole in the addresses",
       "  - { name: a, actions: [], ipv4: { source: [10.1.0.0/16] } }\n"
       "  - { name: b, actions: [sample], ipv4: { source: [10.0.0.0/8] } }\n",
       "  - { name: a, actions: [], ipv4: { source: [10.1.0.0/16] } }\n",
       "   sampling: class 'b', every packet -> no class, not sampled\n"
       "      all: tcp,udp 10.0.0.0-10.0.255.255,10.2.0.0-10.255.255.255 > any\n"
       "      such as: tcp 10.0.0.0:0 > 0.0.0.0:0\n"},
};

TEST(Difference, textOfEachKind) {
   PacketSpace space{small};
   for (const Row& row : rows) {
      const Compared compared{fileOf(row.before), fileOf(row.after)};
      EXPECT_EQ(text(compared.differences(space)), row.text) << row.name;
   }
}

TEST(Difference, hardwareThatMatchesFlags) {
   const std::string syn = "  - { name: syn, actions: [sample], ipv4: { protocols: [{ protocol: "
                           "tcp, tcp-flags: [{ flags: [syn], mask: [syn, ack] }] }] } }\n";
   PacketSpace space{small};
   const Compared compared{fileOf(syn, "hardware: { tcp-flags: true }\n"),
                           fileOf(syn, "hardware: { tcp-flags: false }\n")};
   EXPECT_EQ(text(compared.differences(space)),
             "   sampling: no class, not sampled -> class 'syn', every packet\n"
             "      all: tcp any > any fragment\n"
             "      all: tcp any > any flags 0x0/0x12,0x10/0x10\n"
             "      such as: tcp 0.0.0.0:0 > 0.0.0.0:0\n");
}

TEST(Difference, jsonHasBothTreatments) {
   PacketSpace space{small};
   const Compared compared{fileOf(dns), fileOf(web)};
   EXPECT_EQ(json(compared.differences(space)).dump(), nlohmann::ordered_json::parse(R"([
      {"difference": "class",
       "old": {"class": "dns", "line": 5, "column": 13, "sampled": false, "oneIn": 0,
               "field": null},
       "new": null, "words": ["udp any > any dport 53"],
       "witness": "udp 0.0.0.0:0 > 0.0.0.0:53"},
      {"difference": "sampling",
       "old": null,
       "new": {"class": "web", "line": 5, "column": 13, "sampled": true, "oneIn": 1,
               "field": null},
       "words": ["tcp any > any dport 80"],
       "witness": "tcp 0.0.0.0:0 > 0.0.0.0:80"}])")
                                                             .dump());
}

TEST(Difference, tooManyWordsAreNone) {
   std::string holes;
   for (int i = 0; i < 9; ++i) {
      holes += "  - { name: h" + std::to_string(i) + ", actions: [], ipv4: { source: [10." +
               std::to_string(2 * i) + ".0.0/16] } }\n";
   }
   const std::string all = "  - { name: b, actions: [sample], ipv4: { source: [10.0.0.0/8] } }\n";
   PacketSpace space{small};
   const auto differences = Compared{fileOf(holes + all), fileOf(holes)}.differences(space);
   ASSERT_EQ(differences.found.size(), 1U);
   EXPECT_TRUE(differences.found.front().words.empty());
   EXPECT_EQ(json(differences)[0]["words"], nullptr);
}

// ---- Limits ----

// Classes whose sources, destinations and ports constrain each other by their place in the list, so
// that what they leave to a later class has a large diagram.
std::string manyClasses(int count) {
   std::string classes;
   for (int i = 0; i < count; ++i) {
      const std::string number = std::to_string(i);
      classes += "  - { name: m" + number + ", actions: [], ipv4: { source: [10." + number +
                 ".0.0/16], destination: [10.0." + number +
                 ".0/24], protocols: [{ protocol: tcp, ports: [{ source: [" + number + "-" +
                 std::to_string(3000 + 7 * i) + "] }] }] } }\n";
   }
   return classes;
}

const std::string all = "  - { name: all, actions: [sample], ipv4: {} }\n";
const std::string udp = "  - { name: udp, actions: [sample], ipv4: { protocols: [{ protocol: udp, "
                        "ports: [{ destination: [9] }] }] } }\n";

// A limit never makes versions equal, and what is small is found all the same.
TEST(Difference, withoutNodesClassesAreNotDecided) {
   PacketSpace space{{.firstNodes = 4'000, .mostNodes = 4'000, .seconds = 60}};
   const std::string many = manyClasses(60);
   const auto differences = Compared{fileOf(many + udp + all), fileOf(many)}.differences(space);
   EXPECT_FALSE(differences.none());
   EXPECT_EQ(text(differences), "   sampling: class 'udp', every packet -> no class, not sampled\n"
                                "      all: udp any > any dport 9\n"
                                "      such as: udp 0.0.0.0:0 > 0.0.0.0:9\n"
                                "   not decided: class 'all' of the old file\n");
   EXPECT_EQ(notDecidedJson(differences).dump(), R"([{"version":"old","class":"all"}])");
}

TEST(Difference, withoutTimeClassesAreNotDecided) {
   PacketSpace space{{.firstNodes = 200'000, .mostNodes = 1U << 20, .seconds = 1e-3}};
   const std::string many = manyClasses(250);
   const auto differences = Compared{fileOf(many), fileOf(many + all)}.differences(space);
   EXPECT_EQ(text(differences), "   not decided: class 'all' of the new file\n");
}

// Versions that are the same, class by class, need no diagram.
TEST(Difference, equalClassesNeedNeitherNodesNorTime) {
   PacketSpace space{{.firstNodes = 4'000, .mostNodes = 4'000, .seconds = 1e-3}};
   const std::string many = manyClasses(250);
   EXPECT_TRUE((Compared{fileOf(many + all), fileOf(many + all)}.differences(space).none()));
   EXPECT_TRUE(
         (Compared{fileOf(many + udp + all), fileOf(udp + many + all)}.differences(space).none()));
}

} // namespace
