// The helper's type module: its type for the framework's registry, where it stands from the moment
// this library is loaded.
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
