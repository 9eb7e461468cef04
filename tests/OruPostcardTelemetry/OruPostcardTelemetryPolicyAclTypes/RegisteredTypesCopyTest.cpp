// A copy is like its source, for every type of the framework; for the data model's, attribute by
// attribute, so that an attribute that a hand-written copy forgets is named.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "support/RegisteredTypesWalk.h"

#include <set>
#include <utility>

namespace OruPostcardTelemetry {
namespace {

using Kiv::AttributeData;
using Kiv::AttributeKind;
using Kiv::TypeData;
using namespace TestSupport;

// Whether the type is one of this library's.
bool isOfDataModel(const TypeData& type) {
   const auto& types = policyAclTypesModule().types;
   return std::find(types.begin(), types.end(), &type) != types.end();
}

TEST_F(RegisteredTypesWalk, aCopyLooksLikeItsSource) {
   std::size_t compared = 0;
   forEachType(true, [&](const TypeData& type) {
      const Pello::Ptr<Kiv::Entity> source = make(type);
      fill(*source);
      ASSERT_NE(type.clone, nullptr);
      const Pello::Ptr<Kiv::Entity> copy = type.clone(*source);
      EXPECT_EQ(&copy->typeData(), &type);
      if (!isOfDataModel(type)) {
         EXPECT_EQ(text(*copy), text(*source));
         ++compared;
      }
   });
   EXPECT_GT(compared, 10U);
}

// An attribute of a type, each by its name.
using AttributeName = std::pair<std::string_view, std::string_view>;

// Makes the parts and elements that reflection cannot set: a row for each attribute that has some.
const std::map<AttributeName, void (*)(Kiv::Entity&)> partMakers{
      {{"OruPostcardTelemetry::RuleFilter", "sampleDataAndMask"},
       [](Kiv::Entity& filter) {
          static_cast<RuleFilter&>(filter).sampleDataAndMaskIs("sampleDataAndMask");
       }},
      {{"OruPostcardTelemetry::RuleAction", "action"},
       [](Kiv::Entity& action) {
          static_cast<RuleAction&>(action).actionIs(RuleAction::policeAction);
       }},
      {{"OruPostcardTelemetry::RuleConfig", "ruleFilter"},
       [](Kiv::Entity& rule) { static_cast<RuleConfig&>(rule).ruleFilterIs(); }},
      {{"OruPostcardTelemetry::RuleConfig", "ruleAction"},
       [](Kiv::Entity& rule) { static_cast<RuleConfig&>(rule).ruleActionIs(); }},
      {{"OruPostcardTelemetry::PostcardTelemetryAclConfigStatus", "statusInOrder"},
       [](Kiv::Entity& status) {
          static_cast<PostcardTelemetryAclConfigStatus&>(status).statusInOrderIs(3, "full");
       }},
      {{"OruPostcardTelemetry::PostcardTelemetryAclConfig", "ruleByName"},
       [](Kiv::Entity& config) {
          static_cast<PostcardTelemetryAclConfig&>(config).ruleByNameIs("web")->ruleFilterIs();
       }},
      {{"OruPostcardTelemetry::PostcardTelemetryAclConfig", "ruleByIndex"},
       [](Kiv::Entity& entity) {
          auto& config = static_cast<PostcardTelemetryAclConfig&>(entity);
          config.ruleByIndexIs(7, config.ruleByNameIs("web"));
       }},
      {{"OruPostcardTelemetry::PostcardTelemetryAclConfig", "policyIntf"},
       [](Kiv::Entity& config) {
          static_cast<PostcardTelemetryAclConfig&>(config).policyIntfIs(Orlix::IntfId{"Ethernet1"});
       }},
      {{"OruPostcardTelemetry::PostcardTelemetryAclConfig", "aclConfigStatus"},
       [](Kiv::Entity& config) {
          static_cast<PostcardTelemetryAclConfig&>(config).aclConfigStatusIs();
       }},
};

// What a copy leaves at its default, because it belongs to the object alone.
const std::set<AttributeName> neverCopied{
      {"OruPostcardTelemetry::RuleAction", "dscpDataAndMask"},
};

// The part behind a child attribute; null when it has not been made.
Pello::Ptr<Kiv::Entity> partOf(const Kiv::Entity& owner, const AttributeData& attribute) {
   const std::size_t begin = attribute.type.find('<') + 1;
   const std::size_t length = attribute.type.find('>') - begin;
   return Kiv::findType(attribute.type.substr(begin, length))
         ->asEntity(attribute.get(Kiv::ownerAddress(owner)));
}

// Gives every attribute of the object, and of its parts, a value that it has not from the start.
void fillWhole(Kiv::Entity& entity) {
   RegisteredTypesWalk::fill(entity);
   for (const AttributeData& attribute : entity.typeData().attributes) {
      if (attribute.set != nullptr || attribute.kind == AttributeKind::constant) {
         continue;
      }
      const auto maker = partMakers.find({entity.typeData().name, attribute.name});
      if (maker == partMakers.end()) {
         ADD_FAILURE() << entity.typeData().name << "::" << attribute.name
                       << " has no row in the table of part makers";
         continue;
      }
      maker->second(entity);
      if (attribute.kind == AttributeKind::child) {
         fillWhole(*partOf(entity, attribute));
      }
   }
}

// Compares attribute by attribute. Returns how many were compared.
std::size_t expectCopied(const Kiv::Entity& copy, const Kiv::Entity& source) {
   const TypeData& type = source.typeData();
   const Pello::Ptr<Kiv::Entity> fresh = RegisteredTypesWalk::make(type);
   std::size_t compared = 0;
   for (const AttributeData& attribute : type.attributes) {
      SCOPED_TRACE(std::string{type.name} + "::" + std::string{attribute.name});
      const auto textIn = [&](const Kiv::Entity& entity) {
         return attribute.text(Kiv::ownerAddress(entity));
      };
      if (attribute.kind != AttributeKind::constant) {
         EXPECT_NE(textIn(source), textIn(*fresh)) << "a copy that forgets it would not be seen";
      }
      ++compared;
      if (neverCopied.contains({type.name, attribute.name})) {
         EXPECT_EQ(textIn(copy), textIn(*fresh));
      } else if (attribute.kind == AttributeKind::child) {
         const Pello::Ptr<Kiv::Entity> part = partOf(copy, attribute);
         EXPECT_NE(part, nullptr);
         compared += part == nullptr ? 0 : expectCopied(*part, *partOf(source, attribute));
      } else {
         EXPECT_EQ(textIn(copy), textIn(source));
      }
   }
   return compared;
}

// Whoever gives a type of the data model a new attribute learns here when its copy forgets it.
TEST_F(RegisteredTypesWalk, aCopyHasEveryAttributeOfItsSource) {
   std::size_t compared = 0;
   forEachType(true, [&](const TypeData& type) {
      if (isOfDataModel(type)) {
         const Pello::Ptr<Kiv::Entity> source = make(type);
         fillWhole(*source);
         compared += expectCopied(*type.clone(*source), *source);
      }
   });
   EXPECT_EQ(compared, 52U) << "all attributes of seven types, their parts' included";
}

} // namespace
} // namespace OruPostcardTelemetry
