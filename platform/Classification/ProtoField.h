// `ProtoField`: what a filter asks of one protocol or range of protocols, with its port entries,
// TCP flags and ICMP types.
#pragma once

#include "Classification/NumericalRange.h"
#include "Classification/TcpFlagAndMask.h"
#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/String.h"

namespace Classification {

// One port entry: a packet matches when its source port lies in one of the source ranges and its
// destination port in one of the destination ranges. A side without ranges matches every port; an
// entry without any range matches nothing.
class PortField : public Kiv::Entity {
   KIV_ENTITY(PortField, Kiv::Entity, "Classification::PortField");
   KIV_CONSTANT(130, U32, id);
   KIV_COLLECTION(131, sport, Kiv::RbTreeSet<NumericalRange>);
   KIV_COLLECTION(132, dport, Kiv::RbTreeSet<NumericalRange>);
   KIV_ATTRIBUTE(133, Pello::String, sportFieldSet); // name of a port set; empty: none
   KIV_ATTRIBUTE(134, Pello::String, dportFieldSet); // name of a port set; empty: none

 public:
   explicit PortField(U32 id) : id_{id} {}
};

class ProtoField : public Kiv::Entity {
   KIV_ENTITY(ProtoField, Kiv::Entity, "Classification::ProtoField");
   KIV_CONSTANT(130, NumericalRange, range); // protocol numbers
   KIV_COLLECTION(131, port, Kiv::RbTreeEntityMap<U32, PortField>);
   KIV_COLLECTION(132, tcpFlag, Kiv::RbTreeSet<TcpFlagAndMask>);
   KIV_COLLECTION(133, icmpType, Kiv::RbTreeSet<U8>);

 public:
   explicit ProtoField(NumericalRange range) : range_{range} {}
};

} // namespace Classification
