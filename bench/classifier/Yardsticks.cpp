#include "Yardsticks.h"

#include <algorithm>
#include <bit>
#include <map>

namespace Bench {

using Postcard::Classifier::RuleMatch;
using Postcard::Packets::Packet;

// ---- Scan ----

Scan::Scan(Orlix::AddressFamily family, std::span<const RuleMatch> rules)
   : words_{wordCount(family)} {
   for (const RuleMatch& rule : rules) {
      const TernaryWords words = wordsOf(rule, family);
      for (std::size_t word = 0; word < words_; ++word) {
         rules_.push_back(words.value[word]);
         rules_.push_back(words.mask[word]);
      }
   }
}

namespace {

template <std::size_t size>
std::size_t firstIn(std::span<const U64> rules, const Words& key) {
   for (std::size_t at = 0; at < rules.size(); at += 2 * size) {
      U64 difference = 0;
      for (std::size_t word = 0; word < size; ++word) {
         difference |= (key[word] ^ rules[at + 2 * word]) & rules[at + 2 * word + 1];
      }
      if (difference == 0) {
         return at / (2 * size);
      }
   }
   return notFound;
}

} // namespace

std::size_t Scan::first(const Packet& packet) const {
   const Words key = wordsOf(packet);
   return words_ == 3 ? firstIn<3>(rules_, key) : firstIn<6>(rules_, key);
}

// ---- Tuple space ----

std::size_t TupleSpace::hash(const Words& value) {
   constexpr U64 odd = 0x9e3779b97f4a7c15;
   U64 mixed = 0;
   for (const U64 word : value) {
      mixed = (std::rotl(mixed, 29) ^ word) * odd;
   }
   return static_cast<std::size_t>(mixed >> 32);
}

// The slot that holds `value`, or the free one where it belongs.
const TupleSpace::Slot& TupleSpace::slotOf(const Tuple& tuple, const Words& value) {
   const std::size_t last = tuple.slots.size() - 1;
   std::size_t at = hash(value) & last;
   while (tuple.slots[at].rule != 0 && tuple.slots[at].value != value) {
      at = (at + 1) & last;
   }
   return tuple.slots[at];
}

TupleSpace::TupleSpace(Orlix::AddressFamily family, std::span<const RuleMatch> rules) {
   std::map<Words, std::vector<U32>> byMask;
   std::vector<TernaryWords> words;
   for (const RuleMatch& rule : rules) {
      words.push_back(wordsOf(rule, family));
      byMask[words.back().mask].push_back(static_cast<U32>(words.size() - 1));
   }
   for (const auto& [mask, members] : byMask) {
      Tuple tuple{mask, members.front(), std::vector<Slot>(std::bit_ceil(2 * members.size() + 1))};
      for (const U32 rule : members) {
         auto& slot = const_cast<Slot&>(slotOf(tuple, words[rule].value));
         if (slot.rule == 0) {
            slot = {words[rule].value, rule + 1};
         }
      }
      tuples_.push_back(std::move(tuple));
   }
   std::ranges::sort(tuples_, {}, &Tuple::firstRule);
}

std::size_t TupleSpace::first(const Packet& packet) const {
   const Words key = wordsOf(packet);
   std::size_t found = notFound;
   for (const Tuple& tuple : tuples_) {
      if (tuple.firstRule >= found) {
         break;
      }
      Words masked;
      for (std::size_t word = 0; word < key.size(); ++word) {
         masked[word] = key[word] & tuple.mask[word];
      }
      if (const Slot& slot = slotOf(tuple, masked); slot.rule != 0) {
         found = std::min<std::size_t>(found, slot.rule - 1);
      }
   }
   return found;
}

} // namespace Bench
