// `Fields`: the values of a mapping by key, as the vocabulary knows them. Relies on `Document` for
// nodes and on `Keys` for the vocabulary.
//
// The functions of this header never stop at what is wrong: it becomes a finding, and reading goes
// on, so that the user sees all findings of a file at once.
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
   // When the node is no mapping, `value` and `key` return null for every key. The nodes must
   // outlive this object; `values` is used by the constructor only.
   Fields(const Node& mapping, Shape shape, const Values& values);

   // The value of `key`, or null when the mapping does not have it. The shape must know the key.
   const Node* value(std::string_view key) const { return fields_[indexOf(key)].value; }

   // Whether the mapping lacks `key`, and has no unknown key that looks like a misspelling of it.
   // The shape must know the key. True for every key when the node is no mapping.
   bool lacks(std::string_view key) const;

   // The node of the key itself, or null. The shape must know the key.
   const Node* key(std::string_view key) const { return fields_[indexOf(key)].key; }

 private:
   static constexpr std::size_t mostKeys = 16; // no shape has more; the constructor asserts it

   struct Field {
      const Node* key = nullptr;   // null: not in the mapping
      const Node* value = nullptr; // null exactly when `key` is
      bool meant = false;          // an unknown key of the mapping looks like a misspelling of it
   };

   std::size_t indexOf(std::string_view key) const;
   void take(const Node& key, const Node& value, const Values& values);
   void reportUnknown(const Node& key, const Values& values);
   void reportMissing(const Node& mapping, const Values& values) const;

   const ShapeRow* shape_;
   std::array<Field, mostKeys> fields_; // in the order of the shape's keys
};

// Calls `take(key, value)` for each key that is a scalar and no merge key, in the order of the
// file. A key that is written twice is passed twice. `mapping` must be a mapping.
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

// The row of `rows` whose `word` is the text of the node, quoted or not. Null when there is none,
// or when the node is empty or no scalar; then a finding has been added, which calls the word
// `noun`.
template <class Row>
const Row* readWord(const Node& node, std::span<const Row> rows, std::string_view noun,
                    const Values& values) {
   if (!node.isScalar() || node.isNull()) {
      values.mismatch(node, "one of " + joined(wordsOf(rows)), noun);
      return nullptr;
   }
   const Row* row = findWord(rows, node.text);
   if (row == nullptr) {
      values.findings().add(node.location, FindingCode::unknownWord,
                            unknownWord(noun, node.text, wordsOf(rows)));
   }
   return row;
}

// Reads the value of `key` with `read(node, key)` and assigns it to `target`. `read` returns an
// optional, which is empty when the value is wrong and `read` has added a finding. `target` keeps
// its value when the mapping does not have the key or the value is wrong.
template <class Target, class Read>
void readInto(Target& target, const Fields& fields, std::string_view key, Read read) {
   if (const Node* node = fields.value(key)) {
      if (auto value = read(*node, key)) {
         target = std::move(*value);
      }
   }
}

// Calls `read(node)` for each element of the list that is the value of `key`, and appends the
// results to `target`. `read` returns an optional, which is empty for an element that is wrong;
// such an element is left out. Appends nothing when the mapping does not have the key, or when its
// value is no list, which is a finding.
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
