// `RuleSets`: many sets of rules that resemble each other, and the first rule that some of them
// have in common. Internal to this room. Relies on nothing but integers.
//
// A set is a bitmap with a bit per rule, cut twice. A *leaf* is eight words, the bits of 512 rules,
// and one line of the processor's cache. A *chunk* is sixteen leaves, the bits of 8,192 rules: it
// names its leaves and holds a summary, a bit per word that tells whether the word is not 0. A
// set's *head* names its chunks, under a bit per chunk.
//
// Leaves and chunks are shared. A new set begins as its parent and names the same chunks. When a
// rule is added, the leaf and the chunk that hold the rule's bit are copied, unless the new set has
// copied them already. So a set costs what distinguishes it from its parent, whatever it inherits,
// and no rule that all sets have costs more than one bit.
//
// To find the first rule that is in all of several sets, the bits per chunk are ANDed, then the
// summaries of the chunks that are left, then the words that are left. The lowest bit that stays is
// the rule. Most words are never read, because some set has a 0 in the summary.
#pragma once

#include "Pello/Types.h"

#include <bit>
#include <cassert>
#include <cstddef>
#include <span>
#include <vector>

namespace Postcard::Classifier {

class RuleSets {
 public:
   using Set = U32; // a number, counted from 0 in the order of creation

   static constexpr std::size_t wordsPerLeaf = 8;
   static constexpr std::size_t leavesPerChunk = 16;
   static constexpr std::size_t rulesPerLeaf = wordsPerLeaf * 64;
   static constexpr std::size_t rulesPerChunk = leavesPerChunk * rulesPerLeaf;

   struct Chunk {
      U64 summary[2] = {0, 0};       // a bit per word
      U32 leaf[leavesPerChunk] = {}; // places in `leaves`
   };
   struct Leaf {
      U64 word[wordsPerLeaf] = {};
   };

   static constexpr std::size_t mostSets = 16; // that are intersected at once

   // For rules 0 to `rules - 1`. Holds one set, 0, which is empty.
   explicit RuleSets(std::size_t rules);

   // A new set with the rules of `parent`. `insert` is about the set made last.
   Set child(Set parent);
   // Adds a rule to the set made last. A rule that it has already stays.
   void insert(U32 rule);

   // Calls `visit` with rules that are in all of `sets`, in ascending order, until it returns true.
   // Returns whether it did. `sets` holds 1 to `mostSets` sets. Allocates nothing.
   template <class Visit>
   bool visitCommon(std::span<const Set> sets, const Visit& visit) const;

   // Fetches the head of a set into the cache, before `visitCommon` needs it.
   void prefetch(Set set) const { __builtin_prefetch(head(set)); }

   // Memory after `finish`: 144 bytes; per set, a head of 8 bytes and another 4 per 8,192 rules,
   // rounded up; and at most 144 bytes per insertion, for a chunk and a leaf.
   std::size_t bytes() const;

   // Gives back memory that was reserved for further sets. None may be made afterwards.
   void finish();

   // The sets as they lie in memory, for rooms that copy them to where packets are. Valid until the
   // next set or rule. A head is `headSize` numbers: `topsPerSet` of them with a bit per chunk,
   // then the places of the chunks in `chunks`.
   std::span<const U32> heads() const { return heads_; }
   std::span<const Chunk> chunks() const { return chunks_; }
   std::span<const Leaf> leaves() const { return leaves_; }
   std::size_t headSize() const { return headSize_; }
   std::size_t topsPerSet() const { return topsPerSet_; }

 private:
   U32 ownChunk(std::size_t chunk);
   U32 ownLeaf(U32 chunk, std::size_t leaf);
   template <class Visit>
   bool visitChunk(std::span<const Set> sets, std::size_t chunk, const Visit& visit) const;

   U32* head(Set set) { return &heads_[set * headSize_]; }
   const U32* head(Set set) const { return &heads_[set * headSize_]; }

   std::size_t chunksPerSet_;
   std::size_t topsPerSet_; // numbers of a bit per chunk
   std::size_t headSize_;   // both together
   // The heads of set 0, of set 1, and so on: first the bits per chunk, then the chunks as places
   // in `chunks_`. What a look-up reads together stands together.
   std::vector<U32> heads_;
   std::vector<Chunk> chunks_;
   std::vector<Leaf> leaves_;
   // The chunks and leaves from here on were made for the set made last and are its own.
   std::size_t firstOwnChunk_ = 1;
   std::size_t firstOwnLeaf_ = 1;
};

template <class Visit>
bool RuleSets::visitChunk(std::span<const Set> sets, std::size_t chunk, const Visit& visit) const {
   const Chunk* chunks[mostSets];
   U64 common[2] = {~U64{0}, ~U64{0}};
   for (std::size_t i = 0; i < sets.size(); ++i) {
      chunks[i] = &chunks_[head(sets[i])[topsPerSet_ + chunk]];
      common[0] &= chunks[i]->summary[0];
      common[1] &= chunks[i]->summary[1];
   }
   for (std::size_t half = 0; half < 2; ++half) {
      for (U64 words = common[half]; words != 0; words &= words - 1) {
         const std::size_t word = half * 64 + static_cast<std::size_t>(std::countr_zero(words));
         U64 rules = ~U64{0};
         for (std::size_t i = 0; i < sets.size(); ++i) {
            const Leaf& leaf = leaves_[chunks[i]->leaf[word / wordsPerLeaf]];
            rules &= leaf.word[word % wordsPerLeaf];
         }
         for (; rules != 0; rules &= rules - 1) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(rules));
            if (visit(static_cast<U32>(chunk * rulesPerChunk + word * 64 + bit))) {
               return true;
            }
         }
      }
   }
   return false;
}

template <class Visit>
bool RuleSets::visitCommon(std::span<const Set> sets, const Visit& visit) const {
   assert(!sets.empty() && sets.size() <= mostSets);
   for (std::size_t top = 0; top < topsPerSet_; ++top) {
      U32 live = ~U32{0};
      for (const Set set : sets) {
         live &= head(set)[top];
      }
      for (; live != 0; live &= live - 1) {
         const std::size_t chunk = top * 32 + static_cast<std::size_t>(std::countr_zero(live));
         if (visitChunk(sets, chunk, visit)) {
            return true;
         }
      }
   }
   return false;
}

} // namespace Postcard::Classifier
