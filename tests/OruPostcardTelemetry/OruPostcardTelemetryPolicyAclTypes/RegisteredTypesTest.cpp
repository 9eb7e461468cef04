// A walk over every type that the framework knows once all libraries and the helper module are
// loaded, and the rows of the data model's types.
#include "Classification/NumericalRange.h"
#include "Kiv/TypeData.h"
#include "L3/TypeModule.h"
#include "L3/VrfName.h"
#include "Orlix/AddressFamily.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryPolicyKey.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TypeModule.h"
#include "PolicyMap/AsyncOperationResult.h"
#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PolicyMap/SetDscpAction.h"
#include "PostcardTelemetry/TypeModule.h"
#include "TrafficPolicy/TypeModule.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <map>
#include <set>

namespace OruPostcardTelemetry {
namespace {

// All types; whoever adds one adds it here too.
const std::set<std::string> expectedTypes{
      "Acl::AclType",
      "Classification::FragmentsMatch",
      "Classification::NumericalRange",
      "Classification::PortField",
      "Classification::ProtoField",
      "Classification::StructuredFilter",
      "Classification::TcpFlagAndMask",
      "Classification::TcpFlags",
      "Classification::TcpUdpCheckSumOrIpId",
      "L3::VrfName",
      "Orlix::AddressFamily",
      "Orlix::DscpValue",
      "Orlix::IntfId",
      "Orlix::IpGenPrefix",
      "OruPostcardTelemetry::DscpDataAndMask",
      "OruPostcardTelemetry::L4Port",
      "OruPostcardTelemetry::L4PortDataMask",
      "OruPostcardTelemetry::OruPostcardPolicyAclHelper",
      "OruPostcardTelemetry::PostcardTelemetryAclConfig",
      "OruPostcardTelemetry::PostcardTelemetryAclConfigStatus",
      "OruPostcardTelemetry::PostcardTelemetryPolicyKey",
      "OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig",
      "OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent",
      "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus",
      "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType",
      "OruPostcardTelemetry::Protocol",
      "OruPostcardTelemetry::RuleAction",
      "OruPostcardTelemetry::RuleAction::Action",
      "OruPostcardTelemetry::RuleConfig",
      "OruPostcardTelemetry::RuleFilter",
      "Pello::String",
      "PolicyMap::AclRuleKey",
      "PolicyMap::Action",
      "PolicyMap::ActionType",
      "PolicyMap::AsyncOperationResult",
      "PolicyMap::ClassMapMatchOption",
      "PolicyMap::ClassMapSmCommonData",
      "PolicyMap::PolicyMapAclHelper",
      "PolicyMap::PolicyMapSmCommonData",
      "PolicyMap::PolicyMapSmKey",
      "PolicyMap::RulePriority",
      "PolicyMap::RulePriorityData",
      "PolicyMap::SetDscpAction",
      "PostcardTelemetry::HwCapability",
      "TrafficPolicy::StructuredFilterColl",
      "TrafficPolicy::TrafficPolicyClassMapSmCommonData",
      "U16",
      "U32",
      "U64",
      "U8",
      "bool",
      "double"};

class RegisteredTypesTest : public testing::Test {
 protected:
   static void SetUpTestSuite() {
      // Named, so that a linker keeps the libraries whose types nothing else here uses.
      ASSERT_EQ(L3::typeModule().types.size(), 1U);
      ASSERT_EQ(PostcardTelemetry::typeModule().types.size(), 1U);
      ASSERT_EQ(TrafficPolicy::typeModule().types.size(), 2U);
      const std::string module =
            std::string{POSTCARD_MODULE_DIR} + "/OruPostcardTelemetryPolicyAclHelper.so";
      ASSERT_NE(::dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL), nullptr) << ::dlerror();
   }
};

TEST_F(RegisteredTypesTest, areExactlyThese) {
   std::set<std::string> names;
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      EXPECT_TRUE(names.insert(std::string{type->name}).second) << type->name;
      EXPECT_EQ(Kiv::findType(type->name), type);
   }
   EXPECT_EQ(names, expectedTypes);
}

TEST_F(RegisteredTypesTest, identifiersAscendAndNamesAreUnique) {
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      std::set<std::string_view> names;
      U16 last = 0;
      for (const Kiv::AttributeData& attribute : type->attributes) {
         EXPECT_GT(attribute.id, last) << type->name << " " << attribute.name;
         last = attribute.id;
         EXPECT_TRUE(names.insert(attribute.name).second) << type->name << " " << attribute.name;
         EXPECT_EQ(&type->attribute(attribute.id), &attribute);
         EXPECT_EQ(&type->attribute(attribute.name), &attribute);
      }
   }
}

// The object in a value's `defaultObject`, found by reading its own text.
void expectValueGoesBothWays(const Kiv::TypeData& type, const std::string& text) {
   ASSERT_NE(type.parse, nullptr) << type.name;
   const std::any value = type.parse(text);
   EXPECT_TRUE(value.has_value());
   EXPECT_EQ(value.type(), type.defaultObject.type()) << type.name;
   EXPECT_THROW(type.parse(text + "?"), Kiv::ParseError) << type.name;
}

TEST_F(RegisteredTypesTest, valuesDescribeTextParseAndDefault) {
   const std::map<std::string, std::string> defaults{
         {"Acl::AclType", "'ipv4'"},
         {"Orlix::AddressFamily", "'none'"},
         {"OruPostcardTelemetry::Protocol", "1"},
         {"OruPostcardTelemetry::PostcardTelemetryPolicyKey",
          "OruPostcardTelemetry::PostcardTelemetryPolicyKey(key=PolicyMap::PolicyMapSmKey(name="
          "\"\", "
          "scope=\"\"), option='matchIpAccessGroup')"},
         {"bool", "false"},
         {"Pello::String", "\"\""},
         {"double", "0"}};
   for (const auto& [name, text] : defaults) {
      const Kiv::TypeData* type = Kiv::findType(name);
      ASSERT_NE(type, nullptr) << name;
      expectValueGoesBothWays(*type, text);
   }
}

// Text → value → text → value: equal, and the same text. `T` stands for the type's own.
template <class T>
void expectRoundTrip(const Kiv::TypeData& type) {
   const T* first = std::any_cast<T>(&type.defaultObject);
   ASSERT_NE(first, nullptr) << type.name;
   const std::string text = type.valueText(first);
   const std::any parsed = type.parse(text);
   const T* second = std::any_cast<T>(&parsed);
   ASSERT_NE(second, nullptr) << type.name;
   EXPECT_TRUE(type.equal(first, second)) << type.name;
   EXPECT_EQ(type.valueText(second), text);
   EXPECT_EQ(sizeof(T), type.size);
}

template <class... Types>
std::map<std::string, void (*)(const Kiv::TypeData&)> roundTrips() {
   std::map<std::string, void (*)(const Kiv::TypeData&)> table;
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      ((std::any_cast<Types>(&type->defaultObject) != nullptr
              ? void(table[std::string{type->name}] = &expectRoundTrip<Types>)
              : void()),
       ...);
   }
   return table;
}

TEST_F(RegisteredTypesTest, everyDefaultValueReadsBackEqual) {
   const auto table =
         roundTrips<U8, U16, U32, U64, bool, double, Pello::String, Acl::AclType,
                    Classification::NumericalRange, Classification::TcpFlags,
                    Classification::TcpFlagAndMask, L3::VrfName, Orlix::AddressFamily,
                    Orlix::DscpValue, Orlix::IntfId, Orlix::IpGenPrefix, DscpDataAndMask, L4Port,
                    L4PortDataMask, PostcardTelemetryPolicyKey, PostcardTelemetryRulesClientSmEvent,
                    PostcardTelemetryRulesClientSmStatusType, Protocol, RuleAction::Action,
                    PolicyMap::AclRuleKey, PolicyMap::ActionType, PolicyMap::AsyncOperationResult,
                    PolicyMap::ClassMapMatchOption, PolicyMap::PolicyMapSmKey,
                    PolicyMap::RulePriority>();
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      if (type->kind != Kiv::TypeKind::entity) {
         const auto found = table.find(std::string{type->name});
         ASSERT_NE(found, table.end()) << type->name << " is a value that this test does not know";
         found->second(*type);
      }
   }
}

TEST_F(RegisteredTypesTest, entitiesAreCountedAndCanBeShownAndCopied) {
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      const bool entity = type->kind == Kiv::TypeKind::entity;
      EXPECT_EQ(type->tracker != nullptr, entity) << type->name;
      EXPECT_EQ(type->entityText != nullptr, entity) << type->name;
      EXPECT_EQ(type->copy != nullptr, entity) << type->name;
      EXPECT_EQ(type->valueText == nullptr, entity) << type->name;
      EXPECT_EQ(type->defaultObject.has_value(), !entity) << type->name;
      if (entity) {
         EXPECT_EQ(type->tracker->typeName(), type->name);
         EXPECT_EQ(type->tracker->objectSize(), type->size) << type->name;
      }
   }
}

// "130 name" of every attribute.
std::vector<std::string> rowsOf(const Kiv::TypeData& type) {
   std::vector<std::string> rows;
   for (const Kiv::AttributeData& attribute : type.attributes) {
      rows.push_back(std::to_string(attribute.id) + " " + std::string{attribute.name});
   }
   return rows;
}

TEST_F(RegisteredTypesTest, rowsOfTheDataModelStandInDeclarationOrder) {
   using Rows = std::vector<std::string>;
   const std::map<std::string, Rows> expected{
         {"PostcardTelemetryPolicyKey", {"1 key", "2 option"}},
         {"DscpDataAndMask", {"1 dscpData", "2 dscpMask"}},
         {"L4Port", {"1 value"}},
         {"L4PortDataMask", {"1 l4PortData", "2 l4PortMask"}},
         {"Protocol", {"1 value"}},
         {"RuleConfig", {"130 name", "131 ruleFilter", "132 ruleAction"}},
         {"RuleFilter",
          {"130 source", "131 destination", "132 sportDataMaskValid", "133 sportDataMask",
           "134 dportDataMaskValid", "135 dportDataMask", "136 proto", "137 sampleDataAndMask",
           "138 tcpFlagAndMask"}},
         {"RuleAction", {"130 dscpDataAndMask", "131 action"}},
         {"PostcardTelemetryAclConfig",
          {"130 aclConfigKey", "131 aclType", "132 ruleByName", "133 ruleByIndex", "134 policyIntf",
           "135 programmedPolicy", "136 rulesClientUpdated", "137 aclConfigStatus"}},
         {"PostcardTelemetryAclConfigStatus", {"130 statusInOrder", "131 currentIndex"}},
         {"PostcardTelemetryRulesClientSmConfig",
          {"130 event", "131 aclConfig", "132 currIntf", "133 kickRequest"}},
         {"PostcardTelemetryRulesClientSmStatus",
          {"130 status", "131 statusType", "132 kickResponse"}}};
   for (const auto& [name, rows] : expected) {
      const Kiv::TypeData* type = Kiv::findType("OruPostcardTelemetry::" + name);
      ASSERT_NE(type, nullptr) << name;
      EXPECT_EQ(rowsOf(*type), rows) << name;
   }
   EXPECT_EQ(policyAclTypesModule().types.size(), 15U);
   EXPECT_EQ(policyAclTypesModule().name, "OruPostcardTelemetryPolicyAclTypes");
}

} // namespace
} // namespace OruPostcardTelemetry
