// `TcpUdpCheckSumOrIpId`: the sample match. Compares, under a mask, a 16-bit field of the packet
// that differs from packet to packet. Each bit of the mask halves the share of packets that match,
// so n bits sample about one packet in 2^n. Relies on the entities of the framework.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/String.h"

namespace Classification {

// The values of `version`: which field is compared.
inline constexpr U32 sampleVersionChecksum = 0; // the TCP or UDP checksum (RFC 9293, RFC 768)
inline constexpr U32 sampleVersionIpId = 4;     // the IPv4 identification (RFC 791); IPv4 only

// A packet matches when the field, ANDed with `mask`, equals `data` ANDed with `mask`.
class TcpUdpCheckSumOrIpId : public Kiv::Entity {
   KIV_ENTITY(TcpUdpCheckSumOrIpId, Kiv::Entity, "Classification::TcpUdpCheckSumOrIpId");
   KIV_CONSTANT(130, Pello::String, name); // the key in its owner; carries no meaning
   KIV_ATTRIBUTE(131, U32, data);          // 0 to 65535
   KIV_ATTRIBUTE(132, U32, mask);          // 1 to 65535
   KIV_ATTRIBUTE(133, U32, version);       // `sampleVersionChecksum` or `sampleVersionIpId`

 public:
   explicit TcpUdpCheckSumOrIpId(Pello::String name) : name_{std::move(name)} {}
};

} // namespace Classification
