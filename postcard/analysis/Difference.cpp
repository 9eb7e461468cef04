#include "postcard/analysis/Difference.h"

#include "postcard/analysis/RegionSets.h"
#include "postcard/analysis/Words.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace Postcard::Analysis {

namespace {

Treatment treatmentBy(const Policy::Class& each, Policy::Family family) {
   return {each.name.text, each.name.location, samplingRate(each, family)};
}

// A difference in rate counts although each packet is sampled in both versions: whoever reads the
// samples multiplies by the rate. Absent: the two treatments are the same. The places of the
// classes do not count.
std::optional<Difference> differenceOf(const Treatment& before, const Treatment& after) {
   if (before.sampled() != after.sampled()) {
      return Difference::sampling;
   }
   if (before.rate != after.rate) {
      return Difference::rate;
   }
   return before.className == after.className ? std::nullopt : std::optional{Difference::className};
}

std::vector<ClassRegions> classesOf(const Version& version, Policy::Family family) {
   if (version.policy == nullptr) {
      return {};
   }
   return classRegions(*version.policy, {family, version.tcpFlags}, Reading::built);
}

// The classes of one version, and what each of them gets.
class Gains {
 public:
   Gains(PacketSpace& space, Policy::Family family, const Version& version)
      : family_{family},
        classes_{classesOf(version, family)},
        residues_{space, classes_, family},
        known_(classes_.size()) {}

   std::size_t size() const { return classes_.size(); }
   const ClassRegions& at(std::size_t place) const { return classes_[place]; }
   const std::string& name(std::size_t place) const { return at(place).which->name.text; }
   Treatment treatment(std::size_t place) const { return treatmentBy(*at(place).which, family_); }
   std::vector<std::size_t> rivals(std::size_t place) const { return residues_.rivals(place); }

   // The packets whose first match is the class at `place`. Throws LimitReached.
   const PacketSet& of(std::size_t place) {
      std::optional<PacketSet>& gains = known_[place];
      return gains ? *gains : gains.emplace(residues_.left(residues_.alone(place), place));
   }
   void forget() {
      residues_.forget();
      std::ranges::fill(known_, std::nullopt);
   }

 private:
   Policy::Family family_;
   const std::vector<ClassRegions> classes_;
   Residues residues_;
   std::vector<std::optional<PacketSet>> known_;
};

class Comparer {
 public:
   Comparer(PacketSpace& space, Policy::Family family, const Version& before, const Version& after)
      : space_{space},
        family_{family},
        before_{space, family, before},
        after_{space, family, after} {}

   Differences compare() {
      space_.beginQuestion();
      setAsideEqualGains();
      for (std::size_t place = 0; place < before_.size(); ++place) {
         unlessLimited(false, before_, place, [&] { compareAt(place); });
      }
      for (std::size_t place = 0; place < after_.size(); ++place) {
         unlessLimited(true, after_, place, [&] { findGained(place); });
      }
      return std::move(differences_);
   }

 private:
   template <class Work>
   void unlessLimited(bool after, const Gains& gains, std::size_t place, Work work) {
      if ((after ? equalAfter_ : equalBefore_).contains(place)) {
         return;
      }
      try {
         work();
      } catch (const LimitReached& limit) {
         // What was found before the limit is sound: an operation that reaches it throws at once.
         if (!limit.timeIsUp()) {
            before_.forget();
            after_.forget();
            space_.reset();
         }
         differences_.notDecided.push_back({after, gains.name(place)});
      }
   }

   // ---- Classes that get the same in both versions ----

   // A class gets the same when its filter and those of the earlier classes that meet it are the
   // same, in whatever order these stand. Such classes share no packet with what any other class
   // gets, so nobody needs to look at them again.
   //
   // The twin of a class is the class of the later version with the same name and filter.
   void setAsideEqualGains() {
      std::map<std::string_view, std::size_t> places;
      for (std::size_t place = 0; place < after_.size(); ++place) {
         places.emplace(after_.name(place), place);
      }
      std::vector<std::size_t> twins(before_.size(), after_.size()); // their number: no twin
      for (std::size_t place = 0; place < before_.size(); ++place) {
         const auto found = places.find(before_.name(place));
         if (found != places.end() &&
             before_.at(place).regions == after_.at(found->second).regions) {
            twins[place] = found->second;
         }
      }
      for (std::size_t place = 0; place < before_.size(); ++place) {
         if (twins[place] != after_.size() && sameRivals(twins, place)) {
            setAside(place, twins[place]);
         }
      }
   }

   bool sameRivals(const std::vector<std::size_t>& twins, std::size_t place) const {
      std::set<std::size_t> rivals;
      for (const std::size_t rival : before_.rivals(place)) {
         if (twins[rival] == after_.size()) {
            return false;
         }
         rivals.insert(twins[rival]);
      }
      const std::vector<std::size_t> others = after_.rivals(twins[place]);
      return rivals == std::set<std::size_t>{others.begin(), others.end()};
   }

   // The regions hold all that decides about the rate but whether a class samples at all.
   void setAside(std::size_t place, std::size_t twin) {
      if (!differenceOf(before_.treatment(place), after_.treatment(twin))) {
         equalBefore_.insert(place);
         equalAfter_.insert(twin);
      }
   }

   // ---- All others ----

   bool meet(std::size_t place, std::size_t other) const {
      return commonPacket(before_.at(place).regions, after_.at(other).regions, family_).has_value();
   }

   // No packet is in what two classes of one version get. So whatever one class of the later
   // version takes of `rest` need not be looked for in the others.
   void compareAt(std::size_t place) {
      PacketSet rest = before_.of(place);
      for (std::size_t other = 0; other < after_.size() && !rest.empty(); ++other) {
         if (equalAfter_.contains(other) || !meet(place, other)) {
            continue;
         }
         const PacketSet common = rest & after_.of(other);
         if (!common.empty()) {
            rest -= common;
            note(common, before_.treatment(place), after_.treatment(other));
         }
      }
      note(rest, before_.treatment(place), {});
   }

   // What no class of the earlier version takes.
   void findGained(std::size_t place) {
      PacketSet rest = after_.of(place);
      for (std::size_t other = 0; other < before_.size() && !rest.empty(); ++other) {
         if (!equalBefore_.contains(other) && meet(other, place)) {
            rest -= before_.of(other);
         }
      }
      note(rest, {}, after_.treatment(place));
   }

   void note(const PacketSet& packets, const Treatment& before, const Treatment& after) {
      const auto difference = differenceOf(before, after);
      if (!difference) {
         return;
      }
      if (const auto witness = space_.packetIn(packets, family_)) {
         differences_.found.push_back(
               {*difference, before, after, *witness, inWords(space_, packets, family_)});
      }
   }

   PacketSpace& space_;
   const Policy::Family family_;
   Gains before_;
   Gains after_;
   std::set<std::size_t> equalBefore_; // places of classes that are set aside
   std::set<std::size_t> equalAfter_;
   Differences differences_;
};

} // namespace

std::string_view codeName(Difference difference) {
   switch (difference) {
   case Difference::sampling:
      return "sampling";
   case Difference::rate:
      return "rate";
   case Difference::className:
      return "class";
   }
   return {}; // no other difference exists
}

Differences differencesOf(PacketSpace& space, Policy::Family family, const Version& before,
                          const Version& after) {
   return Comparer{space, family, before, after}.compare();
}

} // namespace Postcard::Analysis
