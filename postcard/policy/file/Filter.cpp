// Prefixes, sample match, protocols, ports and TCP flags of a filter. See `PolicyFileFilter.h`.

#include "postcard/policy/file/Filter.h"

#include <array>
#include <limits>
#include <tuple>
#include <utility>

namespace Postcard::Policy::File {

namespace {

constexpr std::uint16_t maxPort = std::numeric_limits<std::uint16_t>::max();
constexpr std::uint16_t maxByte = std::numeric_limits<std::uint8_t>::max();

// Reads `field` with `read` when the mapping has it, and keeps the value when it is good.
template <class Target, class Read>
void readInto(Target& target, const Fields& fields, std::string_view key, Read read) {
   if (const Node* node = fields.value(key)) {
      if (auto value = read(*node, key)) {
         target = std::move(*value);
      }
   }
}

// Appends what `read` makes of the elements of a list; `read` returns an optional.
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

class FilterReader {
 public:
   FilterReader(const FilterRules& rules, const Values& values) : rules_(rules), values_(values) {}

   Filter read(const Node& key, const Node& value) const {
      Filter filter;
      filter.location = key.location;
      const Fields fields(value, Shape::filter, values_);
      readPrefixes(filter.source, fields, "source");
      readPrefixes(filter.destination, fields, "destination");
      readPrefixes(filter.sourceExcept, fields, "source-except");
      readPrefixes(filter.destinationExcept, fields, "destination-except");
      readName(filter.sourcePrefixSet, fields, "source-prefix-set");
      readName(filter.destinationPrefixSet, fields, "destination-prefix-set");
      readRange(filter.payloadLength, fields, "payload-length", maxPort);
      readRange(filter.ipTtl, fields, "ip-ttl", maxByte);
      readFlag(filter.fragments, fields, "fragments");
      readFlag(filter.ipOptions, fields, "ip-options");
      readFlag(filter.protocol, fields, "protocol");
      readFlag(filter.protocolNeighbor, fields, "protocol-neighbor");
      readInto(filter.sample, fields, "sample",
               [this](const Node& node, std::string_view) { return readSample(node); });
      readProtocols(filter.protocols, fields);
      return filter;
   }

 private:
   Findings& findings() const { return values_.findings(); }

   void readFlag(bool& target, const Fields& fields, std::string_view key) const {
      readInto(target, fields, key, [this](const Node& node, std::string_view what) {
         return values_.boolean(node, what);
      });
   }

   void readName(std::optional<Name>& target, const Fields& fields, std::string_view key) const {
      readInto(target, fields, key, [this](const Node& node, std::string_view what) {
         return values_.name(node, what);
      });
   }

   void readRange(std::optional<NumberRange>& target, const Fields& fields, std::string_view key,
                  std::uint16_t high) const {
      readInto(target, fields, key, [this, high](const Node& node, std::string_view what) {
         return values_.range(node, what, high);
      });
   }

   // Two prefixes that differ in host bits only are the same prefix.
   void readPrefixes(std::vector<Prefix>& target, const Fields& fields,
                     std::string_view key) const {
      Once<std::pair<std::array<std::uint8_t, 16>, std::uint8_t>> once("prefix", findings());
      readList(target, fields, key, values_, [&](const Node& node) -> std::optional<Prefix> {
         auto prefix = values_.prefix(node, key, rules_.family);
         if (prefix &&
             !once.isFirst({prefix->address, prefix->length}, node.location, prefix->text)) {
            return std::nullopt;
         }
         return prefix;
      });
   }

   std::optional<SampleMatch> readSample(const Node& node) const {
      const Fields fields(node, Shape::sample, values_);
      SampleMatch sample;
      sample.location = node.location;
      const auto data = readBits(fields, "data", 0, maxPort);
      const auto mask = readBits(fields, "mask", 1, maxPort);
      readInto(sample.field, fields, "field",
               [this](const Node& word, std::string_view) { return readSampleField(word); });
      if (!data || !mask || !fitsMask(*fields.value("data"), "data", *data, *mask)) {
         return std::nullopt;
      }
      sample.data = *data;
      sample.mask = *mask;
      return sample;
   }

   std::optional<std::uint16_t> readBits(const Fields& fields, std::string_view key,
                                         std::uint64_t low, std::uint64_t high) const {
      std::optional<std::uint16_t> bits;
      readInto(bits, fields, key, [&](const Node& node, std::string_view what) {
         const auto number = values_.number(node, what, low, high);
         return number ? std::optional(static_cast<std::uint16_t>(*number)) : std::nullopt;
      });
      return bits;
   }

   // A bit that is compared with nothing can never be equal to it: such a match hits no packet.
   bool fitsMask(const Node& node, std::string_view what, unsigned int bits,
                 unsigned int mask) const {
      if ((bits & ~mask) == 0) {
         return true;
      }
      findings().add(node.location,
                     fmt::format("{} {:#x} has bits outside the mask {:#x}, so nothing can match",
                                 what, bits, mask));
      return false;
   }

   std::optional<SampleField> readSampleField(const Node& node) const {
      const FieldWord* row = word(node, sampleFieldWords(), "field");
      if (row == nullptr) {
         return std::nullopt;
      }
      if (row->field == SampleField::ipId && rules_.family == Family::ipv6) {
         findings().add(node.location,
                        "field ip-id is the IPv4 identification; an IPv6 packet has none");
         return std::nullopt;
      }
      return row->field;
   }

   // The row of a table that the node names.
   template <class Row>
   const Row* word(const Node& node, std::span<const Row> rows, std::string_view noun) const {
      if (!node.isScalar() || node.isNull()) {
         values_.mismatch(node, fmt::format("one of {}", joined(wordsOf(rows))), noun);
         return nullptr;
      }
      const Row* row = findWord(rows, node.text);
      if (row == nullptr) {
         findings().add(node.location, unknownWord(noun, node.text, wordsOf(rows)));
      }
      return row;
   }

   void readProtocols(std::vector<ProtocolMatch>& target, const Fields& fields) const {
      Once<std::pair<std::uint8_t, std::uint8_t>> once("protocol", findings());
      readList(target, fields, "protocols", values_,
               [&](const Node& node) -> std::optional<ProtocolMatch> {
                  auto match = readProtocol(node);
                  if (match && !once.isFirst({match->low, match->high}, match->location,
                                             rangeText(match->low, match->high))) {
                     return std::nullopt;
                  }
                  return match;
               });
   }

   // Reads the whole entry even when its protocol is bad, so that nothing wrong stays unsaid.
   std::optional<ProtocolMatch> readProtocol(const Node& node) const {
      const Fields fields(node, Shape::protocol, values_);
      ProtocolMatch match;
      std::optional<NumberRange> range;
      readInto(range, fields, "protocol",
               [this](const Node& value, std::string_view) { return readProtocolRange(value); });
      readList(match.ports, fields, "ports", values_,
               [this](const Node& entry) { return readPortEntry(entry); });
      checkPortEntries(match, fields);
      readTcpFlags(match.tcpFlags, fields);
      readIcmpTypes(match.icmpTypes, fields);
      if (!range) {
         return std::nullopt;
      }
      match.low = static_cast<std::uint8_t>(range->low);
      match.high = static_cast<std::uint8_t>(range->high);
      match.location = range->location;
      return match;
   }

   // A word, a number or a range.
   std::optional<NumberRange> readProtocolRange(const Node& node) const {
      if (const Classification::NamedNumber* row = findWord(protocolWords(), node.text)) {
         return NumberRange{row->number, row->number, node.location};
      }
      const bool mayBeNumber = node.text.find_first_of("0123456789") == 0;
      if (!node.isScalar() || node.isNull() || mayBeNumber) {
         return values_.range(node, "protocol", maxByte);
      }
      auto words = wordsOf(protocolWords());
      words.push_back("a number from 0 to 255");
      words.push_back("a range such as 6-17");
      findings().add(node.location, unknownWord("protocol", node.text, words));
      return std::nullopt;
   }

   std::optional<PortEntry> readPortEntry(const Node& node) const {
      const Fields fields(node, Shape::portEntry, values_);
      PortEntry entry;
      entry.location = node.location;
      readPorts(entry.source, fields, "source");
      readPorts(entry.destination, fields, "destination");
      readName(entry.sourceSet, fields, "source-set");
      readName(entry.destinationSet, fields, "destination-set");
      return entry;
   }

   void readPorts(std::vector<NumberRange>& target, const Fields& fields,
                  std::string_view key) const {
      Once<std::pair<std::uint16_t, std::uint16_t>> once("port range", findings());
      readList(target, fields, key, values_, [&](const Node& node) -> std::optional<NumberRange> {
         const auto range = values_.range(node, key, maxPort);
         if (range && !once.isFirst({range->low, range->high}, node.location,
                                    rangeText(range->low, range->high))) {
            return std::nullopt;
         }
         return range;
      });
   }

   void checkPortEntries(const ProtocolMatch& match, const Fields& fields) const {
      if (match.ports.size() > 1 && !rules_.severalPortEntries) {
         findings().add(
               fields.value("ports")->location,
               fmt::format("{} port entries while the toggle "
                           "FeaturePostcardTelemetryTcpControl is off (expected at most 1)",
                           match.ports.size()));
      }
   }

   void readTcpFlags(std::vector<TcpFlagMatch>& target, const Fields& fields) const {
      Once<std::pair<std::uint8_t, std::uint8_t>> once("TCP-flag match", findings());
      readList(target, fields, "tcp-flags", values_,
               [&](const Node& node) -> std::optional<TcpFlagMatch> {
                  auto match = readTcpFlagMatch(node);
                  if (match &&
                      !once.isFirst({match->flags, match->mask}, node.location,
                                    fmt::format("{:#x} under {:#x}", match->flags, match->mask))) {
                     return std::nullopt;
                  }
                  return match;
               });
   }

   std::optional<TcpFlagMatch> readTcpFlagMatch(const Node& node) const {
      const Fields fields(node, Shape::tcpFlags, values_);
      std::optional<std::uint8_t> flags;
      std::optional<std::uint8_t> mask;
      readInto(flags, fields, "flags",
               [this](const Node& value, std::string_view what) { return flagBits(value, what); });
      readInto(mask, fields, "mask",
               [this](const Node& value, std::string_view what) { return flagBits(value, what); });
      if (mask && *mask == 0) {
         findings().add(fields.value("mask")->location,
                        "mask of a TCP-flag match is empty (expected at least one flag)");
         return std::nullopt;
      }
      if (!flags || !mask || !fitsMask(*fields.value("flags"), "flags", *flags, *mask)) {
         return std::nullopt;
      }
      return TcpFlagMatch{*flags, *mask, node.location};
   }

   // A list of flag names or one number.
   std::optional<std::uint8_t> flagBits(const Node& node, std::string_view what) const {
      if (node.kind != NodeKind::sequence) {
         const auto number = node.kind == NodeKind::plain ? parseNumber(node.text) : std::nullopt;
         if (!number || *number > maxByte) {
            values_.mismatch(node, "a list of TCP flags or a number from 0 to 255", what);
            return std::nullopt;
         }
         return static_cast<std::uint8_t>(*number);
      }
      Once<std::uint8_t> once("TCP flag", findings());
      unsigned int bits = 0;
      bool good = true;
      for (const Node& child : node.children()) {
         const Classification::NamedNumber* row = word(child, tcpFlagWords(), "TCP flag");
         good = row != nullptr && once.isFirst(row->number, child.location, row->word) && good;
         bits |= row != nullptr ? row->number : 0U;
      }
      return good ? std::optional(static_cast<std::uint8_t>(bits)) : std::nullopt;
   }

   void readIcmpTypes(std::vector<IcmpType>& target, const Fields& fields) const {
      Once<std::uint64_t> once("ICMP type", findings());
      readList(target, fields, "icmp-types", values_,
               [&](const Node& node) -> std::optional<IcmpType> {
                  const auto type = values_.number(node, "icmp-types", 0, maxByte);
                  if (!type || !once.isFirst(*type, node.location, fmt::format("{}", *type))) {
                     return std::nullopt;
                  }
                  return IcmpType{static_cast<std::uint8_t>(*type), node.location};
               });
   }

   static std::string rangeText(unsigned int low, unsigned int high) {
      return low == high ? fmt::format("{}", low) : fmt::format("{}-{}", low, high);
   }

   const FilterRules& rules_;
   const Values& values_;
};

} // namespace

Filter readFilter(const Node& key, const Node& value, const FilterRules& rules,
                  const Values& values) {
   return FilterReader(rules, values).read(key, value);
}

} // namespace Postcard::Policy::File
