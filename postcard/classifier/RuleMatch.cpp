#include "postcard/classifier/RuleMatch.h"

namespace Postcard::Classifier {

namespace {

template <class Number>
bool fits(const FieldMatch<Number>& match, const std::optional<Number>& field) {
   return !match.asked || (field && ((*field ^ match.data) & match.mask) == 0);
}

} // namespace

Prefix prefixOf(const Orlix::IpGenPrefix& prefix) {
   return {addressBits(prefix.address().data(), prefix.family() == Orlix::AddressFamily::ipv4),
           prefix.length()};
}

bool matches(const RuleMatch& rule, const Packets::Packet& packet) {
   const bool ipv4 = packet.family == Orlix::AddressFamily::ipv4;
   return !rule.impossible && rule.protocol == packet.protocol &&
          rule.source.contains(addressBits(packet.source.data(), ipv4)) &&
          rule.destination.contains(addressBits(packet.destination.data(), ipv4)) &&
          fits(rule.sourcePort, packet.sourcePort) &&
          fits(rule.destinationPort, packet.destinationPort) &&
          fits(rule.tcpFlags, packet.tcpFlags) && fits(rule.checksum, packet.checksum) &&
          fits(rule.identification, packet.identification);
}

} // namespace Postcard::Classifier
