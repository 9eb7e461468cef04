// `TrafficPolicyClassMapSmCommonData`: a class map of a traffic policy: besides what all class maps
// have, its structured filters.
#pragma once

#include "Classification/StructuredFilter.h"
#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"
#include "PolicyMap/ClassMapSmCommonData.h"

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

class TrafficPolicyClassMapSmCommonData : public PolicyMap::ClassMapSmCommonData {
   KIV_ENTITY(TrafficPolicyClassMapSmCommonData, PolicyMap::ClassMapSmCommonData,
              "TrafficPolicy::TrafficPolicyClassMapSmCommonData");
   KIV_COLLECTION(258, aclStructuredFilter,
                  Kiv::HashMap2018<Pello::String, StructuredFilterColl, &StructuredFilterColl::name,
                                   0x0be19d73>);

 public:
   explicit TrafficPolicyClassMapSmCommonData(Pello::String name)
      : ClassMapSmCommonData{std::move(name)} {}
};

} // namespace TrafficPolicy
