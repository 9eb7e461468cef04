// `TrafficPolicyClassMapSmCommonData`: a class map of a traffic policy: besides what all class maps
// have, its structured filters.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"
#include "PolicyMap/ClassMapSmCommonData.h"
#include "TrafficPolicy/StructuredFilterColl.h"

namespace TrafficPolicy {

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
