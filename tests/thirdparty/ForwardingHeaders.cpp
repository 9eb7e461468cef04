// Every type has a header of its own name. They are included here alone, without the umbrella
// headers, and each type is named, so that a header that is missing or empty does not compile.

#include "Acl/AclType.h"
#include "Check.h"
#include "Classification/NumericalRange.h"
#include "Classification/ProtoField.h"
#include "Classification/StructuredFilter.h"
#include "Classification/TcpFlagAndMask.h"
#include "Classification/TcpUdpCheckSumOrIpId.h"
#include "Kiv/String.h"
#include "L3/VrfName.h"
#include "Orlix/DscpValue.h"
#include "Orlix/IntfId.h"
#include "Orlix/IpGenPrefix.h"
#include "Orlix/RangeMaskGen.h"
#include "OruPostcardTelemetry/DscpDataAndMask.h"
#include "OruPostcardTelemetry/L4Port.h"
#include "OruPostcardTelemetry/L4PortDataMask.h"
#include "OruPostcardTelemetry/OruPostcardPolicyAclHelper.h"
#include "OruPostcardTelemetry/PostcardTelemetryAclConfig.h"
#include "OruPostcardTelemetry/PostcardTelemetryAclConfigStatus.h"
#include "OruPostcardTelemetry/PostcardTelemetryPolicyKey.h"
#include "OruPostcardTelemetry/PostcardTelemetryRulesClientSmConfig.h"
#include "OruPostcardTelemetry/PostcardTelemetryRulesClientSmEvent.h"
#include "OruPostcardTelemetry/PostcardTelemetryRulesClientSmStatus.h"
#include "OruPostcardTelemetry/PostcardTelemetryRulesClientSmStatusType.h"
#include "OruPostcardTelemetry/Protocol.h"
#include "OruPostcardTelemetry/RuleAction.h"
#include "OruPostcardTelemetry/RuleConfig.h"
#include "OruPostcardTelemetry/RuleFilter.h"
#include "Pello/Ptr.h"
#include "Pello/Publisher.h"
#include "Pello/String.h"
#include "PolicyMap/AclRuleKey.h"
#include "PolicyMap/AsyncOperationResult.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/ClassMapSmCommonData.h"
#include "PolicyMap/PolicyMapAclHelper.h"
#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PolicyMap/PolicyMapSmKey.h"
#include "PolicyMap/RulePriorityData.h"
#include "PolicyMap/SetDscpAction.h"
#include "PostcardTelemetry/HwCapability.h"
#include "TrafficPolicy/ActionSupportedMap.h"
#include "TrafficPolicy/StructuredFilterColl.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

#include <type_traits>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

template <typename... Types>
inline constexpr bool complete{((sizeof(Types) > 0) && ...)};

static_assert(
      complete<DscpDataAndMask, L4Port, L4PortDataMask, Protocol, PostcardTelemetryPolicyKey>);
static_assert(complete<RuleAction, RuleConfig, RuleFilter>);
static_assert(complete<PostcardTelemetryAclConfig, PostcardTelemetryAclConfigStatus>);
static_assert(complete<PostcardTelemetryRulesClientSmConfig, PostcardTelemetryRulesClientSmStatus>);
static_assert(
      complete<PostcardTelemetryRulesClientSmEvent, PostcardTelemetryRulesClientSmStatusType>);
static_assert(complete<Acl::AclType, PolicyMap::ClassMapMatchOption>);
static_assert(complete<Classification::NumericalRange, Classification::ProtoField,
                       Classification::StructuredFilter, Classification::TcpFlagAndMask,
                       Classification::TcpUdpCheckSumOrIpId>);
static_assert(complete<Orlix::DscpValue, Orlix::IntfId, Orlix::IpGenPrefix, L3::VrfName>);
static_assert(complete<Pello::String, Kiv::String, Pello::Ptr<RuleConfig>, Pello::Publisher>);
static_assert(
      complete<PolicyMap::AclRuleKey, PolicyMap::AsyncOperationResult,
               PolicyMap::ClassMapSmCommonData, PolicyMap::PolicyMapSmCommonData,
               PolicyMap::PolicyMapSmKey, PolicyMap::RulePriorityData, PolicyMap::SetDscpAction>);
static_assert(complete<PostcardTelemetry::HwCapability, TrafficPolicy::ActionSupportedMap,
                       TrafficPolicy::StructuredFilterColl,
                       TrafficPolicy::TrafficPolicyClassMapSmCommonData>);

static_assert(std::is_base_of_v<PolicyMap::PolicyMapAclHelper, OruPostcardPolicyAclHelper>);
static_assert(std::is_same_v<RuleConfig::Ptr, Pello::Ptr<RuleConfig>>);
static_assert(std::is_same_v<RuleConfig::PtrConst, Pello::Ptr<const RuleConfig>>);
static_assert(
      std::is_same_v<PostcardTelemetryAclConfig::Ptr, Pello::Ptr<PostcardTelemetryAclConfig>>);

void forwardingHeaders() {
   // The headers bring the factories of their types along.
   CHECK(ruleConfigFactory("r1"));
   CHECK(ruleFilterFactory());
   CHECK(ruleActionFactory());
   CHECK(postcardTelemetryAclConfigFactory("p1-acl"));
   CHECK(postcardTelemetryAclConfigStatusFactory());
   CHECK(postcardTelemetryRulesClientSmConfigFactory());
   CHECK(postcardTelemetryRulesClientSmStatusFactory());
   // A helper needs neither of its records to exist.
   CHECK(oruPostcardPolicyAclHelperFactory(nullptr, nullptr));
}

const Subject subject{"forwarding headers", forwardingHeaders};

} // namespace
