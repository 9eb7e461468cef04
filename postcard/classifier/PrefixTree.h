// `PrefixTree`: the number that belongs to the longest of some prefixes that a value begins with.
// Internal to this room. Relies on `Bits`.
//
// A tree of tables. A node looks at as many bits at once as keep its table reasonably full: many
// prefixes side by side cost one step, and a long common beginning of all prefixes is compared as a
// whole and not walked. Where three prefixes or fewer are left, they stand in a list, longest
// first, and are compared one by one. So memory goes with the number of prefixes and not with their
// width or place: a few prefixes of IPv6 cost a few lists, and 65,536 ports cost one flat table.
#pragma once

#include "postcard/classifier/Bits.h"

#include <cstddef>
#include <span>
#include <vector>

namespace Postcard::Classifier {

class PrefixTree {
 public:
   // What belongs to a prefix.
   struct Labelled {
      Prefix prefix;
      U32 label = 0; // below 2^30
   };

   // `prefixes` must ascend, no two equal. `otherwise` belongs to values that begin with none of
   // them. Nothing of `prefixes` is referred to afterwards.
   PrefixTree(std::span<const Labelled> prefixes, U32 otherwise);

   // The label of the longest prefix that contains `value`. Allocates nothing.
   U32 find(Bits value) const;

   // Memory of the tables. At most 192 bytes per prefix.
   std::size_t bytes() const;

   // An entry is a label, or a place in `nodes` or `lists`, told apart by the two highest bits.
   using Entry = U32;
   static constexpr Entry kindMask = 3U << 30;
   static constexpr Entry nodeKind = 1U << 30;
   static constexpr Entry listKind = 2U << 30;

   // Where paths part. Values that do not begin with the first `depth` bits of `path` have
   // `otherwise`; for the others, the next `bits` bits choose an entry of `slots`.
   struct Node {
      Bits path;
      U32 otherwise; // a label
      U32 slots;     // where the table begins, 2^bits entries long
      U8 depth;
      U8 bits; // 1..16
   };

   // The tree as it lies in memory, for rooms that copy it to where packets are. A list in `lists`
   // ends with a prefix of length 0 and has at most `longestList` others. Valid as long as the
   // tree.
   static constexpr std::size_t longestList = 3; // comparing a fourth costs more than a table
   Entry root() const { return root_; }
   std::span<const Node> nodes() const { return nodes_; }
   std::span<const Entry> slots() const { return slots_; }
   std::span<const Labelled> lists() const { return lists_; }

 private:
   using Span = std::span<const Labelled>;

   static bool isLabel(Entry entry) { return (entry & kindMask) == 0; }
   Entry makeEntry(Span prefixes, unsigned depth, U32 inherited);
   Entry makeList(Span prefixes, U32 inherited);
   Entry makeNode(Span prefixes, U32 inherited);
   void fillSlots(U32 slots, Span prefixes, unsigned depth, unsigned bits, U32 inherited);
   Entry findInList(U32 place, Bits value) const;

   Entry root_ = 0;
   std::vector<Node> nodes_;
   std::vector<Entry> slots_;
   std::vector<Labelled> lists_; // each ends with a prefix that contains every value
};

} // namespace Postcard::Classifier
