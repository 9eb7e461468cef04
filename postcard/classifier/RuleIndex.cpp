#include "postcard/classifier/RuleIndex.h"

#include "postcard/classifier/Groups.h"

#include <algorithm>
#include <bit>

namespace Postcard::Classifier {

// ---- Building ----

class RuleIndex::Builder {
 public:
   Builder(RuleIndex& index, std::span<const RuleMatch> rules) : index_{index}, rules_{rules} {}

   void build();

 private:
   using Words = FieldMatch<U16> RuleMatch::*;

   // `asked(rule)` is the prefix that the rule asks for; absent when it asks for none.
   template <class Asked>
   std::optional<PrefixField> prefixField(const Asked& asked);
   // `asked(rule)` is a `FieldMatch<U8>`.
   template <class Asked>
   std::optional<ByteField> byteField(const Asked& asked);
   WordField wordField(Words field);
   PrefixTree treeOf(std::span<const Groups::Group> groups, Set absent);
   void insert(std::span<const U32> rules);
   // A set of the rules that were inserted into no group.
   template <class Asks>
   Set setOfOthers(const Asks& asks);

   RuleIndex& index_;
   std::span<const RuleMatch> rules_;
   bool rounded_ = false; // some mask
};

namespace {

bool isPrefixMask(U16 mask) {
   return std::countl_one(mask) == std::popcount(mask);
}

// The bits of `data` under the first bits of `mask` that are set in a row.
Prefix leadingBits(U16 data, U16 mask) {
   const int length = std::countl_one(mask);
   Bits value = highestFirst(data);
   value.high &= firstOf64(static_cast<unsigned>(length));
   return {value, static_cast<U8>(length)};
}

bool equalUnder(unsigned mask, unsigned a, unsigned b) {
   return ((a ^ b) & mask) == 0;
}

// The 256 values of a byte, divided into classes numbered from 0.
class ByteClasses {
 public:
   std::size_t count() const { return count_; }
   U8 of(std::size_t value) const { return classOf_.at(value); }

   // Divides each class that holds values equal to `data` under `mask` and others as well.
   void split(U8 data, U8 mask) {
      std::array<U16, 256> others{}; // by class, its values that are not equal
      for (unsigned value = 0; value < 256; ++value) {
         if (!equalUnder(mask, value, data)) {
            ++others[classOf_[value]];
         }
      }
      std::array<U16, 256> becomes{}; // by class, that of its equal values; 0: not divided yet
      for (unsigned value = 0; value < 256; ++value) {
         U8& each = classOf_[value];
         if (equalUnder(mask, value, data) && others[each] != 0) {
            U16& divided = becomes[each];
            divided = divided == 0 ? count_++ : divided;
            each = static_cast<U8>(divided);
         }
      }
   }

 private:
   std::array<U8, 256> classOf_{};
   U16 count_ = 1; // no class is empty, so at most 256
};

} // namespace

void RuleIndex::Builder::insert(std::span<const U32> rules) {
   for (const U32 rule : rules) {
      index_.sets_.insert(rule);
   }
}

template <class Asks>
RuleIndex::Set RuleIndex::Builder::setOfOthers(const Asks& asks) {
   const Set set = index_.sets_.child(0);
   for (U32 rule = 0; rule < rules_.size(); ++rule) {
      if (!rules_[rule].impossible && !asks(rules_[rule])) {
         index_.sets_.insert(rule);
      }
   }
   return set;
}

PrefixTree RuleIndex::Builder::treeOf(std::span<const Groups::Group> groups, Set absent) {
   std::vector<PrefixTree::Labelled> labelled;
   labelled.reserve(groups.size());
   // The prefixes that contain the present one, longest last.
   std::vector<PrefixTree::Labelled> path;
   for (const Groups::Group& group : groups) {
      while (!path.empty() && !path.back().prefix.contains(group.asked.value)) {
         path.pop_back();
      }
      const Set set = index_.sets_.child(path.empty() ? absent : path.back().label);
      insert(group.rules);
      labelled.push_back({group.asked, set});
      path.push_back(labelled.back());
   }
   return PrefixTree{labelled, absent};
}

template <class Asked>
std::optional<RuleIndex::PrefixField> RuleIndex::Builder::prefixField(const Asked& asked) {
   Groups groups;
   for (U32 rule = 0; rule < rules_.size(); ++rule) {
      if (const std::optional<Prefix> prefix = asked(rules_[rule]);
          prefix && !rules_[rule].impossible) {
         groups.add(rule, *prefix);
      }
   }
   if (groups.empty()) {
      return std::nullopt;
   }
   const Set absent = setOfOthers(asked);
   return PrefixField{treeOf(groups.sorted(), absent), absent};
}

RuleIndex::WordField RuleIndex::Builder::wordField(Words field) {
   // A rule whose mask is no prefix stands in the direction in which more of the mask counts.
   const auto suitsHighest = [](U16 mask) {
      return std::countl_one(mask) >= std::countr_one(mask);
   };
   const auto fromHighest = [&](const RuleMatch& rule) -> std::optional<Prefix> {
      const auto& [asks, data, mask] = rule.*field;
      if (!asks || !suitsHighest(mask)) {
         return std::nullopt;
      }
      rounded_ = rounded_ || !isPrefixMask(mask);
      return leadingBits(data, mask);
   };
   const auto fromLowest = [&](const RuleMatch& rule) -> std::optional<Prefix> {
      const auto& [asks, data, mask] = rule.*field;
      if (!asks || suitsHighest(mask)) {
         return std::nullopt;
      }
      rounded_ = rounded_ || !isPrefixMask(reversed(mask));
      return leadingBits(reversed(data), reversed(mask));
   };
   return {prefixField(fromHighest), prefixField(fromLowest)};
}

template <class Asked>
std::optional<RuleIndex::ByteField> RuleIndex::Builder::byteField(const Asked& asked) {
   Groups groups;
   for (U32 rule = 0; rule < rules_.size(); ++rule) {
      if (const FieldMatch<U8> match = asked(rules_[rule]);
          match.asked && !rules_[rule].impossible) {
         const auto data = static_cast<U64>(match.data & match.mask);
         groups.add(rule, {{data << 8 | match.mask, 0}, 0}); // grouped, not read as a prefix
      }
   }
   if (groups.empty()) {
      return std::nullopt;
   }
   const std::vector<Groups::Group> sorted = groups.sorted();
   ByteClasses classes;
   for (const Groups::Group& group : sorted) {
      classes.split(static_cast<U8>(group.asked.value.high >> 8),
                    static_cast<U8>(group.asked.value.high));
   }
   ByteField field{{}, setOfOthers([&](const RuleMatch& rule) { return asked(rule).asked; })};
   std::vector<Set> sets(classes.count(), 0); // by class; 0: not made yet
   for (unsigned value = 0; value < 256; ++value) {
      Set& set = sets[classes.of(value)];
      if (set == 0) {
         set = index_.sets_.child(field.absent);
         for (const Groups::Group& group : sorted) {
            const auto match = static_cast<unsigned>(group.asked.value.high);
            if (equalUnder(match & 0xffU, value, match >> 8)) {
               insert(group.rules);
            }
         }
      }
      field.sets.at(value) = set;
   }
   return field;
}

void RuleIndex::Builder::build() {
   const auto address = [](const Prefix& prefix) {
      return prefix.length == 0 ? std::nullopt : std::optional{prefix};
   };
   index_.source_ = prefixField([&](const RuleMatch& rule) { return address(rule.source); });
   index_.destination_ =
         prefixField([&](const RuleMatch& rule) { return address(rule.destination); });
   index_.protocol_ = byteField([](const RuleMatch& rule) {
      return FieldMatch<U8>{true, rule.protocol, 0xff};
   });
   index_.tcpFlags_ = byteField([](const RuleMatch& rule) { return rule.tcpFlags; });
   index_.sourcePort_ = wordField(&RuleMatch::sourcePort);
   index_.destinationPort_ = wordField(&RuleMatch::destinationPort);
   index_.checksum_ = wordField(&RuleMatch::checksum);
   index_.identification_ = wordField(&RuleMatch::identification);
   index_.sets_.finish();
   if (rounded_) {
      index_.exact_.assign(rules_.begin(), rules_.end());
   }
}

RuleIndex::RuleIndex(Orlix::AddressFamily family, std::span<const RuleMatch> rules)
   : family_{family}, sets_{rules.size()} {
   Builder{*this, rules}.build();
}

// ---- Looking up ----

void RuleIndex::look(Found& found, const std::optional<PrefixField>& field, Bits value) const {
   if (field) {
      found.add(field->tree.find(value));
      sets_.prefetch(found.sets[found.count - 1]);
   }
}

void RuleIndex::look(Found& found, const WordField& field, const std::optional<U16>& value) const {
   if (value) {
      look(found, field.fromHighest, highestFirst(*value));
      look(found, field.fromLowest, highestFirst(reversed(*value)));
      return;
   }
   for (const auto* direction : {&field.fromHighest, &field.fromLowest}) {
      if (*direction) {
         found.add((*direction)->absent);
      }
   }
}

RuleIndex::Found RuleIndex::setsOf(const Packets::Packet& packet) const {
   const bool ipv4 = family_ == Orlix::AddressFamily::ipv4;
   Found found;
   look(found, source_, addressBits(packet.source.data(), ipv4));
   look(found, destination_, addressBits(packet.destination.data(), ipv4));
   if (protocol_) {
      found.add(protocol_->sets[packet.protocol]);
   }
   if (tcpFlags_) {
      found.add(packet.tcpFlags ? tcpFlags_->sets[*packet.tcpFlags] : tcpFlags_->absent);
   }
   look(found, sourcePort_, packet.sourcePort);
   look(found, destinationPort_, packet.destinationPort);
   look(found, checksum_, packet.checksum);
   look(found, identification_, packet.identification);
   return found;
}

std::size_t RuleIndex::first(const Packets::Packet& packet) const {
   std::size_t found = notFound;
   visitAll(packet, [&](std::size_t rule) {
      found = rule;
      return true;
   });
   return found;
}

RuleIndex::Form RuleIndex::form() const {
   return {sets_,       source_,          destination_, protocol_,       tcpFlags_,
           sourcePort_, destinationPort_, checksum_,    identification_, exact_};
}

namespace {

template <class Field>
std::size_t treeBytes(const std::optional<Field>& field) {
   return field ? field->tree.bytes() : 0;
}

} // namespace

std::size_t RuleIndex::bytes() const {
   std::size_t bytes = sets_.bytes() + exact_.capacity() * sizeof(RuleMatch);
   bytes += treeBytes(source_) + treeBytes(destination_);
   for (const WordField* field : {&sourcePort_, &destinationPort_, &checksum_, &identification_}) {
      bytes += treeBytes(field->fromHighest) + treeBytes(field->fromLowest);
   }
   return bytes;
}

} // namespace Postcard::Classifier
