// `Scan` and `TupleSpace`: two other ways to find the first rule that matches a packet, as
// yardsticks for `RuleIndex`. Rely on `Words`.
#pragma once

#include "Words.h"

#include <span>
#include <vector>

namespace Bench {

inline constexpr std::size_t notFound = static_cast<std::size_t>(-1);

// Compares the packet with one rule after another, three or six words each in a flat array.
class Scan {
 public:
   Scan(Orlix::AddressFamily family, std::span<const Postcard::Classifier::RuleMatch> rules);

   // The place of the first rule that matches, or `notFound`.
   std::size_t first(const Postcard::Packets::Packet& packet) const;

 private:
   std::size_t words_;      // of a value or mask
   std::vector<U64> rules_; // value and mask of a rule word by word, rule after rule
};

// A hash table for each combination of masks that rules have. A packet is looked up in one table
// after another, as long as a table may still hold an earlier rule than the one that was found.
class TupleSpace {
 public:
   TupleSpace(Orlix::AddressFamily family, std::span<const Postcard::Classifier::RuleMatch> rules);

   // The place of the first rule that matches, or `notFound`.
   std::size_t first(const Postcard::Packets::Packet& packet) const;

   std::size_t tuples() const { return tuples_.size(); }

 private:
   struct Slot {
      Words value;
      U32 rule; // the first with this value, plus 1; 0: free
   };
   struct Tuple {
      Words mask;
      U32 firstRule;
      std::vector<Slot> slots; // a power of two, at most half of them used
   };

   static std::size_t hash(const Words& value);
   static const Slot& slotOf(const Tuple& tuple, const Words& value);

   std::vector<Tuple> tuples_; // in the order of their first rules
};

} // namespace Bench
