// `contractBroken`: ends the process because a caller broke the helper's contract. Relies on
// `Pello/Assert.h`, which writes the assertion to standard error and the ring and aborts.
//
// Operators and test tools search for the line that an assertion writes. Its source file and its
// function text are therefore written out here: they do not depend on the compiler or on where in
// this folder the check stands.
#pragma once

#include "Pello/Assert.h"

#include <source_location>
#include <string_view>

namespace OruPostcardTelemetry {

// Ends the process. `function` is one of the texts below, `expression` what did not hold, `message`
// what the line says besides (empty: nothing). `where` gives the line number only.
[[noreturn]] void contractBroken(std::string_view function, std::string_view expression,
                                 std::string_view message = {},
                                 std::source_location where = std::source_location::current());

// The function texts, one for each operation that checks something.
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
