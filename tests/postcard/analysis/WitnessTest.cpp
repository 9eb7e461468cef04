// Witnesses of 1,000 random policies go through the plug-in and through what `explain` does: the
// rule that each packet meets must confirm the warning or the difference.
#include "postcard/analysis/CompiledAcl.h"
#include "postcard/analysis/Difference.h"
#include "postcard/analysis/Proof.h"
#include "postcard/analysis/SmallWorld.h"
#include "postcard/analysis/Warning.h"
#include "postcard/report/explain/ExplainedAcl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace {

using namespace AnalysisTest;
using namespace Postcard::Analysis;
using Policy::Family;

// More time than a program would take: sanitizers are slow.
const Limits small{.firstNodes = 20'000, .mostNodes = 1U << 20, .seconds = 600};

// One policy, compiled, and asked as `explain` asks.
class Explained {
 public:
   Explained(const Policy::Policy& policy, const Draw& draw)
      : hardware_{draw.tcpFlags},
        compiled_{policy, draw.family, draw.tcpFlags},
        explained_{policy, draw.family, hardware_, compiled_.acl()} {}

   const CompiledAcl& compiled() const { return compiled_; }
   // The class whose rule the packet meets, after its text was read back; empty when it meets none.
   std::string classOf(const Packet& packet) {
      const Packet read = Postcard::Packets::parsePacket(Postcard::Packets::printPacket(packet));
      const auto verdict = explained_.explain(read);
      return verdict.entry == nullptr ? "" : explained_.classes()[verdict.matched]->name.text;
   }

 private:
   Policy::Hardware hardware_;
   CompiledAcl compiled_;
   Postcard::Report::ExplainedAcl explained_;
};

const Policy::Class* classNamed(const Policy::Policy& policy, const std::string& name) {
   const auto found = std::find_if(policy.classes.begin(), policy.classes.end(),
                                   [&](const auto& each) { return each.name.text == name; });
   return found == policy.classes.end() ? nullptr : &*found;
}

// Whether something that the warning blames takes the packet: a class by its filter, or an earlier
// part of the class that is warned about.
bool blamedTakes(const Warning& warning, const Policy::Policy& policy, const Packet& packet,
                 const Draw& draw) {
   return std::any_of(warning.blamed.begin(), warning.blamed.end(), [&](const Blamed& blamed) {
      const bool isClass = blamed.what.starts_with("class '");
      const Policy::Class* each =
            isClass ? classNamed(policy, blamed.what.substr(7, blamed.what.size() - 8)) : nullptr;
      return !isClass || (each != nullptr && takes(*each, packet, draw, true));
   });
}

// Whether the class `got`, whose rule the witness meets, confirms the warning.
bool confirms(const Warning& warning, const Policy::Policy& policy, const std::string& got,
              const Draw& draw) {
   const bool own = got == warning.className;
   switch (warning.code) {
   case WarningCode::shadowed:
      // Parts of a class may be taken by earlier parts of it.
      return !got.empty() && blamedTakes(warning, policy, *warning.witness, draw) &&
             !(own && warning.text.starts_with("can never match"));
   case WarningCode::overlap:
      return warning.blamed.front().what == "class '" + got + "'" &&
             samples(*classNamed(policy, got)) != samples(*classNamed(policy, warning.className));
   case WarningCode::rate:
      // Beside sample bits, `sample-all` does not get the packets without the bits.
      return warning.text.starts_with("not every packet") != own;
   case WarningCode::loop: // needs a collector, which these policies have not
   case WarningCode::dscp:
   case WarningCode::cost:
   case WarningCode::empty:
      return false; // has no witness
   }
   return false; // no other code exists
}

TEST(Witness, explainConfirmsTheWarningsOfAThousandPolicies) {
   Random random{21};
   PacketSpace space{small};
   std::map<WarningCode, int> confirmed;
   for (int round = 0; round < 1'000; ++round) {
      const Draw draw{chance(random, 50) ? Family::ipv4 : Family::ipv6, chance(random, 70)};
      const auto policy = randomPolicy(random, draw);
      Explained explained{policy, draw};
      for (const Warning& warning : warningsOf(space, policy, {draw.family, draw.tcpFlags}).found) {
         if (warning.witness) {
            const std::string got = explained.classOf(*warning.witness);
            EXPECT_TRUE(confirms(warning, policy, got, draw))
                  << "round " << round << ": " << warning.className << ": " << warning.text << ": "
                  << Postcard::Packets::printPacket(*warning.witness) << " went to '" << got << "'";
            ++confirmed[warning.code];
         }
      }
   }
   EXPECT_GT(confirmed[WarningCode::shadowed], 500);
   EXPECT_GT(confirmed[WarningCode::overlap], 500);
   EXPECT_GT(confirmed[WarningCode::rate], 100);
}

TEST(Witness, explainConfirmsTheDifferencesOfAThousandPolicies) {
   Random random{22};
   PacketSpace space{small};
   int confirmed = 0;
   for (int round = 0; round < 1'000; ++round) {
      const Draw draw{chance(random, 50) ? Family::ipv4 : Family::ipv6, chance(random, 70)};
      const auto before = randomPolicy(random, draw);
      const auto after = randomPolicy(random, draw);
      Explained old{before, draw};
      Explained wanted{after, draw};
      const auto differences =
            differencesOf(space, draw.family, {&before, draw.tcpFlags}, {&after, draw.tcpFlags});
      for (const TreatedOtherwise& each : differences.found) {
         EXPECT_EQ(old.classOf(each.witness), each.before.className) << "round " << round;
         EXPECT_EQ(wanted.classOf(each.witness), each.after.className) << "round " << round;
         ++confirmed;
      }
   }
   EXPECT_GT(confirmed, 3'000);
}

// Differences by design: what the witness meets is the rule that does otherwise.
TEST(Witness, explainConfirmsTheDesignOfAThousandPolicies) {
   Random random{23};
   PacketSpace space{small};
   std::map<Design, int> confirmed;
   for (int round = 0; round < 1'000; ++round) {
      const Draw draw{chance(random, 50) ? Family::ipv4 : Family::ipv6, chance(random, 50)};
      const auto policy = randomPolicy(random, draw);
      Explained explained{policy, draw};
      const Proof proof =
            prove(space, policy, {draw.family, draw.tcpFlags}, explained.compiled().acl());
      EXPECT_EQ(proof.verdict, Verdict::proven) << "round " << round;
      for (const ByDesign& each : proof.byDesign) {
         const std::string got = explained.classOf(each.witness);
         const std::size_t meant = firstClass(policy, each.witness, draw, false);
         const std::string wanted =
               meant == policy.classes.size() ? "" : policy.classes[meant].name.text;
         if (each.design == Design::dscpNotRewritten) {
            EXPECT_EQ(got, each.className) << "round " << round;
         } else {
            EXPECT_NE(got, wanted) << "round " << round;
            EXPECT_TRUE(got == each.className || wanted == each.className) << "round " << round;
         }
         ++confirmed[each.design];
      }
   }
   EXPECT_GT(confirmed[Design::onlyTcpAndUdp], 300);
   EXPECT_GT(confirmed[Design::dscpNotRewritten], 300);
   EXPECT_GT(confirmed[Design::tcpFlagsNotCompared], 50);
}

} // namespace
