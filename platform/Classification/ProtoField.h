// `ProtoField`: the conditions of a filter for one protocol or range of protocols: port entries,
// TCP flags and ICMP types. Relies on the entities of the framework.
#pragma once

#include "Classification/NumericalRange.h"
#include "Classification/TcpFlagAndMask.h"
#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/String.h"

namespace Classification {

// One port entry. A packet matches when its source port lies in one of the source ranges and its
// destination port in one of the destination ranges. A side without ranges matches every port; an
// entry without any range matches nothing. Bounds of ranges are 0 to 65535; ranges may overlap.
class PortField : public Kiv::Entity {
   KIV_ENTITY(PortField, Kiv::Entity, "Classification::PortField");
   KIV_CONSTANT(130, U32, id); // the key in its protocol field; rules are made in ascending order
   KIV_COLLECTION(131, sport, Kiv::RbTreeSet<NumericalRange>);
   KIV_COLLECTION(132, dport, Kiv::RbTreeSet<NumericalRange>);
   // Names of sets of ports that are configured elsewhere; empty: none.
   KIV_ATTRIBUTE(133, Pello::String, sportFieldSet);
   KIV_ATTRIBUTE(134, Pello::String, dportFieldSet);

 public:
   // An entry without ranges, which matches nothing yet.
   explicit PortField(U32 id) : id_{id} {}
};

// A packet matches when its protocol lies in the range and it satisfies each kind of condition that
// is given. Of the conditions of one kind (port entries, TCP flags, ICMP types) one is enough. A
// kind without conditions matches every packet of these protocols.
class ProtoField : public Kiv::Entity {
   KIV_ENTITY(ProtoField, Kiv::Entity, "Classification::ProtoField");
   KIV_CONSTANT(130, NumericalRange, range); // IP protocol numbers, 0 to 255; the key
   KIV_COLLECTION(131, port, Kiv::RbTreeEntityMap<U32, PortField>);
   KIV_COLLECTION(132, tcpFlag, Kiv::RbTreeSet<TcpFlagAndMask>);
   // ICMP types (RFC 792) or ICMPv6 types (RFC 4443), whichever the protocol has.
   KIV_COLLECTION(133, icmpType, Kiv::RbTreeSet<U8>);

 public:
   // A field without conditions.
   explicit ProtoField(NumericalRange range) : range_{range} {}
};

} // namespace Classification
