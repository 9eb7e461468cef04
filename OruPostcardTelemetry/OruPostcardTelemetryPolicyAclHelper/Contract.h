// `contractBroken`: ends the process because a caller broke the helper's contract. Operators and
// test tools look for these lines, so the source file and the function text are fixed and do not
// follow what a compiler makes of them.
#pragma once

#include "Pello/Assert.h"

#include <source_location>
#include <string_view>

namespace OruPostcardTelemetry {

// `function` is the full text of the operation, `expression` what did not hold.
[[noreturn]] void contractBroken(std::string_view function, std::string_view expression,
                                 std::string_view message = {},
                                 std::source_location where = std::source_location::current());

// Function texts of the operations that check something.
namespace FunctionText {
inline constexpr std::string_view matchOptionToAclType =
      "Acl::AclType OruPostcardTelemetry::matchOptionToAclType(PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view createAclConfig =
      "virtual OruPostcardTelemetry::PostcardTelemetryAclConfig::Ptr "
      "OruPostcardTelemetry::OruPostcardPolicyAclHelper::createAclConfig(const PtrConst&, "
      "PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view deleteAclConfig =
      "virtual void OruPostcardTelemetry::OruPostcardPolicyAclHelper::deleteAclConfig("
      "const PtrConst&, PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view createPolicy =
      "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::createPolicy("
      "const PtrConst&, PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view recreatePolicy =
      "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::recreatePolicy("
      "const PtrConst&, PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view commitPolicy =
      "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::commitPolicy("
      "const PtrConst&, PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view addIntfToPolicy =
      "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::addIntfToPolicy("
      "const PtrConst&, Orlix::IntfId, Orlix::IntfId, L3::VrfName, PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view removeIntfFromPolicy =
      "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::removeIntfFromPolicy("
      "const PtrConst&, Orlix::IntfId, Orlix::IntfId, L3::VrfName, PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view updateRulesInAclConfig =
      "virtual Kiv::String "
      "OruPostcardTelemetry::OruPostcardPolicyAclHelper::updateRulesInAclConfig("
      "const PtrConst&, PolicyMap::ClassMapMatchOption)";
inline constexpr std::string_view checkUnsupportedFields =
      "Kiv::String OruPostcardTelemetry::checkUnsupportedFields(const PtrConst&, const PtrConst&)";
inline constexpr std::string_view addRules =
      "virtual U32 OruPostcardTelemetry::OruPostcardPolicyAclHelper::addRules("
      "const PolicyMap::AclRuleKey&, const PtrConst&, const PtrConst&, const Ptr&, U32)";
inline constexpr std::string_view updateRuleAction =
      "virtual void OruPostcardTelemetry::OruPostcardPolicyAclHelper::updateRuleAction("
      "const PtrConst&, const Ptr&)";
inline constexpr std::string_view addRulesProtoField =
      "virtual U32 OruPostcardTelemetry::OruPostcardPolicyAclHelper::addRulesProtoField("
      "const Ptr&, const Ptr&, const PtrConst&, U8, U32)";
inline constexpr std::string_view addRulesTcpFlagField =
      "U32 OruPostcardTelemetry::OruPostcardPolicyAclHelper::addRulesTcpFlagField("
      "const PtrConst&, const Ptr&, const Ptr&, U32)";
inline constexpr std::string_view updatePolicyStatus =
      "virtual Kiv::String OruPostcardTelemetry::OruPostcardPolicyAclHelper::updatePolicyStatus("
      "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType, const Pello::String&)";
} // namespace FunctionText

} // namespace OruPostcardTelemetry
