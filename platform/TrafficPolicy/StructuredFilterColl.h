// `StructuredFilterColl`: the structured filters that a class keeps under one name.
#pragma once

#include "Classification/StructuredFilter.h"
#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"

namespace TrafficPolicy {

// The filters of one ACL of a class.
class StructuredFilterColl : public Kiv::Entity {
   KIV_ENTITY(StructuredFilterColl, Kiv::Entity, "TrafficPolicy::StructuredFilterColl");
   KIV_CONSTANT(130, Pello::String, name);
   KIV_COLLECTION(131, filter,
                  Kiv::HashMap2018<U32, Classification::StructuredFilter,
                                   &Classification::StructuredFilter::id, 0x39b0ac4f>);

 public:
   explicit StructuredFilterColl(Pello::String name) : name_{std::move(name)} {}
};

} // namespace TrafficPolicy
