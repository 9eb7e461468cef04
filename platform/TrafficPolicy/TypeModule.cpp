#include "TrafficPolicy/TypeModule.h"

#include "Kiv/Reflection.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

KIV_DEFINE_ENTITY(TrafficPolicy::StructuredFilterColl)
KIV_DEFINE_ENTITY(TrafficPolicy::TrafficPolicyClassMapSmCommonData)

namespace TrafficPolicy {

const Kiv::TypeModule& typeModule() {
   static const Kiv::TypeModule module{"TrafficPolicy",
                                       {
                                             &StructuredFilterColl::kivTypeData(),
                                             &TrafficPolicyClassMapSmCommonData::kivTypeData(),
                                       }};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace TrafficPolicy
