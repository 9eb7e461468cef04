#include "postcard/policy/file/Filter.h"

#include "postcard/policy/file/Fields.h"
#include "postcard/policy/file/Protocols.h"

#include <limits>

namespace Postcard::Policy::File {

namespace {

constexpr U16 maxWord = std::numeric_limits<U16>::max();
constexpr U16 maxByte = std::numeric_limits<U8>::max();

// Reads one filter. A function that returns an optional has added a finding when it returns
// nothing.
class FilterReader {
 public:
   FilterReader(const FilterRules& rules, const Values& values) : rules_{rules}, values_{values} {}

   Filter read(const Node& key, const Node& value) const {
      Filter filter;
      filter.location = key.location;
      const Fields fields{value, Shape::filter, values_};
      readPrefixes(filter.source, fields, "source");
      readPrefixes(filter.destination, fields, "destination");
      readPrefixes(filter.sourceExcept, fields, "source-except");
      readPrefixes(filter.destinationExcept, fields, "destination-except");
      readName(filter.sourcePrefixSet, fields, "source-prefix-set");
      readName(filter.destinationPrefixSet, fields, "destination-prefix-set");
      readRange(filter.payloadLength, fields, "payload-length", maxWord);
      readRange(filter.ipTtl, fields, "ip-ttl", maxByte);
      readFlag(filter.fragments, fields, "fragments");
      readFlag(filter.ipOptions, fields, "ip-options");
      readFlag(filter.protocol, fields, "protocol");
      readFlag(filter.protocolNeighbor, fields, "protocol-neighbor");
      readInto(filter.sample, fields, "sample",
               [this](const Node& node, std::string_view) { return readSample(node); });
      readProtocols(filter.protocols, fields, rules_.severalPortEntries, values_);
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
                  U16 high) const {
      readInto(target, fields, key, [this, high](const Node& node, std::string_view what) {
         return values_.range(node, what, high);
      });
   }

   // Prefixes are compared without their host bits: 10.0.0.1/8 repeats 10.0.0.0/8. The helper
   // counts the prefixes of its record, which keeps equal ones once.
   void readPrefixes(std::vector<Prefix>& target, const Fields& fields,
                     std::string_view key) const {
      Once<Orlix::IpGenPrefix> once{"prefix", findings()};
      readList(target, fields, key, values_, [&](const Node& node) -> std::optional<Prefix> {
         auto prefix = values_.prefix(node, key, rules_.family);
         if (prefix && !once.isFirst(prefix->value, node.location, prefix->value.stringValue())) {
            return std::nullopt;
         }
         return prefix;
      });
   }

   // The mask begins at 1, because the helper asserts that the mask of a sample match is not 0.
   std::optional<SampleMatch> readSample(const Node& node) const {
      const Fields fields{node, Shape::sample, values_};
      SampleMatch sample;
      sample.location = node.location;
      const auto data = readBits(fields, "data", 0, maxWord);
      const auto mask = readBits(fields, "mask", 1, maxWord);
      readInto(sample.field, fields, "field",
               [this](const Node& word, std::string_view) { return readSampleField(word); });
      if (!data || !mask || !values_.fitsMask(*fields.value("data"), "data", *data, *mask)) {
         return std::nullopt;
      }
      sample.data = *data;
      sample.mask = *mask;
      return sample;
   }

   std::optional<U16> readBits(const Fields& fields, std::string_view key, U64 low,
                               U64 high) const {
      std::optional<U16> bits;
      readInto(bits, fields, key, [&](const Node& node, std::string_view what) {
         const auto number = values_.number(node, what, low, high);
         return number ? std::optional{static_cast<U16>(*number)} : std::nullopt;
      });
      return bits;
   }

   std::optional<SampleField> readSampleField(const Node& node) const {
      const FieldWord* row = readWord(node, sampleFieldWords(), "field", values_);
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

   const FilterRules& rules_;
   const Values& values_;
};

} // namespace

Filter readFilter(const Node& key, const Node& value, const FilterRules& rules,
                  const Values& values) {
   return FilterReader{rules, values}.read(key, value);
}

} // namespace Postcard::Policy::File
