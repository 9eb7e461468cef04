// `StructuredFilterColl`: the structured filters that a class keeps under one name. Relies on the
// classification library.
#pragma once

#include "Classification/StructuredFilter.h"
#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"

namespace TrafficPolicy {

// The filters of one ACL of a class. A helper for postcard telemetry expects exactly one, with the
// identifier 0.
class StructuredFilterColl : public Kiv::Entity {
   KIV_ENTITY(StructuredFilterColl, Kiv::Entity, "TrafficPolicy::StructuredFilterColl");
   KIV_CONSTANT(130, Pello::String, name); // the key in its class: `AclRuleKey::aclName`
   // The filters by identifier. `filterIs(id)` returns the one with that identifier, or makes it.
   KIV_COLLECTION(131, filter,
                  Kiv::HashMap2018<U32, Classification::StructuredFilter,
                                   &Classification::StructuredFilter::id, 0x39b0ac4f>);

 public:
   // A collection without filters.
   explicit StructuredFilterColl(Pello::String name) : name_{std::move(name)} {}
};

} // namespace TrafficPolicy
