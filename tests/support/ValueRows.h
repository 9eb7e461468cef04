// `valueRows`: every value type of the framework, with what reflection cannot do: finding the value
// in a `std::any`. A value type that is added needs a row here.
#pragma once

#include "Acl/AclType.h"
#include "Classification/NumericalRange.h"
#include "Classification/TcpFlagAndMask.h"
#include "L3/VrfName.h"
#include "Orlix/AddressFamily.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryPolicyKey.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleAction.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleFilter.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "PolicyMap/Action.h"
#include "PolicyMap/AsyncOperationResult.h"
#include "PolicyMap/PolicyMapSmCommonData.h"

#include <any>
#include <string_view>

namespace TestSupport {

struct ValueRow {
   std::string_view name; // of the type
   // The value; null when there is one of another type.
   const void* (*valueIn)(const std::any& value);
};

template <class T>
const void* valueIn(const std::any& value) {
   return std::any_cast<T>(&value);
}

// Seeds of fuzz targets name a row by its number: new ones come last.
inline constexpr ValueRow valueRows[] = {
      {"U8", &valueIn<U8>},
      {"U16", &valueIn<U16>},
      {"U32", &valueIn<U32>},
      {"U64", &valueIn<U64>},
      {"bool", &valueIn<bool>},
      {"double", &valueIn<double>},
      {"Pello::String", &valueIn<Pello::String>},
      {"Acl::AclType", &valueIn<Acl::AclType>},
      {"Classification::NumericalRange", &valueIn<Classification::NumericalRange>},
      {"Classification::TcpFlags", &valueIn<Classification::TcpFlags>},
      {"Classification::TcpFlagAndMask", &valueIn<Classification::TcpFlagAndMask>},
      {"L3::VrfName", &valueIn<L3::VrfName>},
      {"Orlix::AddressFamily", &valueIn<Orlix::AddressFamily>},
      {"Orlix::DscpValue", &valueIn<Orlix::DscpValue>},
      {"Orlix::IntfId", &valueIn<Orlix::IntfId>},
      {"Orlix::IpGenPrefix", &valueIn<Orlix::IpGenPrefix>},
      {"OruPostcardTelemetry::DscpDataAndMask", &valueIn<OruPostcardTelemetry::DscpDataAndMask>},
      {"OruPostcardTelemetry::L4Port", &valueIn<OruPostcardTelemetry::L4Port>},
      {"OruPostcardTelemetry::L4PortDataMask", &valueIn<OruPostcardTelemetry::L4PortDataMask>},
      {"OruPostcardTelemetry::PostcardTelemetryPolicyKey",
       &valueIn<OruPostcardTelemetry::PostcardTelemetryPolicyKey>},
      {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent",
       &valueIn<OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent>},
      {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType",
       &valueIn<OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType>},
      {"OruPostcardTelemetry::Protocol", &valueIn<OruPostcardTelemetry::Protocol>},
      {"OruPostcardTelemetry::RuleAction::Action",
       &valueIn<OruPostcardTelemetry::RuleAction::Action>},
      {"PolicyMap::AclRuleKey", &valueIn<PolicyMap::AclRuleKey>},
      {"PolicyMap::ActionType", &valueIn<PolicyMap::ActionType>},
      {"PolicyMap::AsyncOperationResult", &valueIn<PolicyMap::AsyncOperationResult>},
      {"PolicyMap::ClassMapMatchOption", &valueIn<PolicyMap::ClassMapMatchOption>},
      {"PolicyMap::PolicyMapSmKey", &valueIn<PolicyMap::PolicyMapSmKey>},
      {"PolicyMap::RulePriority", &valueIn<PolicyMap::RulePriority>},
};

} // namespace TestSupport
