// `Values`: from the nodes of a document to checked values. Relies on `Document` for nodes and on
// the platform's value of an address prefix.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Findings.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace Postcard::Policy::File {

// A number as YAML's core schema writes it, without a sign: decimal, 0x… or 0o…. Nothing when
// `text` is none. A decimal number with a leading zero is none either, because readers disagree
// whether it is octal. A number that needs more than 64 bits is the greatest one of 64 bits.
std::optional<U64> parseNumber(std::string_view text);

// The prefix that `text` writes as address, slash and length, host bits cleared. Nothing when it is
// no prefix of `family`.
std::optional<Orlix::IpGenPrefix> parsePrefix(std::string_view text, Family family);

// Each function returns a value that keeps the promise of its comment, or adds a finding and
// returns nothing. A node that the document has refused (an alias) gives nothing and no further
// finding. `what` names the value in messages; usually it is its key.
class Values {
 public:
   // The longest name, in bytes.
   static constexpr std::size_t maxName = 255;

   // `findings` must outlive this object.
   explicit Values(Findings& findings) : findings_{&findings} {}

   Findings& findings() const { return *findings_; }

   // `true` or `false` without quotes.
   std::optional<bool> boolean(const Node& node, std::string_view what) const;

   // A number from `low` to `high` without quotes.
   std::optional<U64> number(const Node& node, std::string_view what, U64 low, U64 high) const;

   // A number or LOW-HIGH, each from 0 to `high`. Quotes do not matter: JSON needs them for a
   // range.
   std::optional<NumberRange> range(const Node& node, std::string_view what, U16 high) const;

   // Text of 1 to `maxName` bytes that may be printed on one line. Numbers and booleans are taken
   // as they are written: an interface may be called 1 and a policy true.
   std::optional<Name> name(const Node& node, std::string_view what) const;

   // A prefix of `family`.
   std::optional<Prefix> prefix(const Node& node, std::string_view what, Family family) const;

   // Whether `bits` has no bit outside `mask`. With such a bit nothing could match, because a bit
   // that is not compared never equals it; the finding says so.
   bool fitsMask(const Node& node, std::string_view what, unsigned bits, unsigned mask) const;

   // Whether the node is a list.
   bool isList(const Node& node, std::string_view what) const;

   // Adds "expected EXPECTED for WHAT, found …", but not for a node that the document has refused.
   void mismatch(const Node& node, std::string_view expected, std::string_view what) const;

 private:
   Findings* findings_; // never null
};

} // namespace Postcard::Policy::File
