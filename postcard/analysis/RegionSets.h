// `setOf`: the exact set of a region or of a list of them; `Residues`: what each class of a policy
// gets after the classes before it. Relies on `PacketSet` and `Region`.
#pragma once

#include "postcard/analysis/PacketSet.h"
#include "postcard/analysis/Region.h"

#include <cstddef>
#include <vector>

namespace Postcard::Analysis {

// Throw LimitReached.
PacketSet setOf(const PacketSpace& space, const SampleBits& sample);
PacketSet setOf(const PacketSpace& space, const Region& region);
PacketSet setOf(const PacketSpace& space, const std::vector<Region>& regions);

// The packets whose first match is each class.
//
// Only earlier classes that have a packet in common with a class are subtracted, the broadest
// first: a set shrinks to nothing early or stays simple. One union of all earlier classes would
// grow with every class and not end; uniting what each of them takes was slower, too.
class Residues {
 public:
   // Both references must outlive this object; `classes` must not change.
   Residues(PacketSpace& space, const std::vector<ClassRegions>& classes, Policy::Family family);

   // What is left of `part` of class `place` when earlier classes have taken theirs. Throws
   // LimitReached.
   PacketSet left(const PacketSet& part, std::size_t place);

   // The places of the earlier classes that take something of `part`, when they are subtracted one
   // by one, the broadest first. Dearer than `left` unless few classes take all. Throws
   // LimitReached.
   std::vector<std::size_t> takers(const PacketSet& part, std::size_t place);

   // What the class at `place` takes when it stands alone. Throws LimitReached.
   const PacketSet& alone(std::size_t place);

   // The places of the classes before `place` that have a packet in common with it, the broadest
   // first. Needs no diagram.
   std::vector<std::size_t> rivals(std::size_t place) const;

   // Forgets all sets: for the caller of `PacketSpace::reset`.
   void forget();

 private:
   PacketSpace& space_;
   const std::vector<ClassRegions>& classes_;
   Policy::Family family_;
   std::vector<PacketSet> alone_;
   std::vector<bool> known_;     // whether `alone_` has the set
   std::vector<double> breadth_; // of each class: about the logarithm of its share of all packets
};

} // namespace Postcard::Analysis
