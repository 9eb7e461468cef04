// `TcpUdpCheckSumOrIpId`: the sample match. A 16-bit field of the packet that varies from packet to
// packet, compared under a mask: every mask bit halves the share of packets that match.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/String.h"

namespace Classification {

// Which field is compared.
inline constexpr U32 sampleVersionChecksum = 0; // the TCP or UDP checksum
inline constexpr U32 sampleVersionIpId = 4;     // the IPv4 identification (RFC 791)

class TcpUdpCheckSumOrIpId : public Kiv::Entity {
   KIV_ENTITY(TcpUdpCheckSumOrIpId, Kiv::Entity, "Classification::TcpUdpCheckSumOrIpId");
   KIV_CONSTANT(130, Pello::String, name); // the key in its owner; carries no meaning
   KIV_ATTRIBUTE(131, U32, data);
   KIV_ATTRIBUTE(132, U32, mask);
   KIV_ATTRIBUTE(133, U32, version); // `sampleVersionChecksum` or `sampleVersionIpId`

 public:
   explicit TcpUdpCheckSumOrIpId(Pello::String name) : name_{std::move(name)} {}
};

} // namespace Classification
