// Any text for any registered value type: it is refused with a ParseError or RangeError, or gives
// a value whose own text reads back to an equal value with the same text. The first byte chooses
// the type, the rest is the text.
#include "../Require.h"
#include "Acl/AclType.h"
#include "Classification/NumericalRange.h"
#include "Classification/TcpFlagAndMask.h"
#include "Kiv/TypeData.h"
#include "L3/VrfName.h"
#include "Orlix/AddressFamily.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryPolicyKey.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleAction.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleFilter.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "PolicyMap/Action.h"
#include "PolicyMap/AsyncOperationResult.h"
#include "PolicyMap/PolicyMapSmCommonData.h"

#include <algorithm>
#include <any>
#include <string>

namespace {

using Fuzz::require;

template <class T>
const T* objectOf(const std::any& value) {
   const T* object = std::any_cast<T>(&value);
   require(object != nullptr, "a parsed value is of its type");
   return object;
}

template <class T>
void read(const Kiv::TypeData& type, std::string_view text) {
   std::any parsed;
   try {
      parsed = type.parse(text);
   } catch (const Kiv::ParseError& error) {
      require(error.position() <= text.size(), "a place of a mistake lies in the text",
              error.what());
      return;
   } catch (const Kiv::RangeError&) {
      return;
   }
   const T* first = objectOf<T>(parsed);
   const std::string own = type.valueText(first);
   type.displayText(first);
   const std::any again = type.parse(own);
   const T* second = objectOf<T>(again);
   require(type.valueText(second) == own, "the text of a value is stable", own);
   // Not-a-number is not equal to itself.
   require(type.equal(first, second) || !type.equal(first, first),
           "the text of a value reads back to an equal one", own);
}

struct Row {
   std::string_view name;
   void (*read)(const Kiv::TypeData& type, std::string_view text);
};

// New rows come last: what the first byte of a seed means must not change.
constexpr Row rows[] = {
      {"U8", &read<U8>},
      {"U16", &read<U16>},
      {"U32", &read<U32>},
      {"U64", &read<U64>},
      {"bool", &read<bool>},
      {"double", &read<double>},
      {"Pello::String", &read<Pello::String>},
      {"Acl::AclType", &read<Acl::AclType>},
      {"Classification::NumericalRange", &read<Classification::NumericalRange>},
      {"Classification::TcpFlags", &read<Classification::TcpFlags>},
      {"Classification::TcpFlagAndMask", &read<Classification::TcpFlagAndMask>},
      {"L3::VrfName", &read<L3::VrfName>},
      {"Orlix::AddressFamily", &read<Orlix::AddressFamily>},
      {"Orlix::DscpValue", &read<Orlix::DscpValue>},
      {"Orlix::IntfId", &read<Orlix::IntfId>},
      {"Orlix::IpGenPrefix", &read<Orlix::IpGenPrefix>},
      {"OruPostcardTelemetry::DscpDataAndMask", &read<OruPostcardTelemetry::DscpDataAndMask>},
      {"OruPostcardTelemetry::L4Port", &read<OruPostcardTelemetry::L4Port>},
      {"OruPostcardTelemetry::L4PortDataMask", &read<OruPostcardTelemetry::L4PortDataMask>},
      {"OruPostcardTelemetry::PostcardTelemetryPolicyKey",
       &read<OruPostcardTelemetry::PostcardTelemetryPolicyKey>},
      {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent",
       &read<OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent>},
      {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType",
       &read<OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType>},
      {"OruPostcardTelemetry::Protocol", &read<OruPostcardTelemetry::Protocol>},
      {"OruPostcardTelemetry::RuleAction::Action", &read<OruPostcardTelemetry::RuleAction::Action>},
      {"PolicyMap::AclRuleKey", &read<PolicyMap::AclRuleKey>},
      {"PolicyMap::ActionType", &read<PolicyMap::ActionType>},
      {"PolicyMap::AsyncOperationResult", &read<PolicyMap::AsyncOperationResult>},
      {"PolicyMap::ClassMapMatchOption", &read<PolicyMap::ClassMapMatchOption>},
      {"PolicyMap::PolicyMapSmKey", &read<PolicyMap::PolicyMapSmKey>},
      {"PolicyMap::RulePriority", &read<PolicyMap::RulePriority>},
};

// Names of interfaces are kept for ever; an hour of new ones would be taken for a leak.
bool wouldGrow(std::string_view type) {
   constexpr std::size_t enough = 500'000;
   static std::size_t names = 0;
   return type == "Orlix::IntfId" && ++names > enough;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      require(type->kind == Kiv::TypeKind::entity ||
                    std::ranges::find(rows, type->name, &Row::name) != std::end(rows),
              "a registered value type has a row", type->name);
   }
   for (const Row& row : rows) {
      require(Kiv::findType(row.name) != nullptr, "a row names a registered type", row.name);
   }
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   if (size == 0) {
      return 0;
   }
   const Row& row = rows[data[0] % std::size(rows)];
   if (wouldGrow(row.name)) {
      return 0;
   }
   row.read(*Kiv::findType(row.name), {reinterpret_cast<const char*>(data) + 1, size - 1});
   return 0;
}
