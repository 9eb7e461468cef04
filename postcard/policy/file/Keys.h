// `shapeOf` and the word tables: the vocabulary of the policy file, that is which keys each mapping
// has, and the words for actions, protocols, flags and fields. Relies on the plain values of
// `Policy.h` and on the words of the platform for protocols and flags.
//
// Everything that reads a policy file looks words up here. So a test that compares these tables
// with the published schema compares the schema with what is really read.
#pragma once

#include "Classification/ProtocolNumbers.h"
#include "postcard/policy/Policy.h"

#include <span>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

// The mappings of a policy file.
enum class Shape : U8 {
   file,
   hardware,
   toggles, // its keys are the toggles that exist, which only the caller of the reader knows
   policy,
   interfaces,
   policyClass,
   action, // an action with a value
   filter,
   sample,
   protocol,
   portEntry,
   tcpFlags,
   none, // the key's value is not a mapping, nor a list of mappings
};

// A key of a mapping.
struct KeyRow {
   std::string_view name;
   bool required = false;
   Shape inside = Shape::none; // of the value, or of the elements when the value is a list
};

// A mapping.
struct ShapeRow {
   std::string_view noun; // what messages call the mapping, such as "a policy"
   std::span<const KeyRow> keys;
};

// The keys of a mapping; none for `Shape::toggles` and `Shape::none`.
const ShapeRow& shapeOf(Shape shape);

// The word of an action.
struct ActionWord {
   std::string_view word;
   ActionKind kind;
};

// The word of the field that a sample match compares.
struct FieldWord {
   std::string_view word;
   SampleField field;
};

std::span<const ActionWord> actionWords();
std::span<const Classification::NamedNumber> protocolWords();
std::span<const Classification::NamedNumber> tcpFlagWords();
std::span<const FieldWord> sampleFieldWords();

// The words of a table, in its order. They stay valid for the life of the process.
template <class Row>
std::vector<std::string_view> wordsOf(std::span<const Row> rows) {
   std::vector<std::string_view> words;
   words.reserve(rows.size());
   for (const Row& row : rows) {
      words.push_back(row.word);
   }
   return words;
}

// The row of `word` in `rows`, or null.
template <class Row>
const Row* findWord(std::span<const Row> rows, std::string_view word) {
   for (const Row& row : rows) {
      if (row.word == word) {
         return &row;
      }
   }
   return nullptr;
}

// The action's word in the policy file, such as "set-traffic-class".
std::string_view actionName(ActionKind kind);

} // namespace Postcard::Policy::File
