// `shapeOf` and the word tables: the vocabulary of the policy file, that is, which keys each
// mapping has, and the words for actions, protocols, flags and fields. Relies on the plain values
// of `Policy.h` and on the words of the platform for protocols and flags.
//
// Everything that reads a policy file looks words up here. A test compares these tables with the
// published schema (share/postcard-policy.schema.json), so the schema allows what the reader takes.
//
// All tables are constants: spans and words stay valid for the life of the process.
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
   toggles, // its keys are those of `LoadOptions::toggles`, so the table has none
   definitions,
   collector,
   expect,
   policy,
   interfaces,
   policyClass,
   action, // an action with a value
   both,   // a filter for both families
   filter,
   sample,
   protocol,
   portEntry,
   tcpFlags,
   none, // a scalar, a list of scalars, or a mapping whose keys are names that the user chooses
};

// A key of a mapping.
struct KeyRow {
   std::string_view name;
   bool required = false;      // a mapping without the key is wrong
   Shape inside = Shape::none; // of the value, or of the elements when the value is a list
};

// A mapping.
struct ShapeRow {
   std::string_view noun;        // what messages call the mapping, such as "a policy"
   std::span<const KeyRow> keys; // in the order in which messages list them; no two equal
};

// The noun and the keys of a mapping. `Shape::toggles` and `Shape::none` have no keys.
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

// The words that the policy file knows (`actionName` tells that of one action), each table in the
// order in which messages list its words. Every action and every TCP flag has a word. Of the
// protocols only icmp, tcp and udp have one here; the others are written as numbers.
std::span<const ActionWord> actionWords();
std::span<const Classification::NamedNumber> protocolWords();
std::span<const Classification::NamedNumber> tcpFlagWords();
std::span<const FieldWord> sampleFieldWords();

// The words of `rows`, in the same order.
template <class Row>
std::vector<std::string_view> wordsOf(std::span<const Row> rows) {
   std::vector<std::string_view> words;
   words.reserve(rows.size());
   for (const Row& row : rows) {
      words.push_back(row.word);
   }
   return words;
}

// The row of `rows` whose word is `word`, letter case included, or null.
template <class Row>
const Row* findWord(std::span<const Row> rows, std::string_view word) {
   for (const Row& row : rows) {
      if (row.word == word) {
         return &row;
      }
   }
   return nullptr;
}

} // namespace Postcard::Policy::File
