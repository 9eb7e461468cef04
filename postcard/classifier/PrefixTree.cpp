#include "postcard/classifier/PrefixTree.h"

namespace Postcard::Classifier {

namespace {

using Labelled = PrefixTree::Labelled;

constexpr unsigned mostBits = 16;

// The bits that all prefixes begin with. Prefixes ascend, so the first and the last differ most,
// and a prefix that ends earlier is the first.
unsigned commonDepth(std::span<const Labelled> prefixes) {
   return std::min<unsigned>(
         prefixes.front().prefix.length,
         commonLength(prefixes.front().prefix.value, prefixes.back().prefix.value));
}

// How many entries of a table over the `bits` bits at `depth` the prefixes begin in.
std::size_t usedSlots(std::span<const Labelled> prefixes, unsigned depth, unsigned bits) {
   std::size_t used = 0;
   std::size_t last = ~std::size_t{0};
   for (const Labelled& each : prefixes) {
      const std::size_t slot = slice(each.prefix.value, depth, bits);
      used += slot != last ? 1U : 0U;
      last = slot;
   }
   return used;
}

// The width of the table at `depth`: the widest that is used to an eighth, which bounds memory.
unsigned tableBits(std::span<const Labelled> prefixes, unsigned depth) {
   const auto wanted = static_cast<unsigned>(std::bit_width(prefixes.size()));
   unsigned bits = std::min({wanted, mostBits, 64 - depth % 64});
   while (bits > 1 && usedSlots(prefixes, depth, bits) * 8 < std::size_t{1} << bits) {
      --bits;
   }
   return bits;
}

} // namespace

PrefixTree::PrefixTree(std::span<const Labelled> prefixes, U32 otherwise) {
   root_ = makeEntry(prefixes, 0, otherwise);
   nodes_.shrink_to_fit();
   slots_.shrink_to_fit();
   lists_.shrink_to_fit();
}

PrefixTree::Entry PrefixTree::makeEntry(Span prefixes, unsigned depth, U32 inherited) {
   if (!prefixes.empty() && prefixes.front().prefix.length <= depth) {
      inherited = prefixes.front().label;
      prefixes = prefixes.subspan(1);
   }
   if (prefixes.empty()) {
      return inherited;
   }
   return prefixes.size() <= longestList ? makeList(prefixes, inherited)
                                         : makeNode(prefixes, inherited);
}

PrefixTree::Entry PrefixTree::makeList(Span prefixes, U32 inherited) {
   const auto place = static_cast<Entry>(lists_.size());
   lists_.insert(lists_.end(), prefixes.rbegin(), prefixes.rend());
   lists_.push_back({{}, inherited});
   return listKind | place;
}

PrefixTree::Entry PrefixTree::makeNode(Span prefixes, U32 inherited) {
   const unsigned depth = commonDepth(prefixes);
   const Bits path = prefixes.back().prefix.value;
   const U32 otherwise = inherited;
   if (prefixes.front().prefix.length == depth) {
      inherited = prefixes.front().label;
      prefixes = prefixes.subspan(1);
   }
   // Prefixes that go on together would fill one slot of a wide table.
   const unsigned bits = commonDepth(prefixes) > depth ? 1 : tableBits(prefixes, depth);
   const auto node = static_cast<Entry>(nodes_.size());
   const auto slots = static_cast<U32>(slots_.size());
   nodes_.push_back({path, otherwise, slots, static_cast<U8>(depth), static_cast<U8>(bits)});
   slots_.resize(slots_.size() + (std::size_t{1} << bits), inherited);
   fillSlots(slots, prefixes, depth, bits, inherited);
   return nodeKind | node;
}

void PrefixTree::fillSlots(U32 slots, Span prefixes, unsigned depth, unsigned bits, U32 inherited) {
   const unsigned end = depth + bits;
   while (!prefixes.empty()) {
      const Labelled& first = prefixes.front();
      const std::size_t slot = slice(first.prefix.value, depth, bits);
      if (first.prefix.length < end) { // covers whole slots; those inside it come behind it
         const auto begin = slots_.begin() + static_cast<std::ptrdiff_t>(slots + slot);
         std::fill_n(begin, std::size_t{1} << (end - first.prefix.length), first.label);
         prefixes = prefixes.subspan(1);
         continue;
      }
      const auto other = std::ranges::find_if(prefixes, [&](const Labelled& each) {
         return slice(each.prefix.value, depth, bits) != slot;
      });
      const auto count = static_cast<std::size_t>(other - prefixes.begin());
      // What covers the slot so far; `makeEntry` may move `slots_`.
      inherited = slots_[slots + slot];
      const Entry entry = makeEntry(prefixes.first(count), end, inherited);
      slots_[slots + slot] = entry;
      prefixes = prefixes.subspan(count);
   }
}

PrefixTree::Entry PrefixTree::findInList(U32 place, Bits value) const {
   while (!lists_[place].prefix.contains(value)) {
      ++place;
   }
   return lists_[place].label;
}

U32 PrefixTree::find(Bits value) const {
   Entry entry = root_;
   while (!isLabel(entry)) {
      const U32 place = entry & ~kindMask;
      if ((entry & kindMask) == listKind) {
         return findInList(place, value);
      }
      const Node& node = nodes_[place];
      if (!agree(value, node.path, node.depth)) {
         return node.otherwise;
      }
      entry = slots_[node.slots + slice(value, node.depth, node.bits)];
   }
   return entry;
}

std::size_t PrefixTree::bytes() const {
   return nodes_.capacity() * sizeof(Node) + slots_.capacity() * sizeof(Entry) +
          lists_.capacity() * sizeof(Labelled);
}

} // namespace Postcard::Classifier
