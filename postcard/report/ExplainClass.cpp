#include "postcard/report/ExplainClass.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

namespace Cli {

namespace {

using Agent::NumberRange;
using Agent::PortEntry;
using RulesClient::Packet;
using OptionalMiss = std::optional<Miss>;

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
   return fmt::format("{}", fmt::join(texts, separator));
}

bool hasAction(const Agent::Class& each, Agent::ActionKind kind) {
   return std::ranges::find(each.actions, kind, &Agent::Action::kind) != each.actions.end();
}

// ---- Addresses ----

bool inPrefix(const Agent::Prefix& prefix, std::span<const U8> address) {
   for (unsigned bit = 0; bit < prefix.length; ++bit) {
      if (((prefix.address[bit / 8] ^ address[bit / 8]) >> (7 - bit % 8) & 1) != 0) {
         return false;
      }
   }
   return true;
}

OptionalMiss addressMiss(Field field, const std::vector<Agent::Prefix>& prefixes,
                         std::span<const U8> address) {
   if (prefixes.empty() || inPrefix(prefixes.front(), address)) { // more than one is refused
      return std::nullopt;
   }
   return Miss{field, prefixes.front().text, RulesClient::printAddress(address)};
}

// ---- Ports ----

std::string rangesText(const std::vector<const PortEntry*>& entries,
                       std::vector<NumberRange> PortEntry::*side) {
   std::vector<std::string> texts;
   for (const PortEntry* entry : entries) {
      for (const NumberRange& range : entry->*side) {
         std::string text = range.low == range.high ? std::to_string(range.low)
                                                    : fmt::format("{}-{}", range.low, range.high);
         if (std::ranges::find(texts, text) == texts.end()) {
            texts.push_back(std::move(text));
         }
      }
   }
   return texts.empty() ? "one of an empty list of ranges" : joined(texts, ", ");
}

// A side without ranges matches every port, also the missing one of a later fragment.
bool sideMatches(const std::vector<NumberRange>& ranges, const std::optional<U16>& port) {
   return ranges.empty() || (port && std::ranges::any_of(ranges, [&](const NumberRange& range) {
                                return *port >= range.low && *port <= range.high;
                             }));
}

// Of `entries` leaves those whose side matches; a miss when none is left.
OptionalMiss narrow(Field field, std::vector<const PortEntry*>& entries,
                    std::vector<NumberRange> PortEntry::*side, const std::optional<U16>& port) {
   std::vector<const PortEntry*> left;
   std::ranges::copy_if(entries, std::back_inserter(left),
                        [&](const PortEntry* entry) { return sideMatches(entry->*side, port); });
   if (left.empty()) {
      return Miss{field, rangesText(entries, side),
                  port ? std::to_string(*port) : "no port in a later fragment"};
   }
   entries = std::move(left);
   return std::nullopt;
}

OptionalMiss portMiss(const std::vector<PortEntry>& ports, const Packet& packet) {
   if (ports.empty()) {
      return std::nullopt;
   }
   std::vector<const PortEntry*> entries;
   for (const PortEntry& entry : ports) {
      if (!entry.source.empty() || !entry.destination.empty()) {
         entries.push_back(&entry);
      }
   }
   if (OptionalMiss miss =
             narrow(Field::sourcePort, entries, &PortEntry::source, packet.sourcePort)) {
      return miss;
   }
   return narrow(Field::destinationPort, entries, &PortEntry::destination, packet.destinationPort);
}

// ---- Flags and sample bits ----

OptionalMiss flagsMiss(const std::vector<Agent::TcpFlagMatch>& matches, const Packet& packet) {
   std::vector<std::string> wanted;
   for (const Agent::TcpFlagMatch& match : matches) {
      if (packet.tcpFlags && (*packet.tcpFlags & match.mask) == match.flags) {
         return std::nullopt;
      }
      wanted.push_back(fmt::format("{} of {}", RulesClient::tcpFlagNames(match.flags),
                                   RulesClient::tcpFlagNames(match.mask)));
   }
   if (matches.empty()) {
      return std::nullopt;
   }
   return Miss{Field::tcpFlags, joined(wanted, " or "),
               packet.tcpFlags ? RulesClient::tcpFlagNames(*packet.tcpFlags)
                               : "no flags in a later fragment"};
}

OptionalMiss sampleMiss(const Agent::SampleMatch* match, const Packet& packet) {
   if (match == nullptr) {
      return std::nullopt;
   }
   const bool isChecksum = match->field == Agent::SampleField::checksum;
   const std::optional<U16>& value = isChecksum ? packet.checksum : packet.identification;
   if (value && (*value & match->mask) == match->data) {
      return std::nullopt;
   }
   return Miss{Field::sample,
               fmt::format("{} 0x{:04x} under mask 0x{:04x}", isChecksum ? "checksum" : "ip-id",
                           match->data, match->mask),
               value ? fmt::format("0x{:04x}", *value) : "no checksum in a later fragment"};
}

OptionalMiss protocolMiss(const Agent::Filter& filter, const Agent::Hardware& hardware,
                          const Packet& packet) {
   std::vector<std::string> wanted;
   for (const Agent::ProtocolMatch& match : filter.protocols) {
      if (match.low == packet.protocol) { // ranges are refused
         OptionalMiss miss = portMiss(match.ports, packet);
         return miss || !hardware.tcpFlags ? miss : flagsMiss(match.tcpFlags, packet);
      }
      wanted.push_back(RulesClient::protocolName(match.low));
   }
   const bool tcpOrUdp =
         packet.protocol == RulesClient::protocolTcp || packet.protocol == RulesClient::protocolUdp;
   if (filter.protocols.empty() && tcpOrUdp) {
      return std::nullopt;
   }
   return Miss{Field::protocol, wanted.empty() ? "tcp or udp" : joined(wanted, " or "),
               RulesClient::protocolName(packet.protocol)};
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

const Agent::SampleMatch* sampleOf(const Agent::Class& each, Agent::Family family) {
   const Agent::Filter* filter = each.filter(family);
   return hasAction(each, Agent::ActionKind::sample) && filter->sample ? &*filter->sample : nullptr;
}

bool samples(const Agent::Class& each) {
   return hasAction(each, Agent::ActionKind::sample) ||
          hasAction(each, Agent::ActionKind::sampleAll);
}

std::optional<Miss> firstMiss(const Agent::Class& each, const Agent::Hardware& hardware,
                              const Packet& packet) {
   const Agent::Family family =
         packet.family == Orlix::AddressFamily::ipv4 ? Agent::Family::ipv4 : Agent::Family::ipv6;
   const Agent::Filter& filter = *each.filter(family);
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
   return sampleMiss(sampleOf(each, family), packet);
}

} // namespace Cli
