// What holds for every type of the framework, tried on each by reflection alone: it is made from
// its arguments, read, set, published, copied and refused as its descriptor says. A type that is
// added needs a row in `samples` and nothing else.
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
#include <cctype>
#include <dlfcn.h>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace OruPostcardTelemetry {
namespace {

using Kiv::AttributeData;
using Kiv::AttributeKind;
using Kiv::TypeData;
using Kiv::TypeKind;

// Two different values of every value type, neither the default, as their generic texts.
struct Samples {
   std::string one;
   std::string other;
};

const std::string key = R"(PolicyMap::PolicyMapSmKey(name="p", scope="s"))";

const std::map<std::string, Samples, std::less<>> samples{
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
       {"OruPostcardTelemetry::PostcardTelemetryPolicyKey(key=" + key +
              ", option='matchIpv6AccessGroup')",
        "OruPostcardTelemetry::PostcardTelemetryPolicyKey(key=" + key +
              ", option='matchIpAccessGroup')"}},
      {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent",
       {"'policyUpdate'", "'policyIntfUpdate'"}},
      {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType",
       {"'statusFailure'", "'statusSuccess'"}},
      {"OruPostcardTelemetry::Protocol", {"6", "17"}},
      {"OruPostcardTelemetry::RuleAction::Action", {"'policeAction'", "'setDscpAction'"}},
      {"Pello::String", {"\"a \\\"b\\\"\\n\"", "\"c\""}},
      {"PolicyMap::AclRuleKey",
       {"PolicyMap::AclRuleKey(policyMapKey=" + key +
              R"(, className="c", aclName="a", sequence=1, matchOption='matchIpAccessGroup'))",
        "PolicyMap::AclRuleKey(policyMapKey=" + key +
              R"(, className="c", aclName="a", sequence=2, matchOption='matchIpAccessGroup'))"}},
      {"PolicyMap::ActionType", {"'drop'", "'sample'"}},
      {"PolicyMap::AsyncOperationResult",
       {R"(PolicyMap::AsyncOperationResult(status="x", time=1.5))",
        R"(PolicyMap::AsyncOperationResult(status="", time=2))"}},
      {"PolicyMap::ClassMapMatchOption", {"'matchIpv6AccessGroup'", "'matchIpAccessGroup'"}},
      {"PolicyMap::PolicyMapSmKey", {key, R"(PolicyMap::PolicyMapSmKey(name="q", scope=""))"}},
      {"PolicyMap::RulePriority", {"7", "8"}},
      {"U16", {"300", "301"}},
      {"U32", {"70000", "70001"}},
      {"U64", {"5000000000", "5000000001"}},
      {"U8", {"5", "6"}},
      {"bool", {"true", "false"}},
      {"double", {"0.5", "1e+100"}},
};

std::any sampleObject(const TypeData& type);

// A value of the named type, which may be a counted reference to an entity.
std::any sampleOf(const std::string& typeName, std::string Samples::*which) {
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
std::any sampleText(const TypeData& type) {
   const std::string& quoted = samples.find(type.name)->second.one;
   return Pello::String{quoted.substr(1, quoted.size() - 2)};
}

std::any sampleObject(const TypeData& type) {
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
 protected:
   static void SetUpTestSuite() {
      // Named, so that a linker keeps the libraries whose types nothing else here uses.
      ASSERT_EQ(L3::typeModule().types.size() + PostcardTelemetry::typeModule().types.size() +
                      TrafficPolicy::typeModule().types.size() + Orlix::typeModule().types.size(),
                8U);
      ASSERT_FALSE(policyAclTypesModule().types.empty());
      const std::string module =
            std::string{POSTCARD_MODULE_DIR} + "/OruPostcardTelemetryPolicyAclHelper.so";
      ASSERT_NE(::dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL), nullptr) << ::dlerror();
   }

   template <class Visit>
   static void forEachType(bool entities, Visit&& visit) {
      std::size_t visited = 0;
      for (const TypeData* type : Kiv::registeredTypes()) {
         if ((type->kind == TypeKind::entity) == entities) {
            SCOPED_TRACE(type->name);
            visit(*type);
            ++visited;
         }
      }
      EXPECT_GT(visited, 15U);
   }
   // A new object of an entity type. Only a reference of its own type fits the `std::any`, so it is
   // held by one of the base.
   static Pello::Ptr<Kiv::Entity> make(const TypeData& type) {
      const std::any made = sampleObject(type);
      return type.asEntity(made);
   }
   static std::string text(const Kiv::Entity& entity) {
      return entity.typeData().entityText(entity);
   }
   // Sets every attribute that can be set to something that it is not.
   static void fill(Kiv::Entity& entity) {
      for (const AttributeData& attribute : entity.typeData().attributes) {
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

TEST_F(RegisteredTypesWalk, everyValueIsMadeFromItsArguments) {
   forEachType(false, [](const TypeData& type) {
      ASSERT_NE(type.make, nullptr);
      const std::any made = sampleObject(type);
      EXPECT_EQ(made.type(), type.defaultObject.type());
   });
}

TEST_F(RegisteredTypesWalk, everyEntityIsMadeFromItsArguments) {
   forEachType(true, [](const TypeData& type) {
      ASSERT_NE(type.make, nullptr);
      const Pello::Ptr<Kiv::Entity> entity = make(type);
      ASSERT_NE(entity, nullptr);
      EXPECT_EQ(&entity->typeData(), &type);
      for (const AttributeData& attribute : type.attributes) {
         EXPECT_FALSE(attribute.text(Kiv::ownerAddress(*entity)).empty()) << attribute.name;
      }
   });
}

TEST_F(RegisteredTypesWalk, wrongArgumentsAreRefusedAndTheSignatureIsTold) {
   for (const TypeData* type : Kiv::registeredTypes()) {
      SCOPED_TRACE(type->name);
      const std::string expected = Kiv::signatureText(type->name, type->parameters);
      const std::vector<Kiv::NamedArgument> many(type->parameters.size() + 1, {"x", std::any{}});
      try {
         Kiv::makeObject(*type, many);
         ADD_FAILURE() << "too many arguments were taken";
      } catch (const Kiv::NameError& error) {
         EXPECT_EQ(error.what(), std::to_string(many.size()) + " arguments: expected " + expected);
      }
      std::vector<Kiv::NamedArgument> wrong;
      for (const Kiv::Parameter& parameter : type->parameters) {
         wrong.push_back({parameter.name, std::any{type}});
      }
      if (!wrong.empty()) {
         EXPECT_THROW(Kiv::makeObject(*type, wrong), Kiv::NameError);
      }
   }
}

TEST_F(RegisteredTypesWalk, aSetterPublishesExactlyOnceAndNotForAnEqualValue) {
   std::size_t published = 0;
   forEachType(true, [&](const TypeData& type) {
      const Pello::Ptr<Kiv::Entity> entity = make(type);
      std::vector<U16> changes;
      Pello::Publisher::Subscription subscription;
      if (Pello::Publisher* publisher = entity->publisher()) {
         subscription = publisher->subscribe(
               [&](const Pello::Change& change) { changes.push_back(change.attribute); });
      }
      for (const AttributeData& attribute : type.attributes) {
         if (attribute.set == nullptr) {
            continue;
         }
         SCOPED_TRACE(attribute.name);
         attribute.set(*entity, sampleOf(attribute.type, &Samples::one));
         changes.clear();
         const std::any other = sampleOf(attribute.type, &Samples::other);
         attribute.set(*entity, other);
         EXPECT_EQ(changes, entity->publisher() == nullptr ? std::vector<U16>{}
                                                           : std::vector<U16>{attribute.id});
         attribute.set(*entity, other);
         EXPECT_LE(changes.size(), 1U);
         published += changes.size();
      }
   });
   EXPECT_EQ(published, 19U)
         << "four of the request, three of the answer, six of the helper and of "
            "its base each";
}

TEST_F(RegisteredTypesWalk, everyAttributeIsReadBackAsItWasSet) {
   forEachType(true, [](const TypeData& type) {
      const Pello::Ptr<Kiv::Entity> entity = make(type);
      for (const AttributeData& attribute : type.attributes) {
         if (attribute.setText == nullptr) {
            continue;
         }
         for (const auto which : {&Samples::one, &Samples::other}) {
            const std::string& sample = samples.find(attribute.type)->second.*which;
            attribute.setText(*entity, sample);
            EXPECT_EQ(attribute.text(Kiv::ownerAddress(*entity)), sample) << attribute.name;
            const std::any value = attribute.get(Kiv::ownerAddress(*entity));
            EXPECT_EQ(value.type(), Kiv::findType(attribute.type)->defaultObject.type());
         }
      }
   });
}

TEST_F(RegisteredTypesWalk, textThatIsNoneChangesNothing) {
   forEachType(true, [](const TypeData& type) {
      const Pello::Ptr<Kiv::Entity> entity = make(type);
      fill(*entity);
      const std::string before = text(*entity);
      for (const AttributeData& attribute : type.attributes) {
         if (attribute.setText != nullptr) {
            EXPECT_THROW(attribute.setText(*entity, "no value"), Kiv::ParseError) << attribute.name;
         }
         if (attribute.set != nullptr) {
            EXPECT_THROW(attribute.set(*entity, std::any{&type}), Kiv::NameError) << attribute.name;
         }
      }
      EXPECT_EQ(text(*entity), before);
   });
}

TEST_F(RegisteredTypesWalk, aCopyLooksLikeItsSource) {
   // They merge by rules of their own, which their own tests show.
   const std::set<std::string_view> withOwnRules{"OruPostcardTelemetry::RuleFilter",
                                                 "OruPostcardTelemetry::RuleAction",
                                                 "OruPostcardTelemetry::RuleConfig"};
   std::size_t compared = 0;
   forEachType(true, [&](const TypeData& type) {
      const Pello::Ptr<Kiv::Entity> source = make(type);
      fill(*source);
      ASSERT_NE(type.clone, nullptr);
      const Pello::Ptr<Kiv::Entity> copy = type.clone(*source);
      EXPECT_EQ(&copy->typeData(), &type);
      if (!withOwnRules.contains(type.name)) {
         EXPECT_EQ(text(*copy), text(*source));
         ++compared;
      }
   });
   EXPECT_GT(compared, 10U);
}

// The names of entity types that an attribute's type mentions.
std::set<std::string_view> mentioned(const std::string& attributeType) {
   std::set<std::string_view> names;
   const auto isName = [](char c) {
      return std::isalnum(static_cast<unsigned char>(c)) || c == ':';
   };
   for (const TypeData* type : Kiv::registeredTypes()) {
      const std::size_t at = attributeType.find(type->name);
      if (type->kind == TypeKind::entity && at != std::string::npos) {
         const std::size_t end = at + type->name.size();
         if ((at == 0 || !isName(attributeType[at - 1])) &&
             (end == attributeType.size() || !isName(attributeType[end]))) {
            names.insert(type->name);
         }
      }
   }
   return names;
}

// References of objects lead from type to type and never back, so objects cannot keep each other
// alive.
TEST_F(RegisteredTypesWalk, noTypeRefersToItselfHoweverIndirectly) {
   std::map<std::string_view, std::set<std::string_view>> below; // each type, and all it leads to
   forEachType(true, [&](const TypeData& type) {
      for (const AttributeData& attribute : type.attributes) {
         below[type.name].merge(mentioned(attribute.type));
      }
   });
   std::size_t edges = 0;
   for (const auto& [name, types] : below) {
      edges += types.size();
   }
   EXPECT_GT(edges, 12U);
   for (std::size_t round = 0; round < below.size(); ++round) {
      for (auto& [name, types] : below) {
         const auto direct = types;
         for (const std::string_view next : direct) {
            types.insert(below[next].begin(), below[next].end());
         }
      }
   }
   for (const auto& [name, types] : below) {
      EXPECT_FALSE(types.contains(name)) << name;
   }
}

TEST_F(RegisteredTypesWalk, operationsHaveNamesOfTheirOwn) {
   std::size_t operations = 0;
   forEachType(true, [&](const TypeData& type) {
      std::set<std::string_view> names;
      for (const Kiv::OperationData& operation : type.operations) {
         EXPECT_TRUE(names.insert(operation.name).second) << operation.name;
         std::set<std::string_view> parameters;
         for (const Kiv::Parameter& parameter : operation.parameters) {
            EXPECT_TRUE(parameters.insert(parameter.name).second) << parameter.name;
         }
         EXPECT_FALSE(operation.result.empty());
         ++operations;
      }
   });
   EXPECT_EQ(operations, 12U);
}

} // namespace
} // namespace OruPostcardTelemetry
