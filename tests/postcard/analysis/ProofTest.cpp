// The proof that an ACL does what its policy means: it holds for what the helper makes, and every
// fault that is put into an ACL is found, with a packet that shows it, exactly when a packet shows
// it.
#include "postcard/analysis/Proof.h"

#include "postcard/analysis/CompiledAcl.h"
#include "postcard/analysis/SmallWorld.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

namespace {

using namespace AnalysisTest;
using namespace Postcard::Analysis;
using OruPostcardTelemetry::L4PortDataMask;
using Policy::Family;
using Postcard::Packets::parsePacket;

// More time than a program would take: sanitizers are slow.
const Limits small{.firstNodes = 20'000, .mostNodes = 1U << 20, .seconds = 600};

class ProofInSmallWorld : public testing::TestWithParam<Draw> {};

// What a packet shows by design: class and number of the difference.
using Shown = std::set<std::pair<std::string, int>>;

Shown shownByDesign(const Policy::Policy& policy, const std::vector<Packet>& packets,
                    const Draw& draw) {
   Shown shown;
   for (const Packet& packet : packets) {
      const std::size_t built = firstClass(policy, packet, draw, true);
      const std::size_t meant = firstClass(policy, packet, draw, false);
      if (built != meant) {
         const Policy::Class& each = policy.classes[std::min(built, meant)];
         shown.emplace(each.name.text, each.filter(draw.family)->protocols.empty() ? 1 : 3);
      }
      if (built < policy.classes.size() &&
          actionOf(policy.classes[built], Policy::ActionKind::setDscp) != nullptr) {
         shown.emplace(policy.classes[built].name.text, 2);
      }
   }
   return shown;
}

TEST_P(ProofInSmallWorld, holdsForWhatTheHelperMakes) {
   const Draw& draw = GetParam();
   const std::vector<Packet> packets = allPackets(draw.family);
   PacketSpace space{small};
   Random random{21};
   std::size_t designs = 0;
   for (int round = 0; round < 150; ++round) {
      const Policy::Policy policy = randomPolicy(random, draw);
      const CompiledAcl compiled{policy, draw.family, draw.tcpFlags};
      ASSERT_EQ(compiled.message(), "");
      const Proof proof = prove(space, policy, {draw.family, draw.tcpFlags}, compiled.acl());
      ASSERT_EQ(proof.verdict, Verdict::proven) << text(proof, "p.yaml");
      EXPECT_TRUE(proof.departures.empty());
      EXPECT_EQ(proof.rules, compiled.acl().ruleByIndexs());
      Shown listed;
      for (const ByDesign& each : proof.byDesign) {
         listed.emplace(each.className, static_cast<int>(each.design));
         if (each.design != Design::dscpNotRewritten) {
            EXPECT_NE(firstClass(policy, each.witness, draw, true),
                      firstClass(policy, each.witness, draw, false))
                  << printPacket(each.witness);
         }
         EXPECT_EQ(parsePacket(printPacket(each.witness)), each.witness);
      }
      ASSERT_EQ(listed, shownByDesign(policy, packets, draw)) << text(proof, "p.yaml");
      designs += listed.size();
   }
   EXPECT_GT(designs, 50U);
}

// ---- Faults ----

// Does something to one or two rules. All values stay within those that the world's packets
// separate.
void damage(Random& random, CompiledAcl::Config& acl) {
   std::vector<U32> indexes;
   for (const auto& entry : acl.ruleByIndex()) {
      indexes.push_back(entry.key());
   }
   if (indexes.empty()) {
      return;
   }
   const U32 index = pick(random, indexes);
   const Pello::Ptr<OruPostcardTelemetry::RuleConfig> rule = acl.ruleByIndex(index);
   auto& filter = *rule->ruleFilterIs();
   switch (random() % 8) {
   case 0: {
      const U32 other = pick(random, indexes);
      const Pello::Ptr<OruPostcardTelemetry::RuleConfig> second = acl.ruleByIndex(other);
      acl.ruleByIndexIs(index, second);
      acl.ruleByIndexIs(other, rule);
      break;
   }
   case 1:
      acl.ruleByIndexDel(index);
      break;
   case 2:
      filter.protoIs(OruPostcardTelemetry::Protocol{static_cast<U8>(random() % 2 == 0 ? 6 : 17)});
      break;
   case 3:
      filter.sportDataMaskValidIs(true);
      filter.sportDataMaskIs(L4PortDataMask{static_cast<U16>(random() % 4), 0xffff});
      break;
   case 4:
      filter.dportDataMaskIs(L4PortDataMask{static_cast<U16>(random() % 4), 0xfffe});
      break;
   case 5:
      filter.tcpFlagAndMaskIs(Classification::TcpFlagAndMask{2, 18});
      break;
   case 6:
      filter.sourceIs(OruPostcardTelemetry::anyPrefix());
      break;
   default: {
      const auto sample = filter.sampleDataAndMaskIs(Pello::String{"sampleDataAndMask"});
      sample->dataIs(static_cast<U32>(random() % 2));
      sample->maskIs(1);
   }
   }
}

// The ACL itself says, packet by packet, whether the fault shows.
TEST_P(ProofInSmallWorld, findsAFaultExactlyWhenAPacketShowsIt) {
   const Draw& draw = GetParam();
   const std::vector<Packet> packets = allPackets(draw.family);
   PacketSpace space{small};
   Random random{22};
   std::size_t wrong = 0;
   std::size_t harmless = 0;
   for (int round = 0; round < 250; ++round) {
      const Policy::Policy policy = randomPolicy(random, draw);
      CompiledAcl compiled{policy, draw.family, draw.tcpFlags};
      for (std::size_t faults = 1 + random() % 3; faults > 0; --faults) {
         damage(random, compiled.acl());
      }
      bool shows = false;
      for (const Packet& packet : packets) {
         shows = shows || compiled.place(packet) != firstClass(policy, packet, draw, true);
      }
      const Proof proof = prove(space, policy, {draw.family, draw.tcpFlags}, compiled.acl());
      ASSERT_EQ(proof.verdict, shows ? Verdict::departs : Verdict::proven) << text(proof, "p.yaml");
      (shows ? wrong : harmless) += 1;
      for (const Departure& each : proof.departures) {
         EXPECT_NE(compiled.place(each.witness), firstClass(policy, each.witness, draw, true))
               << printPacket(each.witness);
      }
   }
   EXPECT_GT(wrong, 60U);
   EXPECT_GT(harmless, 10U);
}

INSTANTIATE_TEST_SUITE_P(Proof, ProofInSmallWorld,
                         testing::Values(Draw{Family::ipv4, true}, Draw{Family::ipv6, true},
                                         Draw{Family::ipv4, false}));

// ---- Known faults ----

Policy::Class& addClass(Policy::Policy& policy, const char* name, const char* source) {
   Policy::Class& each = policy.classes.emplace_back();
   const auto count = static_cast<U32>(policy.classes.size());
   each.name = {name, {count + 1, 5}};
   each.priority = count * Policy::positionStep;
   each.actions.push_back({Policy::ActionKind::sampleAll, 0, {}});
   each.ipv4.emplace().source.push_back({Orlix::IpGenPrefix{source}, {}});
   each.ipv4->protocols.push_back({6, 6, {}, {}, {}, {}});
   return each;
}

Policy::Policy emptyPolicy() {
   Policy::Policy policy;
   policy.name = {"p", {1, 1}};
   policy.ipv4Interfaces.push_back({"Ethernet1", {}});
   return policy;
}

std::string proofText(const Policy::Policy& policy, const CompiledAcl& compiled,
                      const Limits& limits = small) {
   PacketSpace space{limits};
   return text(prove(space, policy, {}, compiled.acl()), "p.yaml");
}

// The union of the rules of either class stays as it was.
TEST(Proof, twoRulesThatChangedPlacesAcrossClasses) {
   Policy::Policy policy = emptyPolicy();
   addClass(policy, "narrow", "10.1.0.0/16");
   addClass(policy, "wide", "10.0.0.0/8");
   CompiledAcl compiled{policy, Family::ipv4};
   EXPECT_EQ(proofText(policy, compiled),
             "p ipv4: 2 rules, proven: the rules do for every packet what the filters mean\n");
   const Pello::Ptr<OruPostcardTelemetry::RuleConfig> first = compiled.acl().ruleByIndex(0);
   compiled.acl().ruleByIndexIs(0, compiled.acl().ruleByIndex(1));
   compiled.acl().ruleByIndexIs(1, first);
   EXPECT_EQ(proofText(policy, compiled),
             "p ipv4: 2 rules, wrong: the rules do not do what the filters mean\n"
             "p.yaml:2:5: class 'narrow': rule 'wide-ipv4-tcp', sampled instead of class 'narrow', "
             "sampled: tcp 10.1.0.0:0 > 0.0.0.0:0\n");
}

TEST(Proof, rulesThatAreMissingOrTooMany) {
   Policy::Policy policy = emptyPolicy();
   addClass(policy, "web", "10.1.0.0/16");
   CompiledAcl compiled{policy, Family::ipv4};
   compiled.acl().ruleByIndexDel(0);
   EXPECT_EQ(proofText(policy, compiled),
             "p ipv4: 0 rules, wrong: the rules do not do what the filters mean\n"
             "p.yaml:2:5: class 'web': no rule instead of class 'web', sampled: "
             "tcp 10.1.0.0:0 > 0.0.0.0:0\n");
   const auto stranger = compiled.acl().ruleByNameIs(Pello::String{"x-ipv4-udp"});
   stranger->ruleFilterIs()->protoIs(OruPostcardTelemetry::Protocol{17});
   stranger->ruleActionIs();
   compiled.acl().ruleByIndexIs(0, compiled.acl().ruleByName(Pello::String{"web-ipv4-tcp"}));
   compiled.acl().ruleByIndexIs(1, stranger);
   EXPECT_EQ(proofText(policy, compiled),
             "p ipv4: 2 rules, wrong: the rules do not do what the filters mean\n"
             "p.yaml:2:5: class 'web': rule 'x-ipv4-udp', not sampled instead of no class: "
             "udp 0.0.0.0:0 > 0.0.0.0:0\n");
}

TEST(Proof, anActionThatTheClassDoesNotMean) {
   Policy::Policy policy = emptyPolicy();
   addClass(policy, "web", "10.1.0.0/16").actions.clear();
   CompiledAcl compiled{policy, Family::ipv4};
   compiled.acl().ruleByIndex(0)->ruleActionIs()->actionIs(
         OruPostcardTelemetry::RuleAction::sampleAction);
   EXPECT_EQ(proofText(policy, compiled),
             "p ipv4: 1 rules, wrong: the rules do not do what the filters mean\n"
             "p.yaml:2:5: class 'web': rule 'web-ipv4-tcp', sampled instead of class 'web', not "
             "sampled: tcp 10.1.0.0:0 > 0.0.0.0:0\n");
}

// A limit is never an answer.
TEST(Proof, tooFewNodesAreNotAProof) {
   Policy::Policy policy = emptyPolicy();
   for (int i = 0; i < 240; ++i) {
      addClass(policy, ("c" + std::to_string(i)).c_str(),
               ("10." + std::to_string(i) + ".0.0/16").c_str());
   }
   const CompiledAcl compiled{policy, Family::ipv4};
   PacketSpace space{{.firstNodes = 2'000, .mostNodes = 2'000}};
   const Proof proof = prove(space, policy, {}, compiled.acl());
   EXPECT_EQ(proof.verdict, Verdict::notDecided);
   EXPECT_EQ(proof.notDecided.size(), 240U);
   EXPECT_TRUE(proof.departures.empty());
}

TEST(Proof, asADocument) {
   Policy::Policy policy = emptyPolicy();
   addClass(policy, "web", "10.1.0.0/16").ipv4->protocols.clear();
   const CompiledAcl compiled{policy, Family::ipv4};
   PacketSpace space{small};
   EXPECT_EQ(json(prove(space, policy, {}, compiled.acl())), nlohmann::ordered_json::parse(R"({
      "policy": "p", "family": "ipv4", "verdict": "proven", "rules": 2, "departures": [],
      "byDesign": [{"class": "web", "line": 2, "column": 5, "witness": "icmp 10.1.0.0 > 0.0.0.0",
                    "difference": 1, "text": "without protocols the class takes TCP and UDP only"}],
      "notDecided": []})"));
}

// What is said of rules that do something else than the filters mean.
TEST(Proof, aDepartureIsSaidWithItsPacket) {
   Proof proof;
   proof.policy = "p";
   proof.rules = 7;
   proof.verdict = Verdict::departs;
   Departure departure;
   departure.className = "a";
   departure.location = {5, 9};
   departure.meant = "class 'a'";
   departure.done = "no rule";
   departure.witness = parsePacket("tcp 10.0.0.1:1 > 10.0.0.2:2");
   proof.departures = {departure};
   proof.byDesign = {{Design::dscpNotRewritten, "a", {5, 30}, departure.witness},
                     {Design::tcpFlagsNotCompared, "a", {6, 1}, departure.witness}};
   const std::string packet = "tcp 10.0.0.1:1 > 10.0.0.2:2\n";
   EXPECT_EQ(
         text(proof, "f"),
         "p ipv4: 7 rules, wrong: the rules do not do what the filters mean\n"
         "f:5:9: class 'a': no rule instead of class 'a': " +
               packet + "f:5:30: by design: class 'a': no rule rewrites the DSCP: " + packet +
               "f:6:1: by design: class 'a': the hardware does not compare TCP flags: " + packet);
   const auto document = json(proof);
   EXPECT_EQ(document["verdict"], "departs");
   EXPECT_EQ(document["departures"], nlohmann::ordered_json::parse(R"([{"class": "a", "line": 5,
      "column": 9, "witness": "tcp 10.0.0.1:1 > 10.0.0.2:2", "meant": "class 'a'",
      "done": "no rule"}])"));
}

TEST(Proof, aProofThatALimitKeptBackIsNotDecided) {
   Proof proof;
   proof.policy = "p";
   proof.family = Family::ipv6;
   proof.verdict = Verdict::notDecided;
   proof.notDecided = {"a"};
   EXPECT_EQ(text(proof, "f"), "p ipv6: 0 rules, not decided: the answer needs more memory or time "
                               "than it may use\n"
                               "p ipv6: class 'a': not decided\n");
   EXPECT_EQ(json(proof)["verdict"], "not decided");
   EXPECT_EQ(json(proof)["notDecided"], nlohmann::ordered_json({"a"}));
}

} // namespace
