// `TrafficPolicyClassMapSmCommonData`: a class map of a traffic policy. It adds structured filters
// to what all class maps have. Relies on `ClassMapSmCommonData` and `StructuredFilterColl`.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"
#include "PolicyMap/ClassMapSmCommonData.h"
#include "TrafficPolicy/StructuredFilterColl.h"

namespace TrafficPolicy {

class TrafficPolicyClassMapSmCommonData : public PolicyMap::ClassMapSmCommonData {
   KIV_ENTITY(TrafficPolicyClassMapSmCommonData, PolicyMap::ClassMapSmCommonData,
              "TrafficPolicy::TrafficPolicyClassMapSmCommonData");
   // The filters by the name of their ACL. A rule names its filters with `AclRuleKey::aclName`.
   KIV_COLLECTION(258, aclStructuredFilter,
                  Kiv::HashMap2018<Pello::String, StructuredFilterColl, &StructuredFilterColl::name,
                                   0x0be19d73>);

 public:
   // A class map without actions and filters.
   explicit TrafficPolicyClassMapSmCommonData(Pello::String name)
      : ClassMapSmCommonData{std::move(name)} {}
};

} // namespace TrafficPolicy
