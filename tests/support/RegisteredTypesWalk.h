// `RegisteredTypesWalk`: the fixture of tests that try something on every type of the framework, by
// reflection alone: it makes objects of any type and fills them. A value type that is added needs a
// row in `samples` and nothing else. Relies on the type modules of all libraries.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Operation.h"
#include "Kiv/TypeData.h"
#include "L3/TypeModule.h"
#include "Orlix/TypeModule.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/TypeModule.h"
#include "PostcardTelemetry/TypeModule.h"
#include "TrafficPolicy/TypeModule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <any>
#include <dlfcn.h>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// Two different values of every value type, neither the default, as their generic texts.
struct Samples {
   std::string one;
   std::string other;
};

inline const std::string samplePolicyKey = R"(PolicyMap::PolicyMapSmKey(name="p", scope="s"))";

inline const std::map<std::string, Samples, std::less<>> samples{
      {"Acl::AclType", {"'ipv6'", "'ipv4'"}},
      {"Classification::NumericalRange",
       {"Classification::NumericalRange(low=1, high=2)",
        "Classification::NumericalRange(low=1, high=3)"}},
      {"Classification::TcpFlagAndMask",
       {"Classification::TcpFlagAndMask(tcpFlag=2, tcpFlagMask=18)",
        "Classification::TcpFlagAndMask(tcpFlag=16, tcpFlagMask=18)"}},
      {"Classification::TcpFlags", {"2", "3"}},
      {"L3::VrfName", {"\"red\"", "\"blue\""}},
      {"Orlix::AddressFamily", {"'ipv4'", "'ipv6'"}},
      {"Orlix::DscpValue", {"46", "10"}},
      {"Orlix::IntfId", {"\"Ethernet1\"", "\"Ethernet2\""}},
      {"Orlix::IpGenPrefix", {"\"10.0.0.0/8\"", "\"2001:db8::/32\""}},
      {"OruPostcardTelemetry::DscpDataAndMask",
       {"OruPostcardTelemetry::DscpDataAndMask(dscpData=46, dscpMask=63)",
        "OruPostcardTelemetry::DscpDataAndMask(dscpData=0, dscpMask=1)"}},
      {"OruPostcardTelemetry::L4Port", {"80", "443"}},
      {"OruPostcardTelemetry::L4PortDataMask",
       {"OruPostcardTelemetry::L4PortDataMask(l4PortData=80, l4PortMask=65535)",
        "OruPostcardTelemetry::L4PortDataMask(l4PortData=1024, l4PortMask=64512)"}},
      {"OruPostcardTelemetry::PostcardTelemetryPolicyKey",
       {"OruPostcardTelemetry::PostcardTelemetryPolicyKey(key=" + samplePolicyKey +
              ", option='matchIpv6AccessGroup')",
        "OruPostcardTelemetry::PostcardTelemetryPolicyKey(key=" + samplePolicyKey +
              ", option='matchIpAccessGroup')"}},
      {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent",
       {"'policyUpdate'", "'policyIntfUpdate'"}},
      {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType",
       {"'statusFailure'", "'statusSuccess'"}},
      {"OruPostcardTelemetry::Protocol", {"6", "17"}},
      {"OruPostcardTelemetry::RuleAction::Action", {"'policeAction'", "'setDscpAction'"}},
      {"Pello::String", {"\"a \\\"b\\\"\\n\"", "\"c\""}},
      {"PolicyMap::AclRuleKey",
       {"PolicyMap::AclRuleKey(policyMapKey=" + samplePolicyKey +
              R"(, className="c", aclName="a", sequence=1, matchOption='matchIpAccessGroup'))",
        "PolicyMap::AclRuleKey(policyMapKey=" + samplePolicyKey +
              R"(, className="c", aclName="a", sequence=2, matchOption='matchIpAccessGroup'))"}},
      {"PolicyMap::ActionType", {"'drop'", "'sample'"}},
      {"PolicyMap::AsyncOperationResult",
       {R"(PolicyMap::AsyncOperationResult(status="x", time=1.5))",
        R"(PolicyMap::AsyncOperationResult(status="", time=2))"}},
      {"PolicyMap::ClassMapMatchOption", {"'matchIpv6AccessGroup'", "'matchIpAccessGroup'"}},
      {"PolicyMap::PolicyMapSmKey",
       {samplePolicyKey, R"(PolicyMap::PolicyMapSmKey(name="q", scope=""))"}},
      {"PolicyMap::RulePriority", {"7", "8"}},
      {"U16", {"300", "301"}},
      {"U32", {"70000", "70001"}},
      {"U64", {"5000000000", "5000000001"}},
      {"U8", {"5", "6"}},
      {"bool", {"true", "false"}},
      {"double", {"0.5", "1e+100"}},
};

inline std::any sampleObject(const Kiv::TypeData& type);

// A value of the named type, which may be a counted reference to an entity.
inline std::any sampleOf(const std::string& typeName, std::string Samples::*which) {
   const std::string reference = "Pello::Ptr<";
   if (typeName.starts_with(reference)) {
      std::string element = typeName.substr(reference.size());
      element.resize(std::min(element.find('>'), element.find(" const>")));
      return sampleObject(*Kiv::findType(element));
   }
   const auto found = samples.find(typeName);
   if (found == samples.end()) {
      ADD_FAILURE() << typeName << " has no row in the table of samples";
      return {};
   }
   return Kiv::findType(typeName)->parse(found->second.*which);
}

// What an enumerator, or a value with a text of its own, is made from: its sample without quotes.
inline std::any sampleText(const Kiv::TypeData& type) {
   const std::string& quoted = samples.find(type.name)->second.one;
   return Pello::String{quoted.substr(1, quoted.size() - 2)};
}

inline std::any sampleObject(const Kiv::TypeData& type) {
   std::vector<Kiv::NamedArgument> arguments;
   for (const Kiv::Parameter& parameter : type.parameters) {
      if (type.attributes.empty() && parameter.name != "value") {
         arguments.push_back({parameter.name, sampleText(type)});
         continue;
      }
      arguments.push_back({parameter.name, sampleOf(parameter.type, &Samples::one)});
   }
   return Kiv::makeObject(type, arguments);
}

class RegisteredTypesWalk : public testing::Test {
 public:
   static void SetUpTestSuite() {
      // Named, so that a linker keeps the libraries whose types nothing else here uses.
      ASSERT_EQ(L3::typeModule().types.size() + PostcardTelemetry::typeModule().types.size() +
                      TrafficPolicy::typeModule().types.size() + Orlix::typeModule().types.size(),
                8U);
      ASSERT_FALSE(OruPostcardTelemetry::policyAclTypesModule().types.empty());
      const std::string module =
            std::string{POSTCARD_MODULE_DIR} + "/OruPostcardTelemetryPolicyAclHelper.so";
      ASSERT_NE(::dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL), nullptr) << ::dlerror();
   }

   template <class Visit>
   static void forEachType(bool entities, Visit&& visit) {
      std::size_t visited = 0;
      for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
         if ((type->kind == Kiv::TypeKind::entity) == entities) {
            SCOPED_TRACE(type->name);
            visit(*type);
            ++visited;
         }
      }
      EXPECT_GT(visited, 15U);
   }
   // A new object of an entity type. Only a reference of its own type fits the `std::any`, so it is
   // held by one of the base.
   static Pello::Ptr<Kiv::Entity> make(const Kiv::TypeData& type) {
      const std::any made = sampleObject(type);
      return type.asEntity(made);
   }
   static std::string text(const Kiv::Entity& entity) {
      return entity.typeData().entityText(entity);
   }
   // Sets every attribute that can be set to something that it is not.
   static void fill(Kiv::Entity& entity) {
      for (const Kiv::AttributeData& attribute : entity.typeData().attributes) {
         if (attribute.set != nullptr) {
            const std::string before = attribute.text(Kiv::ownerAddress(entity));
            attribute.set(entity, sampleOf(attribute.type, &Samples::one));
            if (attribute.text(Kiv::ownerAddress(entity)) == before) {
               attribute.set(entity, sampleOf(attribute.type, &Samples::other));
            }
         }
      }
   }
};

} // namespace TestSupport
