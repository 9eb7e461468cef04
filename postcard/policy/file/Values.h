// From the nodes of a document to checked values. Doors: `Values` for what stands behind a key,
// `Fields` for the keys of a mapping, `Once` for things that may occur once. Relies on
// `PolicyFileDocument.h` for nodes and on `PolicyFileKeys.h` for the vocabulary.
//
// Every function either returns a value that keeps its promise or adds a finding and returns
// nothing. A node that was refused earlier (an alias) yields nothing without a further finding.

#pragma once

#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Findings.h"
#include "postcard/policy/file/Keys.h"
#include "postcard/policy/file/PolicyFile.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Postcard::Policy::File {

// A number as YAML's core schema writes it, without a sign: decimal, 0x… or 0o…. Nothing when
// `text` is none; a decimal with a leading zero is none either, since readers disagree whether it
// is octal. A number that does not fit is the greatest one that does.
std::optional<std::uint64_t> parseNumber(std::string_view text);

// The prefix of an address and a length, host bits cleared; nothing when the text is not an address
// of `family`, a slash and a length from 0 to 32 or 128. Without a location.
std::optional<Prefix> parsePrefix(std::string_view text, Family family);

class Values {
 public:
   // The longest name in bytes.
   static constexpr std::size_t maxName = 255;

   explicit Values(Findings& findings) : findings_(&findings) {}

   Findings& findings() const { return *findings_; }

   // `what` names the value in messages, usually its key.
   std::optional<bool> boolean(const Node& node, std::string_view what) const;

   // A number from `low` to `high`, written without quotes.
   std::optional<std::uint64_t> number(const Node& node, std::string_view what, std::uint64_t low,
                                       std::uint64_t high) const;

   // A number or LOW-HIGH, each from 0 to `high`; JSON has to put a range in quotes, so quotes do
   // not matter.
   std::optional<NumberRange> range(const Node& node, std::string_view what,
                                    std::uint16_t high) const;

   // Text that may be printed on a line of its own. Numbers and booleans are taken as they are
   // written: an interface may be called 1 and a policy true.
   std::optional<Name> name(const Node& node, std::string_view what) const;

   std::optional<Prefix> prefix(const Node& node, std::string_view what, Family family) const;

   // Whether the node is a list; a finding when it is not.
   bool isList(const Node& node, std::string_view what) const;

   // "expected EXPECTED for WHAT, found …".
   void mismatch(const Node& node, std::string_view expected, std::string_view what) const;

 private:
   Findings* findings_;
};

// The values of a mapping by key. Adds a finding for a node that is not a mapping, for every key
// that the shape does not know and for every required key that is missing. Keys that the document
// has refused (duplicates but for the first, merge keys, lists) are passed over.
class Fields {
 public:
   Fields(const Node& mapping, Shape shape, const Values& values);

   // The value of `key`, which the shape must know, or null when the mapping does not have it.
   const Node* value(std::string_view key) const { return fields_[indexOf(key)].value; }

   // The node of the key itself, or null.
   const Node* key(std::string_view key) const { return fields_[indexOf(key)].key; }

 private:
   static constexpr std::size_t mostKeys = 16;

   struct Field {
      const Node* key = nullptr;
      const Node* value = nullptr;
      bool meant = false; // an unknown key is probably this one misspelt
   };

   std::size_t indexOf(std::string_view key) const;
   void take(const Node& key, const Node& value, const Values& values);
   void reportUnknown(const Node& key, const Values& values);
   void reportMissing(const Node& mapping, const Values& values) const;

   const ShapeRow* shape_;
   std::array<Field, mostKeys> fields_; // in the order of the shape's keys
};

// Calls `take(key, value)` for the keys of a mapping, which the document has left: the first of
// each, scalars only, no merge keys.
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

// Things that may occur once in their surroundings.
template <class Key>
class Once {
 public:
   // `noun` names one of them in messages.
   Once(std::string_view noun, Findings& findings) : noun_(noun), findings_(&findings) {}

   // True for the first of its kind; else adds a finding in which it is called `text`.
   bool isFirst(const Key& key, Location location, std::string_view text) {
      const auto [first, inserted] = places_.try_emplace(key, location);
      if (!inserted) {
         findings_->add(location, fmt::format("duplicate {} {} (first at {}:{})", noun_, text,
                                              first->second.line, first->second.column));
      }
      return inserted;
   }

 private:
   std::string_view noun_;
   Findings* findings_;
   std::map<Key, Location> places_;
};

} // namespace Postcard::Policy::File
