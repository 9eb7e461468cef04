// The vocabulary of the policy file: which keys each mapping has, and the words that stand for
// actions, protocols, flags and fields. Door: `shapeOf` and the word tables. Relies on nothing but
// the structs of `PolicyFile.h`. The loader reads by these tables and by nothing else, so a test
// that compares them with the published schema compares the loader with it.

#pragma once

#include "Classification/ProtocolNumbers.h"
#include "postcard/policy/Policy.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

// The mappings of a policy file.
enum class Shape : std::uint8_t {
   file,
   hardware,
   toggles, // its keys are the names of the toggles that exist, which the caller knows
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

struct KeyRow {
   std::string_view name;
   bool required = false;
   Shape inside = Shape::none; // of the value, or of the elements when the value is a list
};

struct ShapeRow {
   std::string_view noun; // for messages, such as "a policy"
   std::span<const KeyRow> keys;
};

// The keys of a mapping; none for `Shape::toggles` and `Shape::none`.
const ShapeRow& shapeOf(Shape shape);

struct ActionWord {
   std::string_view word;
   ActionKind kind;
};

struct FieldWord {
   std::string_view word;
   SampleField field;
};

std::span<const ActionWord> actionWords();
std::span<const Classification::NamedNumber> protocolWords();
std::span<const Classification::NamedNumber> tcpFlagWords();
std::span<const FieldWord> sampleFieldWords();

// The words of a table, in its order.
template <class Row>
std::vector<std::string_view> wordsOf(std::span<const Row> rows) {
   std::vector<std::string_view> words;
   words.reserve(rows.size());
   for (const Row& row : rows) {
      words.push_back(row.word);
   }
   return words;
}

// The row of `word`, or null.
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
