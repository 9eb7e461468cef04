// `ruleNameL4Port`: the names of rules that match layer-4 ports; and `PortNames`, which makes the
// names of very many such rules. Relies on `L4Port` and on the ring trace.
#pragma once

#include "Classification/StructuredFilter.h"
#include "Kiv/String.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/L4Port.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "Ringlog/ContinuedText.h"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace OruPostcardTelemetry {

// Returns `name-label-port`, the port in decimal, and traces it. `label` says which number it is:
// "SportData", "SportMask", "DportData" or "DportMask".
Kiv::String ruleNameL4Port(Pello::String name, Pello::String label, L4Port port);

// How many rules a filter makes, as long as no two of them have one name. `tcpFlags` says whether
// the hardware matches TCP flags.
std::size_t ruleCount(const Classification::StructuredFilter& filter, bool tcpFlags);

// The part of a rule's name that says one port match: `-SportData-80-SportMask-65535`, or the same
// with "Dport". Empty for a match that is not valid.
class PortPart {
 public:
   // The match that is not valid.
   PortPart() = default;
   // `dataLabel` and `maskLabel` have at most 11 characters each, such as "-SportData-".
   PortPart(L4PortDataMask match, std::string_view dataLabel, std::string_view maskLabel);

   bool valid() const noexcept { return size_ != 0; }
   const L4PortDataMask& match() const noexcept { return match_; }
   // The part, and its beginning up to and with the data. Valid as long as this object.
   std::string_view text() const noexcept { return {characters_.data(), size_}; }
   std::string_view dataText() const noexcept { return {characters_.data(), dataSize_}; }

 private:
   void append(std::string_view label, U16 number);

   L4PortDataMask match_;
   U8 dataSize_ = 0;
   U8 size_ = 0;
   std::array<char, 32> characters_{}; // two labels of 11 characters, two numbers of 5 digits
};
PortPart sourcePart(L4PortDataMask match);
PortPart destinationPart(L4PortDataMask match);

// The names of port rules. What the names of several rules have in common is made once: the
// template's name with the source part, which is the beginning of a name, and the destination
// parts. A name is then a copy of two texts. The ring trace gets the same saving through the marks:
// each name in it refers to the one that it continues.
//
// Use: `beginIs` and `endIs` for each rule, then `name`, and the traces.
class PortNames {
 public:
   // Enough for the memory that is asked for to arrive in the time that a few rules take.
   static constexpr std::size_t mostExpected = 8;

   // Sets the template's name and the source match of the next rule; both usually stay from rule to
   // rule, and nothing is made again then.
   void beginIs(const Pello::String& templateName, bool valid, L4PortDataMask source);
   // Sets the destination match of the next rule.
   void endIs(bool valid, L4PortDataMask destination);
   // Makes the names of rules to come, with the template's name and the source of `beginIs`, and
   // one name for each destination. `aclConfig` is told to expect them. At most `mostExpected`;
   // replaces what was expected before. The parts are borrowed until the next call.
   void expect(std::span<const PortPart> destinations, const PostcardTelemetryAclConfig& aclConfig);

   // A name, and its hash if that is known.
   struct Name {
      Kiv::String text;
      std::optional<Kiv::KnownHash> hash;
   };
   // The name of the rule. Throws as `Pello::String::join`.
   Name name();

   // The template's name as an argument of a trace.
   Ringlog::ContinuedText templateText();
   // Traces the names that come about part by part, as `ruleNameL4Port` does; `name` is the last of
   // them. Nothing is traced for a match that is not valid.
   void traceSteps(const Kiv::String& name);
   // The same `name` as an argument of another trace, after `traceSteps`.
   Ringlog::ContinuedText nameText(const Kiv::String& name);

 private:
   Pello::String templateName_;
   PortPart source_;
   std::string begin_; // the template's name and the source part
   PortPart madeEnd_;  // for a destination that was not expected
   const PortPart* end_ = &madeEnd_;
   std::span<const PortPart> expected_;     // from the next rule's on
   std::array<Name, mostExpected> names_{}; // those of `expected_` are the last ones
   bool ready_ = false;                     // `end_` is the first of `expected_`
   // Where the latest of these texts stand in the ring.
   Ringlog::TextMark templateMark_;
   Ringlog::TextMark sourceDataMark_;
   Ringlog::TextMark beginMark_;
   Ringlog::TextMark nameMark_;
};

} // namespace OruPostcardTelemetry
