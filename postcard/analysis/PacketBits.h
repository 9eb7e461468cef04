// `PacketBits`: a packet as the bits that diagrams test, in their order, and back. Internal to this
// room. Relies on `Axis` for the fields.
#pragma once

#include "postcard/analysis/PacketSet.h"
#include "postcard/packets/Packet.h"

#include <array>

namespace Postcard::Analysis {

// Bits of a packet, numbered in the order in which diagrams test them.
struct BitRange {
   int at = 0;    // the first and highest bit
   int width = 0; // in bits; an IPv4 address stands in the upper 32 of its 128
};

inline constexpr int packetBits = 8 + 128 + 128 + 1 + 16 + 16 + 8 + 16 + 16;

// The bits of an axis.
BitRange bitsOf(Axis axis);
// The axis of a field.
Axis axisOf(Field field);

using PacketBits = std::array<bool, packetBits>;

// The bits of `packet`; those of fields that it does not have are clear.
PacketBits bitsOf(const Packets::Packet& packet);
// The packet of `family` with these bits. Without ports, TCP and UDP make a later fragment.
Packets::Packet packetOf(const PacketBits& bits, Policy::Family family);

} // namespace Postcard::Analysis
