// `RuleIndex`: the rules of an ACL, compiled so that the first one that matches a packet is found
// without trying them one by one. Relies on `RuleMatch` for what rules ask.
//
// Whether a rule matches is decided field by field: a packet must satisfy the rule's source prefix
// and its destination prefix and its ports, and so on. Each field alone is simple. The rules of an
// ACL ask little that is different of one field, say 300 prefixes or 40 ports, and divide all the
// field's values into not many more *classes*: values of one class satisfy the same rules. For each
// class we keep the set of rules that it satisfies, as a bitmap in the order of matching. A look-up
// finds the class of each of the packet's fields and ANDs the sets of these classes. The first bit
// that stays set is the first rule that matches. No time goes with the number of rules except for
// reading bitmaps, and `RuleSets` reads hardly any of their words.
//
// **Classes.** All but two of the fields ask for prefixes: addresses anyway, ports because the
// rules of a range are aligned blocks. Then the class of a value is the longest prefix that it
// begins with, which `PrefixTree` finds, and there are no more classes than prefixes, and one for
// values without any. The rules of a class are those of the next shorter prefix that contains it
// and those that ask for the prefix itself, which is why a set may share with its parent. Sampling
// masks are the lowest bits of a checksum or an identification. Such a mask is a prefix of the bits
// read from the lowest to the highest, so each field of 16 bits is indexed twice, once in either
// direction, and a rule stands in the one that suits its mask. Protocol and TCP flags have 8 bits:
// a table of 256 classes serves for any mask.
//
// **Masks that are no prefix in either direction**, such as 0x0ff0, are rounded to the longest
// prefix that they contain. Then a class satisfies some rules only perhaps. A packet's candidates
// are compared with what the rules really ask, in order, until one matches. The other rules pay
// nothing for it. An ACL of many such rules that differ only in their masks is read as in a scan.
//
// **Absence.** A later fragment has no ports. A rule that asks for a port does not match it, not
// even for mask 0; a rule that asks for none does. So an absent field is one more class: that of
// the rules that do not ask. A field that no rule asks for is not looked at.
//
// **Memory.** A rule is inserted into at most one set per field, except TCP flags, whose masks may
// put it into all of at most 256 sets. A rule asks at most seven things, and `RuleSets` and
// `PrefixTree` bound what each costs. Therefore an index of 100,000 rules takes at most
// 2,400 bytes per rule, even when every rule has its own value in every field. What policies are
// compiled to takes about 200. Rules whose masks were rounded take `sizeof(RuleMatch)` each,
// for all rules of the ACL, as soon as there is one.
//
// An index is built whole and never changed: rules are replaced by replacing it.
#pragma once

#include "postcard/classifier/PrefixTree.h"
#include "postcard/classifier/RuleMatch.h"
#include "postcard/classifier/RuleSets.h"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace Postcard::Classifier {

class RuleIndex {
 public:
   using Set = RuleSets::Set;

   // A field whose rules ask for prefixes. Labels of the tree are sets.
   struct PrefixField {
      PrefixTree tree;
      Set absent; // of the rules that do not ask
   };
   // A field of 8 bits whose rules ask for values under any mask.
   struct ByteField {
      std::array<Set, 256> sets; // by value
      Set absent;                // of the rules that do not ask
   };
   // Both directions of a field of 16 bits. Absent: no rule asks in this direction.
   struct WordField {
      std::optional<PrefixField> fromHighest;
      std::optional<PrefixField> fromLowest;
   };

   static constexpr std::size_t notFound = static_cast<std::size_t>(-1);

   // Compiles `rules`, which match in this order and are of one family. Nothing of `rules` is
   // referred to afterwards. At most 2^29 rules.
   RuleIndex(Orlix::AddressFamily family, std::span<const RuleMatch> rules);

   // The place in `rules` of the first rule that matches `packet`, or `notFound`. Packets of the
   // other family match nothing. Allocates nothing; may be called by several threads.
   std::size_t first(const Packets::Packet& packet) const;

   // Calls `visit` with the place of each rule that matches `packet`, in order, until `visit`
   // returns true.
   template <class Visit>
   void visitAll(const Packets::Packet& packet, const Visit& visit) const;

   // Memory, without this object.
   std::size_t bytes() const;

   // The compiled form, for rooms that copy it to where packets are. A look-up there must do what
   // `first` does. All references are valid as long as the index.
   struct Form {
      const RuleSets& sets;
      const std::optional<PrefixField>& source;
      const std::optional<PrefixField>& destination;
      const std::optional<ByteField>& protocol; // absent: there are no rules
      const std::optional<ByteField>& tcpFlags;
      const WordField& sourcePort;
      const WordField& destinationPort;
      const WordField& checksum;
      const WordField& identification;
      // All rules, when some match fewer packets than their sets say; else empty.
      std::span<const RuleMatch> exact;
   };
   Form form() const;

 private:
   // What the packet's fields put up for intersection.
   struct Found {
      std::array<Set, RuleSets::mostSets> sets;
      std::size_t count = 0;

      void add(Set set) { sets[count++] = set; }
   };

   class Builder;

   Found setsOf(const Packets::Packet& packet) const;
   void look(Found& found, const std::optional<PrefixField>& field, Bits value) const;
   void look(Found& found, const WordField& field, const std::optional<U16>& value) const;

   Orlix::AddressFamily family_;
   RuleSets sets_;
   std::optional<PrefixField> source_;
   std::optional<PrefixField> destination_;
   std::optional<ByteField> protocol_; // absent: there are no rules
   std::optional<ByteField> tcpFlags_;
   WordField sourcePort_;
   WordField destinationPort_;
   WordField checksum_;
   WordField identification_;
   // All rules, when the sets of some are those of a rounded mask; else empty.
   std::vector<RuleMatch> exact_;
};

template <class Visit>
void RuleIndex::visitAll(const Packets::Packet& packet, const Visit& visit) const {
   if (packet.family != family_ || !protocol_) {
      return;
   }
   const Found found = setsOf(packet);
   sets_.visitCommon(std::span{found.sets}.first(found.count), [&](U32 rule) {
      return (exact_.empty() || matches(exact_[rule], packet)) && visit(rule);
   });
}

} // namespace Postcard::Classifier
