// The descriptors of this library's types, each defined here once: a descriptor that the compiler
// emitted in several libraries would make one type look like several.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TypeModule.h"

#include "Kiv/Reflection.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryPolicyKey.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TraceSource.h"

KIV_DEFINE_VALUE(OruPostcardTelemetry::PostcardTelemetryPolicyKey)
KIV_DEFINE_VALUE(OruPostcardTelemetry::DscpDataAndMask)
KIV_DEFINE_VALUE(OruPostcardTelemetry::L4Port)
KIV_DEFINE_VALUE(OruPostcardTelemetry::L4PortDataMask)
KIV_DEFINE_VALUE(OruPostcardTelemetry::Protocol)
KIV_DEFINE_ENTITY(OruPostcardTelemetry::RuleFilter)
KIV_DEFINE_ENTITY(OruPostcardTelemetry::RuleAction)
KIV_DEFINE_ENTITY(OruPostcardTelemetry::RuleConfig)
KIV_DEFINE_ENTITY(OruPostcardTelemetry::PostcardTelemetryAclConfigStatus)
KIV_DEFINE_ENTITY(OruPostcardTelemetry::PostcardTelemetryAclConfig)
KIV_DEFINE_ENTITY(OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig)
KIV_DEFINE_ENTITY(OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus)

namespace OruPostcardTelemetry {

const Pello::TraceSource TypesTrace::traceSource{"OruPostcardTelemetryPolicyAclTypes"};

KIV_DEFINE_ENUM(RuleAction::Action, "OruPostcardTelemetry::RuleAction::Action", {0, "sampleAction"},
                {1, "policeAction"}, {2, "setDscpAction"})

KIV_DEFINE_ENUM(PostcardTelemetryRulesClientSmStatusType,
                "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType",
                {0, "statusSuccess"}, {1, "statusFailure"})

KIV_DEFINE_ENUM(PostcardTelemetryRulesClientSmEvent,
                "OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent", {0, "policyCreate"},
                {1, "policyUpdate"}, {2, "policyDelete"}, {3, "policyIntfUpdate"})

const Kiv::TypeModule& policyAclTypesModule() {
   static const Kiv::TypeModule module{
         "OruPostcardTelemetryPolicyAclTypes",
         {
               &kivTypeData(std::type_identity<RuleAction::Action>{}),
               &kivTypeData(std::type_identity<PostcardTelemetryRulesClientSmStatusType>{}),
               &kivTypeData(std::type_identity<PostcardTelemetryRulesClientSmEvent>{}),
               &PostcardTelemetryPolicyKey::kivTypeData(),
               &DscpDataAndMask::kivTypeData(),
               &L4Port::kivTypeData(),
               &L4PortDataMask::kivTypeData(),
               &Protocol::kivTypeData(),
               &RuleFilter::kivTypeData(),
               &RuleAction::kivTypeData(),
               &RuleConfig::kivTypeData(),
               &PostcardTelemetryAclConfigStatus::kivTypeData(),
               &PostcardTelemetryAclConfig::kivTypeData(),
               &PostcardTelemetryRulesClientSmConfig::kivTypeData(),
               &PostcardTelemetryRulesClientSmStatus::kivTypeData(),
         }};
   return module;
}

KIV_REGISTER_WHEN_LOADED(policyAclTypesModule())

} // namespace OruPostcardTelemetry
