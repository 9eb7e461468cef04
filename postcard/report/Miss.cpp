#include "postcard/report/Miss.h"

#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

namespace Postcard::Report {

namespace {

using OptionalMiss = std::optional<Miss>;

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
   return fmt::format("{}", fmt::join(texts, separator));
}

// ---- Addresses ----

// Without prefixes every address matches.
OptionalMiss addressMiss(Field field, const std::vector<Policy::Prefix>& prefixes,
                         std::span<const U8> address) {
   if (prefixes.empty() ||
       prefixes.front().value.contains(address)) { // the plug-in refuses a second
      return std::nullopt;
   }
   return Miss{field, prefixes.front().value.stringValue(), Packets::printAddress(address)};
}

// ---- Ports ----

// The ranges of one side of `entries`, each once, although several entries may share a range.
std::string rangesText(const std::vector<const Policy::PortEntry*>& entries,
                       std::vector<Policy::NumberRange> Policy::PortEntry::*side) {
   std::vector<std::string> texts;
   for (const Policy::PortEntry* entry : entries) {
      for (const Policy::NumberRange& range : entry->*side) {
         std::string text = range.low == range.high ? std::to_string(range.low)
                                                    : fmt::format("{}-{}", range.low, range.high);
         if (std::ranges::find(texts, text) == texts.end()) {
            texts.push_back(std::move(text));
         }
      }
   }
   return texts.empty() ? "one of an empty list of ranges" : joined(texts, ", ");
}

// Whether a port matches one side of an entry. A side without ranges matches every port; it also
// matches a later fragment, which has no port.
bool sideMatches(const std::vector<Policy::NumberRange>& ranges, const std::optional<U16>& port) {
   return ranges.empty() ||
          (port && std::ranges::any_of(ranges, [&](const Policy::NumberRange& range) {
              return *port >= range.low && *port <= range.high;
           }));
}

// Removes from `entries` those whose `side` does not match the port. When none would be left,
// returns the miss and leaves `entries` as it is.
OptionalMiss narrow(Field field, std::vector<const Policy::PortEntry*>& entries,
                    std::vector<Policy::NumberRange> Policy::PortEntry::*side,
                    const std::optional<U16>& port) {
   std::vector<const Policy::PortEntry*> left;
   std::ranges::copy_if(entries, std::back_inserter(left), [&](const Policy::PortEntry* entry) {
      return sideMatches(entry->*side, port);
   });
   if (left.empty()) {
      return Miss{field, rangesText(entries, side),
                  port ? std::to_string(*port) : "no port in a later fragment"};
   }
   entries = std::move(left);
   return std::nullopt;
}

// A packet matches when one entry matches both of its ports. Source ports are compared first, so a
// miss of the destination port names the ranges of those entries only whose source side matches.
OptionalMiss portMiss(const std::vector<Policy::PortEntry>& ports, const Packets::Packet& packet) {
   if (ports.empty()) {
      return std::nullopt;
   }
   std::vector<const Policy::PortEntry*> entries;
   for (const Policy::PortEntry& entry : ports) {
      // The plug-in makes no rule of an entry without ranges: it matches no packet.
      if (!entry.source.empty() || !entry.destination.empty()) {
         entries.push_back(&entry);
      }
   }
   if (OptionalMiss miss =
             narrow(Field::sourcePort, entries, &Policy::PortEntry::source, packet.sourcePort)) {
      return miss;
   }
   return narrow(Field::destinationPort, entries, &Policy::PortEntry::destination,
                 packet.destinationPort);
}

// ---- Flags and sample bits ----

// Without flag matches every packet matches. A later fragment has no flags, so it fails all of
// them.
OptionalMiss flagsMiss(const std::vector<Policy::TcpFlagMatch>& matches,
                       const Packets::Packet& packet) {
   std::vector<std::string> wanted;
   for (const Policy::TcpFlagMatch& match : matches) {
      if (packet.tcpFlags && (*packet.tcpFlags & match.mask) == match.flags) {
         return std::nullopt;
      }
      wanted.push_back(fmt::format("{} of {}", Packets::tcpFlagNames(match.flags),
                                   Packets::tcpFlagNames(match.mask)));
   }
   if (matches.empty()) {
      return std::nullopt;
   }
   return Miss{Field::tcpFlags, joined(wanted, " or "),
               packet.tcpFlags ? Packets::tcpFlagNames(*packet.tcpFlags)
                               : "no flags in a later fragment"};
}

// `match` is null when the class compares no sample bits.
OptionalMiss sampleMiss(const Policy::SampleMatch* match, const Packets::Packet& packet) {
   if (match == nullptr) {
      return std::nullopt;
   }
   const bool isChecksum = match->field == Policy::SampleField::checksum;
   const std::optional<U16>& value = isChecksum ? packet.checksum : packet.identification;
   if (value && (*value & match->mask) == match->data) {
      return std::nullopt;
   }
   return Miss{Field::sample,
               fmt::format("{} 0x{:04x} under mask 0x{:04x}", isChecksum ? "checksum" : "ip-id",
                           match->data, match->mask),
               value ? fmt::format("0x{:04x}", *value) : "no checksum in a later fragment"};
}

// The protocol, and what the filter asks of packets of this protocol: ports, then TCP flags.
OptionalMiss protocolMiss(const Policy::Filter& filter, const Policy::Hardware& hardware,
                          const Packets::Packet& packet) {
   std::vector<std::string> wanted;
   for (const Policy::ProtocolMatch& match : filter.protocols) {
      if (match.low == packet.protocol) { // the plug-in refuses ranges
         OptionalMiss miss = portMiss(match.ports, packet);
         return miss || !hardware.tcpFlags ? miss : flagsMiss(match.tcpFlags, packet);
      }
      wanted.push_back(Packets::protocolName(match.low));
   }
   // A class without protocols gets rules for TCP and UDP.
   const bool tcpOrUdp =
         packet.protocol == Packets::protocolTcp || packet.protocol == Packets::protocolUdp;
   if (filter.protocols.empty() && tcpOrUdp) {
      return std::nullopt;
   }
   return Miss{Field::protocol, wanted.empty() ? "tcp or udp" : joined(wanted, " or "),
               Packets::protocolName(packet.protocol)};
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

std::optional<Miss> firstMiss(const Policy::Class& each, const Policy::Hardware& hardware,
                              const Packets::Packet& packet) {
   const Policy::Family family =
         packet.family == Orlix::AddressFamily::ipv4 ? Policy::Family::ipv4 : Policy::Family::ipv6;
   const Policy::Filter& filter = *each.filter(family);
   if (auto miss = addressMiss(Field::source, filter.source, packet.sourceAddress())) {
      return miss;
   }
   if (auto miss =
             addressMiss(Field::destination, filter.destination, packet.destinationAddress())) {
      return miss;
   }
   if (auto miss = protocolMiss(filter, hardware, packet)) {
      return miss;
   }
   return sampleMiss(Policy::sampleOf(each, family), packet);
}

} // namespace Postcard::Report
