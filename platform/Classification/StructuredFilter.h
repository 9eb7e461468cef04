// `StructuredFilter`: which packets a class of a policy matches, in one address family. Relies on
// the entities of the framework and on ProtoField.
#pragma once

#include "Classification/ProtoField.h"
#include "Classification/TcpUdpCheckSumOrIpId.h"
#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/String.h"
#include "Orlix/IpGenPrefix.h"

namespace Classification {

// The condition that the packet is a fragment. An entity without attributes: that it exists is the
// condition.
class FragmentsMatch : public Kiv::Entity {
   KIV_ENTITY(FragmentsMatch, Kiv::Entity, "Classification::FragmentsMatch");

 public:
   FragmentsMatch() = default;
};

// A packet matches when it satisfies every kind of condition that is given; a kind that is empty,
// null or false matches every packet. Of several prefixes, ranges or protocol fields of one kind,
// one is enough.
//
// A filter can express more than a feature's rules can. Each feature says what it refuses; for
// postcard telemetry `checkUnsupportedFields` does.
class StructuredFilter : public Kiv::Entity {
   KIV_ENTITY(StructuredFilter, Kiv::Entity, "Classification::StructuredFilter");
   KIV_CONSTANT(130, U32, id); // the key in its collection
   // Prefixes of the addresses. A packet that lies in one of the excepted prefixes does not match
   // the filter. The names are those of prefix sets that are configured elsewhere; empty: none.
   KIV_COLLECTION(131, source, Kiv::RbTreeSet<Orlix::IpGenPrefix>);
   KIV_COLLECTION(132, sourceExcept, Kiv::RbTreeSet<Orlix::IpGenPrefix>);
   KIV_ATTRIBUTE(133, Pello::String, sourcePrefixSet);
   KIV_COLLECTION(134, destination, Kiv::RbTreeSet<Orlix::IpGenPrefix>);
   KIV_COLLECTION(135, destinationExcept, Kiv::RbTreeSet<Orlix::IpGenPrefix>);
   KIV_ATTRIBUTE(136, Pello::String, destinationPrefixSet);
   KIV_COLLECTION(137, payloadLength, Kiv::RbTreeSet<NumericalRange>); // bytes, 0 to 65535
   KIV_CHILD(138, FragmentsMatch, fragments);                  // null: any packet, fragment or not
   KIV_COLLECTION(139, ipTtl, Kiv::RbTreeSet<NumericalRange>); // 0 to 255
   KIV_ATTRIBUTE(140, bool, ipOptions);                        // the packet has IP options
   KIV_ATTRIBUTE(141, bool, protocol);                         // matches on the protocol as a whole
   KIV_ATTRIBUTE(142, bool, protocolNeighbor); // the packet is for a protocol neighbour
   // The protocols, and for each of them ports, TCP flags and ICMP types. Empty: every protocol.
   KIV_COLLECTION(143, protoField, Kiv::RbTreeEntityMap<NumericalRange, ProtoField>);
   KIV_CHILD(144, TcpUdpCheckSumOrIpId, tcpUdpCheckSumOrIpId); // null: no sample match

 public:
   // A filter without conditions, which matches every packet of its address family.
   explicit StructuredFilter(U32 id) : id_{id} {}
};

} // namespace Classification
