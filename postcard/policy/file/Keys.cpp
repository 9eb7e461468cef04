#include "postcard/policy/file/Keys.h"

#include <array>
#include <cstddef>

namespace Postcard::Policy::File {

namespace {

constexpr bool required = true;
constexpr bool optional = false;

// The order of the keys is the one in which messages list them.

constexpr auto fileKeys = std::to_array<KeyRow>({
      {"hardware", optional, Shape::hardware},
      {"feature-toggles", optional, Shape::toggles},
      {"definitions", optional, Shape::definitions},
      {"collector", optional, Shape::collector},
      {"expect", optional, Shape::expect},
      {"policies", required, Shape::policy},
});

constexpr auto hardwareKeys = std::to_array<KeyRow>({
      {"tcp-flags", optional, Shape::none},
});

constexpr auto definitionsKeys = std::to_array<KeyRow>({
      {"prefixes", optional, Shape::none},
      {"ports", optional, Shape::none},
});

constexpr auto collectorKeys = std::to_array<KeyRow>({
      {"address", required, Shape::none},
      {"port", optional, Shape::none},
});

constexpr auto expectKeys = std::to_array<KeyRow>({
      {"policies", optional, Shape::none},
      {"classes", optional, Shape::none},
      {"rules", optional, Shape::none},
});

constexpr auto policyKeys = std::to_array<KeyRow>({
      {"name", required, Shape::none},
      {"scope", optional, Shape::none},
      {"interfaces", required, Shape::interfaces},
      {"classes", optional, Shape::policyClass},
});

constexpr auto interfacesKeys = std::to_array<KeyRow>({
      {"ipv4", optional, Shape::none},
      {"ipv6", optional, Shape::none},
});

constexpr auto classKeys = std::to_array<KeyRow>({
      {"name", required, Shape::none},
      {"priority", optional, Shape::none},
      {"actions", optional, Shape::action},
      {"both", optional, Shape::both},
      {"ipv4", optional, Shape::filter},
      {"ipv6", optional, Shape::filter},
});

constexpr auto actionKeys = std::to_array<KeyRow>({
      {"set-dscp", required, Shape::none},
});

// What has the same meaning in both families: everything but prefixes and the names of their sets.
constexpr auto bothKeys = std::to_array<KeyRow>({
      {"payload-length", optional, Shape::none},
      {"fragments", optional, Shape::none},
      {"ip-ttl", optional, Shape::none},
      {"ip-options", optional, Shape::none},
      {"protocol", optional, Shape::none},
      {"protocol-neighbor", optional, Shape::none},
      {"sample", optional, Shape::sample},
      {"protocols", optional, Shape::protocol},
});

constexpr auto filterKeys = std::to_array<KeyRow>({
      {"source", optional, Shape::none},
      {"destination", optional, Shape::none},
      {"source-except", optional, Shape::none},
      {"destination-except", optional, Shape::none},
      {"source-prefix-set", optional, Shape::none},
      {"destination-prefix-set", optional, Shape::none},
      {"payload-length", optional, Shape::none},
      {"fragments", optional, Shape::none},
      {"ip-ttl", optional, Shape::none},
      {"ip-options", optional, Shape::none},
      {"protocol", optional, Shape::none},
      {"protocol-neighbor", optional, Shape::none},
      {"sample", optional, Shape::sample},
      {"protocols", optional, Shape::protocol},
});

constexpr auto sampleKeys = std::to_array<KeyRow>({
      // Either `rate` or both `data` and `mask` are required, which the reader of samples checks.
      {"rate", optional, Shape::none},
      {"data", optional, Shape::none},
      {"mask", optional, Shape::none},
      {"field", optional, Shape::none},
});

constexpr auto protocolKeys = std::to_array<KeyRow>({
      {"protocol", required, Shape::none},
      {"ports", optional, Shape::portEntry},
      {"tcp-flags", optional, Shape::tcpFlags},
      {"icmp-types", optional, Shape::none},
});

constexpr auto portEntryKeys = std::to_array<KeyRow>({
      {"source", optional, Shape::none},
      {"destination", optional, Shape::none},
      {"source-set", optional, Shape::none},
      {"destination-set", optional, Shape::none},
});

constexpr auto tcpFlagsKeys = std::to_array<KeyRow>({
      {"flags", required, Shape::none},
      {"mask", required, Shape::none},
});

// In the order of `Shape`.
constexpr auto shapeRows = std::to_array<ShapeRow>({
      {"the file", fileKeys},
      {"hardware", hardwareKeys},
      {"feature-toggles", {}},
      {"definitions", definitionsKeys},
      {"collector", collectorKeys},
      {"expect", expectKeys},
      {"a policy", policyKeys},
      {"interfaces", interfacesKeys},
      {"a class", classKeys},
      {"an action", actionKeys},
      {"both", bothKeys},
      {"a filter", filterKeys},
      {"sample", sampleKeys},
      {"a protocol", protocolKeys},
      {"a port entry", portEntryKeys},
      {"a TCP-flag match", tcpFlagsKeys},
      {"", {}},
});
static_assert(shapeRows.size() == static_cast<std::size_t>(Shape::none) + 1);

// In the order of `ActionKind`.
const std::array<ActionWord, actionKinds> actions = [] {
   std::array<ActionWord, actionKinds> words{};
   for (std::size_t i = 0; i < words.size(); ++i) {
      const auto kind = static_cast<ActionKind>(i);
      words[i] = {actionName(kind), kind};
   }
   return words;
}();

constexpr Classification::NamedNumber protocol(U8 number) {
   return {Classification::protocolWord(number), number};
}

// The protocols that have a word in the published schema. Every other one is written as a number.
constexpr std::array protocols{protocol(Classification::protocolIcmp),
                               protocol(Classification::protocolTcp),
                               protocol(Classification::protocolUdp)};

constexpr auto sampleFields = std::to_array<FieldWord>({
      {"checksum", SampleField::checksum},
      {"ip-id", SampleField::ipId},
});

} // namespace

const ShapeRow& shapeOf(Shape shape) {
   return shapeRows[static_cast<std::size_t>(shape)];
}

std::span<const ActionWord> actionWords() {
   return actions;
}
std::span<const Classification::NamedNumber> protocolWords() {
   return protocols;
}
std::span<const Classification::NamedNumber> tcpFlagWords() {
   return Classification::tcpFlagWords;
}
std::span<const FieldWord> sampleFieldWords() {
   return sampleFields;
}

} // namespace Postcard::Policy::File
