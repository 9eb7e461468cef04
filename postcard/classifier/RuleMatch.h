// `RuleMatch`: what a rule asks of a packet, as plain values; `matches`: whether a packet has it.
// Relies on the packet model.
#pragma once

#include "Orlix/IpGenPrefix.h"
#include "postcard/classifier/Bits.h"
#include "postcard/packets/Packet.h"

namespace Postcard::Classifier {

// What a rule asks of a field that not every packet has.
template <class Number>
struct FieldMatch {
   bool asked = false; // else the rule takes every packet, also one without the field
   Number data = 0;    // the field equals `data` in the bits of `mask`;
   Number mask = 0;    // 0: the packet has the field, whatever its value
};

// What a rule asks of a packet. Made without arguments it asks for protocol 0 and nothing else.
struct RuleMatch {
   Prefix source;      // of an address as `addressBits` lays it out; length 0: every address
   Prefix destination; // the same
   U8 protocol = 0;    // of the payload, as in `Packets::Packet`
   // A rule that asks for bits that no field has; no packet matches.
   bool impossible = false;
   FieldMatch<U8> tcpFlags;
   FieldMatch<U16> sourcePort;
   FieldMatch<U16> destinationPort;
   FieldMatch<U16> checksum;
   FieldMatch<U16> identification;
};

// The prefix as rules ask for it. `prefix` must not be unset. "0.0.0.0/0", which stands for every
// address, has length 0 in rules of either family.
Prefix prefixOf(const Orlix::IpGenPrefix& prefix);

// Whether a packet of the rule's own family has everything that the rule asks. Compares field by
// field; `RuleIndex` finds the first of many rules without this.
bool matches(const RuleMatch& rule, const Packets::Packet& packet);

} // namespace Postcard::Classifier
