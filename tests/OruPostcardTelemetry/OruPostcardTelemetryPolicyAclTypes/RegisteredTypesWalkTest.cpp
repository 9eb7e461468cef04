// What holds for every type of the framework, tried on each by reflection alone: it is made from
// its arguments, read, set, published and refused as its descriptor says.
#include "support/RegisteredTypesWalk.h"

#include "Kiv/Exception.h"
#include "Kiv/Operation.h"

#include <cctype>
#include <set>

namespace OruPostcardTelemetry {
namespace {

using Kiv::AttributeData;
using Kiv::TypeData;
using Kiv::TypeKind;
using namespace TestSupport;

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
