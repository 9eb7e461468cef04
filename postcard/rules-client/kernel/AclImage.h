// `AclImage`: the compiled form of an ACL as a program in the kernel reads it: one piece of memory
// and the numbers that say where its parts begin. Relies on the classifier for the compiled form
// and on `KernelLayout` for the layout; knows nothing of the kernel.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/rules-client/kernel/KernelLayout.h"

#include <array>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <vector>

namespace Postcard::RulesClient {

// The image of an ACL would be larger than a program can address.
class ImageTooLarge : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class AclImage {
 public:
   // Of one map's element. The kernel lets a program reach 2^29 bytes beyond an address.
   static constexpr std::size_t mostBytes = std::size_t{1} << 28;

   // Measures the image. `table` must outlive this object. Throws ImageTooLarge.
   explicit AclImage(const Classifier::AclTable& table);

   // The layout. What does not follow from the ACL is 0: `counterStride`, `sampleBytes`, `slot`,
   // `version`.
   const PostcardShape& shape() const noexcept { return shape_; }

   // Writes the image. `to` has `shape().imageSize` bytes, all of them 0, at an address that is a
   // multiple of 64.
   void write(std::span<std::byte> to) const;

 private:
   using Tree = Classifier::PrefixTree;

   // A field with a tree, and where its nodes, slots and lists begin among those of all trees.
   struct PlacedTree {
      const Tree* tree;
      U32 nodes;
      U32 slots;
      U32 lists;
   };

   void place(U32 field, const Classifier::RuleIndex::PrefixField& prefixes);
   void placeFields(const Classifier::RuleIndex::Form& form);
   void placeParts(const Classifier::RuleIndex::Form& form);
   void writeTree(std::span<std::byte> to, const PlacedTree& placed) const;
   void writeRules(std::span<std::byte> to) const;

   const Classifier::AclTable& table_;
   PostcardShape shape_{};
   std::vector<PlacedTree> trees_;
   std::array<PostcardFieldStart, postcardFields> starts_{};
   U32 nodes_ = 0; // of all trees
   U32 slots_ = 0;
   U32 lists_ = 0;
};

} // namespace Postcard::RulesClient
