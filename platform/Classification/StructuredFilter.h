// `StructuredFilter`: which packets a class means, in one address family. Every part that is not
// given matches everything.
#pragma once

#include "Classification/ProtoField.h"
#include "Classification/TcpUdpCheckSumOrIpId.h"
#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/String.h"
#include "Orlix/IpGenPrefix.h"

namespace Classification {

// The packet is a fragment. It has no further attributes yet.
class FragmentsMatch : public Kiv::Entity {
   KIV_ENTITY(FragmentsMatch, Kiv::Entity, "Classification::FragmentsMatch");

 public:
   FragmentsMatch() = default;
};

class StructuredFilter : public Kiv::Entity {
   KIV_ENTITY(StructuredFilter, Kiv::Entity, "Classification::StructuredFilter");
   KIV_CONSTANT(130, U32, id);
   KIV_COLLECTION(131, source, Kiv::RbTreeSet<Orlix::IpGenPrefix>);
   KIV_COLLECTION(132, sourceExcept, Kiv::RbTreeSet<Orlix::IpGenPrefix>);
   KIV_ATTRIBUTE(133, Pello::String, sourcePrefixSet); // name of a prefix set; empty: none
   KIV_COLLECTION(134, destination, Kiv::RbTreeSet<Orlix::IpGenPrefix>);
   KIV_COLLECTION(135, destinationExcept, Kiv::RbTreeSet<Orlix::IpGenPrefix>);
   KIV_ATTRIBUTE(136, Pello::String, destinationPrefixSet); // name of a prefix set; empty: none
   KIV_COLLECTION(137, payloadLength, Kiv::RbTreeSet<NumericalRange>); // bytes
   KIV_CHILD(138, FragmentsMatch, fragments);                          // null: not asked
   KIV_COLLECTION(139, ipTtl, Kiv::RbTreeSet<NumericalRange>);         // hops
   KIV_ATTRIBUTE(140, bool, ipOptions);                                // the packet has IP options
   KIV_ATTRIBUTE(141, bool, protocol);         // matches on the protocol as a whole
   KIV_ATTRIBUTE(142, bool, protocolNeighbor); // the packet is for a protocol neighbour
   KIV_COLLECTION(143, protoField, Kiv::RbTreeEntityMap<NumericalRange, ProtoField>);
   KIV_CHILD(144, TcpUdpCheckSumOrIpId, tcpUdpCheckSumOrIpId); // null: no sample match

 public:
   explicit StructuredFilter(U32 id) : id_{id} {}
};

} // namespace Classification
