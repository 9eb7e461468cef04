#include "postcard/report/explain/Miss.h"

#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <utility>

namespace Postcard::Report {

namespace {

using OptionalField = std::optional<Field>;

Policy::Family familyOf(const Packets::Packet& packet) {
   return packet.family == Orlix::AddressFamily::ipv4 ? Policy::Family::ipv4 : Policy::Family::ipv6;
}

// ---- Which field ----

// Without prefixes every address matches.
bool inPrefixes(const std::vector<Policy::Prefix>& prefixes, std::span<const U8> address) {
   return prefixes.empty() ||
          prefixes.front().value.contains(address); // the plug-in refuses a second
}

// Null when the filter names other protocols, or none.
const Policy::ProtocolMatch* protocolOf(const Policy::Filter& filter,
                                        const Packets::Packet& packet) {
   const auto found = std::ranges::find(filter.protocols, packet.protocol,
                                        &Policy::ProtocolMatch::low); // the plug-in refuses ranges
   return found == filter.protocols.end() ? nullptr : &*found;
}

// The plug-in makes no rule of an entry without ranges: it matches no packet.
bool makesRules(const Policy::PortEntry& entry) {
   return !entry.source.empty() || !entry.destination.empty();
}

// Whether a port matches one side of an entry. A side without ranges matches every port; it also
// matches a packet without port: a later fragment, or one whose header is cut off.
bool sideMatches(const std::vector<Policy::NumberRange>& ranges, const std::optional<U16>& port) {
   return ranges.empty() ||
          (port && std::ranges::any_of(ranges, [&](const Policy::NumberRange& range) {
              return *port >= range.low && *port <= range.high;
           }));
}

// A packet matches when one entry matches both of its ports.
OptionalField missedPort(const std::vector<Policy::PortEntry>& entries,
                         const Packets::Packet& packet) {
   OptionalField missed = Field::sourcePort;
   for (const Policy::PortEntry& entry : entries) {
      if (makesRules(entry) && sideMatches(entry.source, packet.sourcePort)) {
         if (sideMatches(entry.destination, packet.destinationPort)) {
            return std::nullopt;
         }
         missed = Field::destinationPort;
      }
   }
   return entries.empty() ? std::nullopt : missed;
}

// Without flag matches every packet matches. A later fragment has no flags, nor has a header that
// is cut off before them, so these packets fail all matches.
bool flagsMatch(const std::vector<Policy::TcpFlagMatch>& matches, const Packets::Packet& packet) {
   return matches.empty() || std::ranges::any_of(matches, [&](const Policy::TcpFlagMatch& match) {
             return packet.tcpFlags && (*packet.tcpFlags & match.mask) == match.flags;
          });
}

// What the filter asks of packets of one protocol: ports, then TCP flags.
OptionalField missedInProtocol(const Policy::ProtocolMatch& match, const Policy::Hardware& hardware,
                               const Packets::Packet& packet) {
   if (const OptionalField missed = missedPort(match.ports, packet)) {
      return missed;
   }
   return !hardware.tcpFlags || flagsMatch(match.tcpFlags, packet) ? std::nullopt
                                                                   : OptionalField{Field::tcpFlags};
}

OptionalField missedProtocol(const Policy::Filter& filter, const Policy::Hardware& hardware,
                             const Packets::Packet& packet) {
   if (const Policy::ProtocolMatch* match = protocolOf(filter, packet)) {
      return missedInProtocol(*match, hardware, packet);
   }
   // A class without protocols gets rules for TCP and UDP.
   const bool tcpOrUdp =
         packet.protocol == Packets::protocolTcp || packet.protocol == Packets::protocolUdp;
   return filter.protocols.empty() && tcpOrUdp ? std::nullopt : OptionalField{Field::protocol};
}

const std::optional<U16>& sampledField(const Policy::SampleMatch& match,
                                       const Packets::Packet& packet) {
   return match.field == Policy::SampleField::checksum ? packet.checksum : packet.identification;
}

// `match` is null when the class compares no sample bits.
bool sampleMatches(const Policy::SampleMatch* match, const Packets::Packet& packet) {
   if (match == nullptr) {
      return true;
   }
   const std::optional<U16>& value = sampledField(*match, packet);
   return value && (*value & match->mask) == match->data;
}

// ---- In words ----

// Says that the packet lacks a field that packets of its protocol have.
std::string absentText(std::string_view field, const Packets::Packet& packet) {
   return packet.headerIsCut() ? fmt::format("no {}: the header is cut off", field)
                               : fmt::format("no {} in a later fragment", field);
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
   return fmt::format("{}", fmt::join(texts, separator));
}

Miss addressMiss(Field field, const std::vector<Policy::Prefix>& prefixes,
                 std::span<const U8> address) {
   return {field, prefixes.front().value.stringValue(), Packets::printAddress(address)};
}

// The ranges of one side of those entries that `counts` returns true for, each once.
template <class Counts>
Miss portMiss(Field field, const std::vector<Policy::PortEntry>& entries,
              std::vector<Policy::NumberRange> Policy::PortEntry::*side, std::string found,
              const Counts& counts) {
   std::vector<std::string> texts;
   for (const Policy::PortEntry& entry : entries) {
      if (!makesRules(entry) || !counts(entry)) {
         continue;
      }
      for (const Policy::NumberRange& range : entry.*side) {
         std::string text = range.low == range.high ? std::to_string(range.low)
                                                    : fmt::format("{}-{}", range.low, range.high);
         if (std::ranges::find(texts, text) == texts.end()) {
            texts.push_back(std::move(text));
         }
      }
   }
   return {field, texts.empty() ? "one of an empty list of ranges" : joined(texts, ", "),
           std::move(found)};
}

std::string portText(const std::optional<U16>& port, const Packets::Packet& packet) {
   return port ? std::to_string(*port) : absentText("port", packet);
}

Miss sourcePortMiss(const Policy::ProtocolMatch& match, const Packets::Packet& packet) {
   return portMiss(Field::sourcePort, match.ports, &Policy::PortEntry::source,
                   portText(packet.sourcePort, packet),
                   [](const Policy::PortEntry&) { return true; });
}

// Only entries whose source ports match could have had the packet.
Miss destinationPortMiss(const Policy::ProtocolMatch& match, const Packets::Packet& packet) {
   return portMiss(Field::destinationPort, match.ports, &Policy::PortEntry::destination,
                   portText(packet.destinationPort, packet), [&](const Policy::PortEntry& entry) {
                      return sideMatches(entry.source, packet.sourcePort);
                   });
}

Miss protocolMiss(const Policy::Filter& filter, const Packets::Packet& packet) {
   std::vector<std::string> wanted;
   wanted.reserve(filter.protocols.size());
   for (const Policy::ProtocolMatch& match : filter.protocols) {
      wanted.push_back(Packets::protocolName(match.low));
   }
   return {Field::protocol, wanted.empty() ? "tcp or udp" : joined(wanted, " or "),
           Packets::protocolName(packet.protocol)};
}

Miss flagsMiss(const std::vector<Policy::TcpFlagMatch>& matches, const Packets::Packet& packet) {
   std::vector<std::string> wanted;
   wanted.reserve(matches.size());
   for (const Policy::TcpFlagMatch& match : matches) {
      wanted.push_back(fmt::format("{} of {}", Packets::tcpFlagNames(match.flags),
                                   Packets::tcpFlagNames(match.mask)));
   }
   return {Field::tcpFlags, joined(wanted, " or "),
           packet.tcpFlags ? Packets::tcpFlagNames(*packet.tcpFlags) : absentText("flags", packet)};
}

Miss sampleMiss(const Policy::SampleMatch& match, const Packets::Packet& packet) {
   const std::optional<U16>& value = sampledField(match, packet);
   return {Field::sample,
           fmt::format("{} 0x{:04x} under mask 0x{:04x}",
                       match.field == Policy::SampleField::checksum ? "checksum" : "ip-id",
                       match.data, match.mask),
           value ? fmt::format("0x{:04x}", *value) : absentText("checksum", packet)};
}

} // namespace

std::string_view fieldName(Field field) {
   switch (field) {
   case Field::source:
      return "source";
   case Field::destination:
      return "destination";
   case Field::protocol:
      return "protocol";
   case Field::sourcePort:
      return "source port";
   case Field::destinationPort:
      return "destination port";
   case Field::tcpFlags:
      return "tcp-flags";
   case Field::sample:
      break;
   }
   return "sample";
}

std::optional<Field> missedField(const Policy::Class& each, const Policy::Hardware& hardware,
                                 const Packets::Packet& packet) {
   const Policy::Filter& filter = *each.filter(familyOf(packet));
   if (!inPrefixes(filter.source, packet.sourceAddress())) {
      return Field::source;
   }
   if (!inPrefixes(filter.destination, packet.destinationAddress())) {
      return Field::destination;
   }
   if (const OptionalField missed = missedProtocol(filter, hardware, packet)) {
      return missed;
   }
   return sampleMatches(Policy::sampleOf(each, familyOf(packet)), packet)
                ? std::nullopt
                : OptionalField{Field::sample};
}

std::optional<Miss> firstMiss(const Policy::Class& each, const Policy::Hardware& hardware,
                              const Packets::Packet& packet) {
   const OptionalField missed = missedField(each, hardware, packet);
   if (!missed) {
      return std::nullopt;
   }
   const Policy::Filter& filter = *each.filter(familyOf(packet));
   switch (*missed) {
   case Field::source:
      return addressMiss(Field::source, filter.source, packet.sourceAddress());
   case Field::destination:
      return addressMiss(Field::destination, filter.destination, packet.destinationAddress());
   case Field::protocol:
      return protocolMiss(filter, packet);
   case Field::sourcePort:
      return sourcePortMiss(*protocolOf(filter, packet), packet);
   case Field::destinationPort:
      return destinationPortMiss(*protocolOf(filter, packet), packet);
   case Field::tcpFlags:
      return flagsMiss(protocolOf(filter, packet)->tcpFlags, packet);
   case Field::sample:
      break;
   }
   return sampleMiss(*Policy::sampleOf(each, familyOf(packet)), packet);
}

} // namespace Postcard::Report
