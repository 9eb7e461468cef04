#include "postcard/policy/file/Filter.h"

#include "postcard/policy/SampleRate.h"
#include "postcard/policy/file/Fields.h"
#include "postcard/policy/file/Protocols.h"

#include <fmt/format.h>

#include <limits>

namespace Postcard::Policy::File {

namespace {

constexpr U16 maxWord = std::numeric_limits<U16>::max();
constexpr U16 maxByte = std::numeric_limits<U8>::max();

// Reads one filter. A function that returns an optional has added a finding when it returns
// nothing.
class FilterReader {
 public:
   FilterReader(const FilterRules& rules, Definitions& definitions, const Values& values)
      : rules_{rules}, definitions_{definitions}, values_{values} {}

   void readOwn(Filter& filter, const Node& key, const Node& value) const {
      filter.location = key.location;
      const Fields fields{value, Shape::filter, values_};
      readPrefixes(filter.source, fields, "source");
      readPrefixes(filter.destination, fields, "destination");
      readPrefixes(filter.sourceExcept, fields, "source-except");
      readPrefixes(filter.destinationExcept, fields, "destination-except");
      readName(filter.sourcePrefixSet, fields, "source-prefix-set");
      readName(filter.destinationPrefixSet, fields, "destination-prefix-set");
      readCommon(filter, fields);
   }

   Filter readBoth(const Node& key, const Node& value) const {
      Filter filter;
      filter.location = key.location;
      readCommon(filter, Fields{value, Shape::both, values_});
      return filter;
   }

 private:
   Findings& findings() const { return values_.findings(); }

   // Reads what a filter of one family and a filter for both may hold.
   void readCommon(Filter& filter, const Fields& fields) const {
      readRange(filter.payloadLength, fields, "payload-length", maxWord);
      readRange(filter.ipTtl, fields, "ip-ttl", maxByte);
      readFlag(filter.fragments, filter.fragmentsLocation, fields, "fragments");
      readFlag(filter.ipOptions, filter.ipOptionsLocation, fields, "ip-options");
      readFlag(filter.protocol, filter.protocolLocation, fields, "protocol");
      readFlag(filter.protocolNeighbor, filter.protocolNeighborLocation, fields,
               "protocol-neighbor");
      readInto(filter.sample, fields, "sample",
               [this](const Node& node, std::string_view) { return readSample(node); });
      readProtocols(filter.protocols, fields, rules_.severalPortEntries, definitions_, values_);
   }

   void readFlag(bool& target, Location& location, const Fields& fields,
                 std::string_view key) const {
      readInto(target, fields, key, [&](const Node& node, std::string_view what) {
         location = node.location;
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
         auto prefix = definitions_.prefix(node, key, rules_.family, values_);
         if (prefix && !once.isFirst(prefix->value, node.location, prefix->value.stringValue())) {
            return std::nullopt;
         }
         return prefix;
      });
   }

   std::optional<SampleMatch> readSample(const Node& node) const {
      const Fields fields{node, Shape::sample, values_};
      if (node.kind != NodeKind::mapping) {
         return std::nullopt;
      }
      auto sample = fields.lacks("rate") ? readMask(node, fields) : readRate(fields);
      SampleField field = SampleField::checksum;
      readInto(field, fields, "field",
               [this](const Node& word, std::string_view) { return readSampleField(word); });
      if (sample) {
         sample->location = node.location;
         sample->field = field;
      }
      return sample;
   }

   // A rate says both, data and mask, so neither may stand beside it.
   std::optional<SampleMatch> readRate(const Fields& fields) const {
      for (const std::string_view other : {"data", "mask"}) {
         if (const Node* key = fields.key(other)) {
            findings().add(
                  key->location, FindingCode::conflict,
                  fmt::format("sample has a rate, which says what {} is (expected rate, or "
                              "data and mask)",
                              other));
         }
      }
      std::optional<SampleMatch> sample;
      readInto(sample, fields, "rate",
               [this](const Node& node, std::string_view) { return sampleOf(node); });
      return sample;
   }

   std::optional<SampleMatch> sampleOf(const Node& node) const {
      const auto rate = node.kind == NodeKind::plain ? parseNumber(node.text) : std::nullopt;
      if (!rate) {
         values_.mismatch(
               node,
               fmt::format("a power of two from {} to {}", leastSampleRate, greatestSampleRate),
               "rate");
         return std::nullopt;
      }
      if (!isSampleRate(*rate)) {
         const std::string_view hint = *rate == 1 ? "; action sample-all samples every packet" : "";
         findings().add(node.location, FindingCode::badRate,
                        fmt::format("rate {} cannot be had (expected a power of two from {} to {}; "
                                    "{}){}",
                                    node.text, leastSampleRate, greatestSampleRate,
                                    nearestSampleRates(*rate), hint));
         return std::nullopt;
      }
      return sampleOfRate(static_cast<U32>(*rate));
   }

   // The mask begins at 1, because the helper asserts that the mask of a sample match is not 0.
   std::optional<SampleMatch> readMask(const Node& node, const Fields& fields) const {
      reportMissingBits(node, fields);
      const auto data = readBits(fields, "data", 0, maxWord);
      const auto mask = readBits(fields, "mask", 1, maxWord);
      if (!data || !mask || !values_.fitsMask(*fields.value("data"), "data", *data, *mask)) {
         return std::nullopt;
      }
      SampleMatch sample;
      sample.data = *data;
      sample.mask = *mask;
      return sample;
   }

   void reportMissingBits(const Node& node, const Fields& fields) const {
      if (fields.lacks("data") && fields.lacks("mask")) {
         findings().add(node.location, FindingCode::missingKey,
                        "missing key 'rate', or the keys 'data' and 'mask', in sample");
         return;
      }
      for (const std::string_view key : {"data", "mask"}) {
         if (fields.lacks(key)) {
            findings().add(node.location, FindingCode::missingKey,
                           fmt::format("missing key '{}' in sample", key));
         }
      }
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
         findings().add(node.location, FindingCode::wrongFamily,
                        "field ip-id is the IPv4 identification; an IPv6 packet has none");
         return std::nullopt;
      }
      return row->field;
   }

   const FilterRules& rules_;
   Definitions& definitions_;
   const Values& values_;
};

} // namespace

void readFilter(Filter& filter, const Node& key, const Node& value, const FilterRules& rules,
                Definitions& definitions, const Values& values) {
   FilterReader{rules, definitions, values}.readOwn(filter, key, value);
}

Filter readFilterForBoth(const Node& key, const Node& value, bool severalPortEntries,
                         Definitions& definitions, const Values& values) {
   // IPv6 allows less: a sample match of the IPv4 identification is refused.
   const FilterRules rules{Family::ipv6, severalPortEntries};
   return FilterReader{rules, definitions, values}.readBoth(key, value);
}

} // namespace Postcard::Policy::File
