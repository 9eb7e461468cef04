// The helper's type descriptor and type module. The module registers itself with the type framework
// when this library is loaded.
#include "Kiv/Reflection.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"

KIV_DEFINE_ENTITY(OruPostcardTelemetry::OruPostcardPolicyAclHelper)

namespace OruPostcardTelemetry {

namespace {

const Kiv::TypeModule& policyAclHelperModule() {
   static const Kiv::TypeModule module{"OruPostcardTelemetryPolicyAclHelper",
                                       {&OruPostcardPolicyAclHelper::kivTypeData()}};
   return module;
}

} // namespace

KIV_REGISTER_WHEN_LOADED(policyAclHelperModule())

} // namespace OruPostcardTelemetry
