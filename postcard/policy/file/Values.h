// `Values`: makes checked values from the nodes of a document. Relies on `Document` for nodes and
// on the platform's value of an address prefix.
#pragma once

#include "postcard/policy/Policy.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Findings.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Postcard::Policy::File {

// The number that `text` writes as decimal, 0x… or 0o… (the core schema, YAML 1.2.2,
// section 10.3.2, but without a sign). Nothing when `text` is no such number. A decimal number with
// a leading zero is refused, because YAML 1.1 takes it for octal and YAML 1.2 does not. So is a
// text of more than 64 bytes. A number that needs more than 64 bits becomes the greatest one of 64
// bits, which every limit of a policy file refuses.
std::optional<U64> parseNumber(std::string_view text);

// The prefix that `text` writes as address, slash and decimal length, host bits cleared. Nothing
// when `text` is no prefix of `family`; an address without a length is none.
std::optional<Orlix::IpGenPrefix> parsePrefix(std::string_view text, Family family);

// "LOW-HIGH", or only "LOW" when both are equal.
std::string rangeText(unsigned low, unsigned high);

// Each function that reads a node returns a value as its comment describes it, or adds a finding at
// the place of the node and returns nothing (false, where it returns bool). A node that the
// document has refused (an alias) gives nothing and no further finding. `what` names the value in
// messages; usually it is the key.
class Values {
 public:
   // The longest name, in bytes.
   static constexpr std::size_t maxName = 255;

   // `findings` must outlive this object.
   explicit Values(Findings& findings) : findings_{&findings} {}

   // Where findings go, for callers that check more than one value.
   Findings& findings() const { return *findings_; }

   // `true` or `false` without quotes.
   std::optional<bool> boolean(const Node& node, std::string_view what) const;

   // A number from `low` to `high`, both included, without quotes.
   std::optional<U64> number(const Node& node, std::string_view what, U64 low, U64 high) const;

   // A number, or LOW-HIGH with LOW <= HIGH; all from 0 to `high`; at most 64 bytes. Quotes are
   // allowed, because JSON needs them for a range.
   std::optional<NumberRange> range(const Node& node, std::string_view what, U16 high) const;

   // Text of 1 to `maxName` bytes, all of whose characters are visible (`Pello::isVisible`).
   // Numbers and booleans without quotes are text here: an interface may be called 1 and a policy
   // true.
   std::optional<Name> name(const Node& node, std::string_view what) const;

   // A prefix of `family`, as `parsePrefix` reads it, with or without quotes.
   std::optional<Prefix> prefix(const Node& node, std::string_view what, Family family) const;

   // An address of either family without a length, as the prefix of that address alone.
   std::optional<Orlix::IpGenPrefix> address(const Node& node, std::string_view what) const;

   // A prefix of either family, likewise.
   std::optional<Prefix> prefixOfAnyFamily(const Node& node, std::string_view what) const;

   // Whether `prefix`, for which `node` stands, is of `family`.
   bool isOfFamily(const Node& node, const Prefix& prefix, Family family) const;

   // Whether `bits` has no bit outside `mask`. Such a bit would make a match that no packet can
   // satisfy: bits outside the mask count as 0 in every packet.
   bool fitsMask(const Node& node, std::string_view what, unsigned bits, unsigned mask) const;

   // Whether the node is a list. A list may be empty.
   bool isList(const Node& node, std::string_view what) const;

   // Adds "expected EXPECTED for WHAT, found …", but not for a node that the document has refused.
   void mismatch(const Node& node, std::string_view expected, std::string_view what) const;

 private:
   Findings* findings_; // never null
};

} // namespace Postcard::Policy::File
