#include "postcard/rules-client/kernel/AclImage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Postcard::RulesClient {

using Classifier::AclTable;
using Classifier::FieldMatch;
using Classifier::PrefixTree;
using Classifier::RuleIndex;
using Classifier::RuleMatch;
using Classifier::RuleSets;

// Both sides cut the bitmaps alike, so they are copied as a whole.
static_assert(RuleSets::rulesPerLeaf == postcardRulesPerLeaf);
static_assert(RuleSets::rulesPerChunk == postcardRulesPerChunk);
static_assert(PrefixTree::longestList + 1 == postcardListEntries);
static_assert(sizeof(RuleSets::Chunk) == sizeof(PostcardChunk));
static_assert(offsetof(RuleSets::Chunk, leaf) == offsetof(PostcardChunk, leaf));
static_assert(RuleSets::mostSets >= postcardFields);

namespace {

// A view of the elements of a part of the image.
template <class Element>
std::span<Element> part(std::span<std::byte> image, std::size_t at, std::size_t count) {
   void* begin = image.subspan(at, count * sizeof(Element)).data();
   return {static_cast<Element*>(begin), count};
}

template <class Element>
void copyPart(std::span<std::byte> image, std::size_t at, std::span<const Element> elements) {
   if (!elements.empty()) {
      std::memcpy(image.subspan(at, elements.size_bytes()).data(), elements.data(),
                  elements.size_bytes());
   }
}

// The first `length` bits, at most 128.
Classifier::Bits maskOf(unsigned length) {
   return {Classifier::firstOf64(std::min(length, 64U)),
           length <= 64 ? 0 : Classifier::firstOf64(length - 64)};
}

PostcardTreeNode nodeOf(const PrefixTree::Node& node, U32 slots) {
   const Classifier::Bits mask = maskOf(node.depth);
   return {.pathHigh = node.path.high,
           .pathLow = node.path.low,
           .maskHigh = mask.high,
           .maskLow = mask.low,
           .otherwise = node.otherwise,
           .slots = node.slots + slots,
           .inLow = static_cast<U8>(node.depth >= 64 ? 1 : 0),
           .leftShift = static_cast<U8>(node.depth % 64),
           .rightShift = static_cast<U8>(64 - node.bits)};
}

PostcardPrefix prefixOf(const PrefixTree::Labelled& labelled) {
   const Classifier::Bits mask = maskOf(labelled.prefix.length);
   return {.high = labelled.prefix.value.high,
           .low = labelled.prefix.value.low,
           .maskHigh = mask.high,
           .maskLow = mask.low,
           .label = labelled.label};
}

// The entry of one tree as an entry of the image, which holds all trees one behind the other.
U32 entryOf(U32 entry, U32 nodes, U32 lists) {
   switch (entry >> 30) {
   case postcardNode:
      return entry + nodes;
   case postcardList:
      return entry + lists;
   default:
      return entry;
   }
}

// The most entries that a look-up in the tree may follow, the root among them. Nodes stand behind
// the nodes that lead to them.
U32 depthOf(const PrefixTree& tree) {
   const auto isNode = [](U32 entry) { return entry >> 30 == postcardNode; };
   const auto nodes = tree.nodes();
   std::vector<U32> depths(nodes.size(), 1); // by node, itself among them
   U32 deepest = 0;
   for (std::size_t i = 0; i < nodes.size(); ++i) {
      for (const U32 entry :
           tree.slots().subspan(nodes[i].slots, std::size_t{1} << nodes[i].bits)) {
         if (isNode(entry)) {
            depths[entry & ~(U32{3} << 30)] = depths[i] + 1;
         }
      }
      deepest = std::max(deepest, depths[i]);
   }
   return deepest + 1; // with the list or label that ends the way
}

PostcardExact exactOf(const RuleMatch& rule) {
   PostcardExact exact{};
   unsigned shift = 0;
   for (const FieldMatch<U16>* word :
        {&rule.sourcePort, &rule.destinationPort, &rule.checksum, &rule.identification}) {
      if (word->asked) {
         exact.data |= U64{word->data} << shift;
         exact.mask |= U64{word->mask} << shift;
      }
      shift += 16;
   }
   return exact;
}

} // namespace

// ---- Measuring ----

AclImage::AclImage(const AclTable& table) : table_{table} {
   const RuleIndex::Form form = table.index().form();
   shape_.rules = static_cast<U32>(table.entries().size());
   shape_.ipv6 = table.family() == Orlix::AddressFamily::ipv6 ? 1 : 0;
   shape_.headSize = static_cast<U32>(form.sets.headSize());
   shape_.tops = static_cast<U32>(form.sets.topsPerSet());
   placeFields(form);
   placeParts(form);
}

void AclImage::place(U32 field, const RuleIndex::PrefixField& prefixes) {
   shape_.fields |= 1U << field;
   starts_.at(field) = {.absent = prefixes.absent,
                        .root = entryOf(prefixes.tree.root(), nodes_, lists_)};
   shape_.treeDepth = std::max(shape_.treeDepth, depthOf(prefixes.tree));
   trees_.push_back({&prefixes.tree, nodes_, slots_, lists_});
   nodes_ += static_cast<U32>(prefixes.tree.nodes().size());
   slots_ += static_cast<U32>(prefixes.tree.slots().size());
   lists_ += static_cast<U32>(prefixes.tree.lists().size());
}

void AclImage::placeFields(const RuleIndex::Form& form) {
   if (!form.protocol) {
      return; // no rule: no field, so a program looks nothing up
   }
   shape_.fields = 1U << postcardProtocol;
   shape_.treeDepth = 1;
   if (form.source) {
      place(postcardSource, *form.source);
   }
   if (form.destination) {
      place(postcardDestination, *form.destination);
   }
   if (form.tcpFlags) {
      shape_.fields |= 1U << postcardTcpFlags;
      starts_.at(postcardTcpFlags) = {.absent = form.tcpFlags->absent, .root = 0};
   }
   U32 field = postcardWords;
   for (const RuleIndex::WordField* word :
        {&form.sourcePort, &form.destinationPort, &form.checksum, &form.identification}) {
      for (const auto* direction : {&word->fromHighest, &word->fromLowest}) {
         if (*direction) {
            place(field, **direction);
         }
         ++field;
      }
   }
}

void AclImage::placeParts(const RuleIndex::Form& form) {
   constexpr std::size_t line = 64; // parts begin where lines of the cache begin
   std::size_t end = 0;
   const auto take = [&end](std::size_t count, std::size_t size) {
      const std::size_t at = end;
      end = (end + count * size + line - 1) / line * line;
      return static_cast<U32>(at);
   };
   shape_.leavesAt = take(form.sets.leaves().size(), sizeof(RuleSets::Leaf));
   shape_.chunksAt = take(form.sets.chunks().size(), sizeof(PostcardChunk));
   shape_.headsAt = take(form.sets.heads().size(), sizeof(U32));
   shape_.startsAt = take(starts_.size(), sizeof(PostcardFieldStart));
   shape_.nodesAt = take(nodes_, sizeof(PostcardTreeNode));
   shape_.slotsAt = take(slots_, sizeof(U32));
   shape_.listsAt = take(lists_, sizeof(PostcardPrefix));
   shape_.protocolAt = take(256, sizeof(U32));
   shape_.flagsAt = form.tcpFlags ? take(256, sizeof(U32)) : 0;
   shape_.actionsAt = take(shape_.rules, sizeof(PostcardAction));
   shape_.exactAt = form.exact.empty() ? 0 : take(shape_.rules, sizeof(PostcardExact));
   if (end > mostBytes) {
      throw ImageTooLarge{fmt::format("{} needs {} bytes for {} rules, a program can have {}",
                                      table_.key().view(), end, shape_.rules, mostBytes)};
   }
   shape_.imageSize = static_cast<U32>(end);
}

// ---- Writing ----

void AclImage::writeTree(std::span<std::byte> to, const PlacedTree& placed) const {
   const Tree& tree = *placed.tree;
   const auto nodes = part<PostcardTreeNode>(
         to, shape_.nodesAt + placed.nodes * sizeof(PostcardTreeNode), tree.nodes().size());
   std::ranges::transform(tree.nodes(), nodes.begin(),
                          [&](const Tree::Node& node) { return nodeOf(node, placed.slots); });
   const auto slots =
         part<U32>(to, shape_.slotsAt + placed.slots * sizeof(U32), tree.slots().size());
   std::ranges::transform(tree.slots(), slots.begin(),
                          [&](U32 entry) { return entryOf(entry, placed.nodes, placed.lists); });
   const auto lists = part<PostcardPrefix>(
         to, shape_.listsAt + placed.lists * sizeof(PostcardPrefix), tree.lists().size());
   std::ranges::transform(tree.lists(), lists.begin(), &prefixOf);
}

void AclImage::writeRules(std::span<std::byte> to) const {
   const auto actions = part<PostcardAction>(to, shape_.actionsAt, shape_.rules);
   std::ranges::transform(table_.entries(), actions.begin(), [](const AclTable::Entry& entry) {
      return PostcardAction{static_cast<U8>(entry.sampled ? 1 : 0), entry.dscpData, entry.dscpMask};
   });
   const std::span<const RuleMatch> exact = table_.index().form().exact;
   std::ranges::transform(exact, part<PostcardExact>(to, shape_.exactAt, exact.size()).begin(),
                          &exactOf);
}

void AclImage::write(std::span<std::byte> to) const {
   const RuleIndex::Form form = table_.index().form();
   copyPart(to, shape_.leavesAt, form.sets.leaves());
   copyPart(to, shape_.chunksAt, form.sets.chunks());
   copyPart(to, shape_.headsAt, form.sets.heads());
   copyPart<PostcardFieldStart>(to, shape_.startsAt, starts_);
   for (const PlacedTree& placed : trees_) {
      writeTree(to, placed);
   }
   if (form.protocol) {
      copyPart<U32>(to, shape_.protocolAt, form.protocol->sets);
   }
   if (form.tcpFlags) {
      copyPart<U32>(to, shape_.flagsAt, form.tcpFlags->sets);
   }
   writeRules(to);
}

} // namespace Postcard::RulesClient
