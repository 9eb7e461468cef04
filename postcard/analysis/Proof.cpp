#include "postcard/analysis/Proof.h"

#include "postcard/analysis/RegionSets.h"
#include "postcard/analysis/RuleRuns.h"
#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <algorithm>

namespace Postcard::Analysis {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using Packets::Packet;

namespace {

std::string_view sampledText(bool sampled) {
   return sampled ? "sampled" : "not sampled";
}

class Prover {
 public:
   Prover(PacketSpace& space, const Policy::Policy& policy, const Circumstances& circumstances,
          const PostcardTelemetryAclConfig& acl)
      : space_{space},
        circumstances_{circumstances},
        acl_{acl},
        built_{classRegions(policy, circumstances, Reading::built)},
        meant_{classRegions(policy, circumstances, Reading::meant)},
        residues_{space, built_, circumstances.family} {
      proof_.policy = policy.name.text;
      proof_.family = circumstances.family;
      proof_.rules = acl.ruleByIndexs();
   }

   Proof prove() {
      space_.beginQuestion();
      try {
         proveRules(ruleRuns(space_, acl_, built_, circumstances_.family));
      } catch (const LimitReached&) {
         undecidedFrom(0);
      }
      findDesign();
      if (!proof_.departures.empty()) {
         proof_.verdict = Verdict::departs;
      } else if (!proof_.notDecided.empty()) {
         proof_.verdict = Verdict::notDecided;
      }
      return std::move(proof_);
   }

 private:
   void undecided(std::size_t place) {
      const std::string& name = built_[place].which->name.text;
      if (std::ranges::find(proof_.notDecided, name) == proof_.notDecided.end()) {
         proof_.notDecided.push_back(name);
      }
   }
   // Nothing that was in the making is used.
   void startAnew() {
      residues_.forget();
      space_.reset();
   }
   void undecidedFrom(std::size_t place) {
      startAnew();
      for (; place < built_.size(); ++place) {
         undecided(place);
      }
   }

   // ---- Rules against the reading `built` ----

   // A packet departs when the first run that takes it is not of the first class that takes it.
   // Then either the classes whose rules take it do not begin with the class whose filter is the
   // first to take it, or a run of a later class stands before one of an earlier class. The two are
   // looked for one after the other. Where there is both, one may make up for the other: a witness
   // that does not depart is dropped, and when no other is found, every run is looked at.
   void proveRules(const std::vector<RuleRun>& runs) {
      bool dropped = !compareSets(runs);
      dropped = !compareOrder(runs) || dropped;
      if (dropped && proof_.departures.empty()) {
         compareRunByRun(runs);
      }
   }

   // A packet that only one of class and rules takes departs, unless an earlier class has it in
   // either way. Returns whether every witness departed.
   bool compareSets(const std::vector<RuleRun>& runs) {
      // Rules of no class take what they take from a class behind all others, which takes nothing.
      std::vector<PacketSet> ofRules(built_.size() + 1);
      for (const RuleRun& run : runs) {
         ofRules[run.place] |= run.packets;
      }
      bool confirmed = true;
      for (std::size_t place = 0; place < ofRules.size(); ++place) {
         const PacketSet& wanted = alone(place);
         if (ofRules[place] == wanted) {
            continue;
         }
         PacketSet different = (wanted - ofRules[place]) | (ofRules[place] - wanted);
         for (std::size_t earlier = 0; earlier < place && !different.empty(); ++earlier) {
            different -= residues_.alone(earlier);
            different -= ofRules[earlier];
         }
         confirmed = depart(different, place) && confirmed;
      }
      return confirmed;
   }

   // Packets that a run takes before one of an earlier class does. Returns whether every witness
   // departed.
   bool compareOrder(const std::vector<RuleRun>& runs) {
      bool confirmed = true;
      for (std::size_t at = 0; at < runs.size(); ++at) {
         for (std::size_t later = at + 1; later < runs.size(); ++later) {
            if (runs[later].place >= runs[at].place || concerns(runs[later].place)) {
               continue;
            }
            PacketSet wrong = runs[at].packets & runs[later].packets;
            for (std::size_t before = 0; before < at && !wrong.empty(); ++before) {
               wrong -= runs[before].packets;
            }
            confirmed = depart(wrong, runs[later].place) && confirmed;
         }
      }
      return confirmed;
   }

   // Dear, and right for all sets and orders: what the runs of a class are the first to take must
   // be what the class gets.
   void compareRunByRun(const std::vector<RuleRun>& runs) {
      std::vector<PacketSet> reached(built_.size() + 1);
      PacketSet taken;
      for (const RuleRun& run : runs) {
         reached[run.place] |= run.packets - taken;
         taken |= run.packets;
      }
      for (std::size_t place = 0; place < reached.size(); ++place) {
         const PacketSet wanted =
               place < built_.size() ? residues_.left(alone(place), place) : PacketSet{};
         depart((wanted - reached[place]) | (reached[place] - wanted), place);
      }
   }

   // What the filter at `place` takes; nothing behind the last one.
   const PacketSet& alone(std::size_t place) {
      return place < built_.size() ? residues_.alone(place) : nothing_;
   }

   // Whether a departure of the class at `place` is known.
   bool concerns(std::size_t place) const {
      return std::ranges::find(proof_.departures, built_[place].which->name.text,
                               &Departure::className) != proof_.departures.end();
   }

   // Notes that the class at `place` has a departure when there is a packet in `different`. Returns
   // false, and notes nothing, when that packet does not depart.
   bool depart(const PacketSet& different, std::size_t place) {
      const auto witness = space_.packetIn(different, circumstances_.family);
      if (!witness) {
         return true;
      }
      const std::size_t wanted = firstMatch(built_, *witness);
      const RuleFate fate = fateIn(acl_, built_, circumstances_.family, *witness);
      const bool taken = !fate.rule.empty();
      if (fate.place == wanted && taken == (wanted < built_.size())) {
         return false;
      }
      Departure departure{{}, {}, *witness, "no class", "no rule"};
      if (!built_.empty()) {
         // Packets that no class should have concern the last class.
         const Policy::Name& name = built_[std::min(place, built_.size() - 1)].which->name;
         departure.className = name.text;
         departure.location = name.location;
      }
      if (wanted < built_.size()) {
         const Policy::Class& each = *built_[wanted].which;
         departure.meant =
               fmt::format("class '{}', {}", each.name.text, sampledText(Policy::samples(each)));
      }
      if (taken) {
         departure.done =
               fmt::format("rule '{}', {}{}", fate.rule.view(), sampledText(fate.sampled),
                           fate.marks ? ", DSCP rewritten" : "");
      }
      proof_.departures.push_back(std::move(departure));
      return true;
   }

   // ---- The reading `built` against `meant` ----

   void findDesign() {
      for (std::size_t place = 0; place < built_.size(); ++place) {
         try {
            findDesign(place);
         } catch (const LimitReached& limit) {
            // After the time is up, classes whose difference is easily seen still get a witness.
            if (!limit.timeIsUp()) {
               startAnew();
            }
            undecided(place);
         }
      }
   }

   void findDesign(std::size_t place) {
      const Policy::Class& each = *built_[place].which;
      const Policy::Filter& filter = *each.filter(circumstances_.family);
      if (filter.protocols.empty()) {
         add(Design::onlyTcpAndUdp, place, differing(place));
      }
      if (!circumstances_.tcpFlags &&
          std::ranges::any_of(filter.protocols, [](const Policy::ProtocolMatch& match) {
             return !match.tcpFlags.empty();
          })) {
         add(Design::tcpFlagsNotCompared, place, differing(place));
      }
      if (const Policy::Action* mark = actionOf(each, Policy::ActionKind::setDscp)) {
         auto witness = firstOf(place);
         if (witness) {
            witness->dscp = mark->dscp == 0 ? 1 : 0; // differs from what the class asks for
         }
         add(Design::dscpNotRewritten, place, witness);
      }
   }

   void add(Design design, std::size_t place, const std::optional<Packet>& witness) {
      if (witness) {
         const Policy::Name& name = built_[place].which->name;
         proof_.byDesign.push_back({design, name.text, name.location, *witness});
      }
   }

   // A packet that the class at `place` is the first to take in one of the readings and does not
   // take in the other.
   std::optional<Packet> differing(std::size_t place) {
      // Most classes show the difference in a packet of another protocol that nobody before takes.
      using Protocols = std::pair<U8, U8>;
      const bool ipv4 = circumstances_.family == Policy::Family::ipv4;
      const Protocols below{U8{0}, U8{5}};
      const Protocols between{U8{7}, U8{16}};
      const Protocols above{U8{18}, U8{255}};
      // The protocols with ICMP among them come first.
      for (const auto& [low, high] : {ipv4 ? below : above, between, ipv4 ? above : below}) {
         Region other;
         other.lowProtocol = low;
         other.highProtocol = high;
         const auto packet = commonPacket(meant_[place].regions, {other}, circumstances_.family);
         if (packet && firstMatch(meant_, *packet) == place) {
            return packet;
         }
      }
      const PacketSet built = residues_.alone(place);
      const PacketSet meant = setOf(space_, meant_[place].regions);
      PacketSet different = (meant - built) | (built - meant);
      for (std::size_t earlier = 0; earlier < place && !different.empty(); ++earlier) {
         different -= residues_.alone(earlier);
         different -= setOf(space_, meant_[earlier].regions);
      }
      return space_.packetIn(different, circumstances_.family);
   }

   // A packet whose first match is the class at `place`.
   std::optional<Packet> firstOf(std::size_t place) {
      const auto any = commonPacket(built_[place].regions, {Region{}}, circumstances_.family);
      if (!any || firstMatch(built_, *any) == place) {
         return any;
      }
      return space_.packetIn(residues_.left(residues_.alone(place), place), circumstances_.family);
   }

   PacketSpace& space_;
   const Circumstances circumstances_;
   const PostcardTelemetryAclConfig& acl_;
   const std::vector<ClassRegions> built_;
   const std::vector<ClassRegions> meant_;
   Residues residues_;
   const PacketSet nothing_;
   Proof proof_;
};

} // namespace

Proof prove(PacketSpace& space, const Policy::Policy& policy, const Circumstances& circumstances,
            const PostcardTelemetryAclConfig& acl) {
   return Prover{space, policy, circumstances, acl}.prove();
}

} // namespace Postcard::Analysis
