// `Fields`: the values of a mapping by key, as the vocabulary knows them. Relies on `Document` for
// nodes and on `Keys` for the vocabulary.
#pragma once

#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Keys.h"
#include "postcard/policy/file/Values.h"

#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace Postcard::Policy::File {

class Fields {
 public:
   // Finds the keys of `shape` in `mapping`. Adds a finding when the node is not a mapping, for
   // every key that the shape does not know and for every required key that is missing. Keys that
   // the document has refused (repeated ones but for the first, merge keys, lists) are passed over.
   // The nodes must outlive this object.
   Fields(const Node& mapping, Shape shape, const Values& values);

   // The value of `key`, or null when the mapping does not have it. The shape must know the key.
   const Node* value(std::string_view key) const { return fields_[indexOf(key)].value; }

   // The node of the key itself, or null. The shape must know the key.
   const Node* key(std::string_view key) const { return fields_[indexOf(key)].key; }

 private:
   static constexpr std::size_t mostKeys = 16;

   struct Field {
      const Node* key = nullptr;   // null: not in the mapping
      const Node* value = nullptr; // null exactly when `key` is
      bool meant = false;          // an unknown key of the mapping probably misspells this one
   };

   std::size_t indexOf(std::string_view key) const;
   void take(const Node& key, const Node& value, const Values& values);
   void reportUnknown(const Node& key, const Values& values);
   void reportMissing(const Node& mapping, const Values& values) const;

   const ShapeRow* shape_;
   std::array<Field, mostKeys> fields_; // in the order of the shape's keys
};

// Calls `take(key, value)` for each key of a mapping that is a scalar and no merge key. A repeated
// key comes as often as it is written.
template <class Take>
void forEachField(const Node& mapping, Take take) {
   const Node* key = nullptr;
   for (const Node& child : mapping.children()) {
      if (key == nullptr) {
         key = &child;
         continue;
      }
      const bool merge = key->kind == NodeKind::plain && key->text == "<<";
      if (key->isScalar() && !merge) {
         take(*key, child);
      }
      key = nullptr;
   }
}

// The row of `rows` whose word the node is, or null after a finding that calls the word `noun`.
template <class Row>
const Row* readWord(const Node& node, std::span<const Row> rows, std::string_view noun,
                    const Values& values) {
   if (!node.isScalar() || node.isNull()) {
      values.mismatch(node, "one of " + joined(wordsOf(rows)), noun);
      return nullptr;
   }
   const Row* row = findWord(rows, node.text);
   if (row == nullptr) {
      values.findings().add(node.location, unknownWord(noun, node.text, wordsOf(rows)));
   }
   return row;
}

// Reads the value of `key` by `read(node, key)`, which returns an optional, and keeps it in
// `target`. `target` stays as it is when the mapping does not have the key or the value is not
// good.
template <class Target, class Read>
void readInto(Target& target, const Fields& fields, std::string_view key, Read read) {
   if (const Node* node = fields.value(key)) {
      if (auto value = read(*node, key)) {
         target = std::move(*value);
      }
   }
}

// Appends to `target` what `read(node)`, which returns an optional, makes of the elements of the
// list behind `key`.
template <class Element, class Read>
void readList(std::vector<Element>& target, const Fields& fields, std::string_view key,
              const Values& values, Read read) {
   const Node* list = fields.value(key);
   if (list == nullptr || !values.isList(*list, key)) {
      return;
   }
   target.reserve(list->childCount());
   for (const Node& node : list->children()) {
      if (auto element = read(node)) {
         target.push_back(std::move(*element));
      }
   }
}

} // namespace Postcard::Policy::File
