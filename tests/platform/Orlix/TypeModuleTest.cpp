// The types that Orlix hands to the registry.
#include "Orlix/TypeModule.h"

#include "Orlix/AddressFamily.h"
#include "Orlix/DscpValue.h"
#include "Orlix/IntfId.h"
#include "Orlix/IpGenPrefix.h"

#include <gtest/gtest.h>

#include <any>
#include <string>

namespace Orlix {
namespace {

class TypeModuleTest : public testing::Test {
 protected:
   void SetUp() override { Kiv::registerTypeModule(typeModule()); }
   void TearDown() override { Kiv::unregisterTypeModule("Orlix"); }
};

struct Registered {
   std::string name;
   const Kiv::TypeData* type;
   Kiv::TypeKind kind;
   std::size_t size;
};

TEST_F(TypeModuleTest, everyTypeIsFoundByItsName) {
   const Registered all[] = {
         {"Orlix::AddressFamily", &kivTypeData(std::type_identity<AddressFamily>{}),
          Kiv::TypeKind::enumeration, 1},
         {"Orlix::DscpValue", &DscpValue::kivTypeData(), Kiv::TypeKind::value, 1},
         {"Orlix::IntfId", &IntfId::kivTypeData(), Kiv::TypeKind::value, 4},
         {"Orlix::IpGenPrefix", &IpGenPrefix::kivTypeData(), Kiv::TypeKind::value, 18},
   };
   EXPECT_EQ(typeModule().types.size(), std::size(all));
   for (const auto& [name, type, kind, size] : all) {
      EXPECT_EQ(Kiv::findType(name), type) << name;
      EXPECT_EQ(type->name, name);
      EXPECT_EQ(type->kind, kind) << name;
      EXPECT_EQ(type->size, size) << name;
   }
}

struct Texts {
   const Kiv::TypeData* type;
   std::string generic;
   std::string displayed;
};

// Reads `texts.generic` through the descriptor alone, and shows it again in both ways.
template <class T>
void expectTexts(const Texts& texts) {
   const std::any parsed = texts.type->parse(texts.generic);
   const auto* value = std::any_cast<T>(&parsed);
   ASSERT_NE(value, nullptr) << texts.generic;
   EXPECT_EQ(texts.type->valueText(value), texts.generic);
   EXPECT_EQ(texts.type->displayText(value), texts.displayed);
   EXPECT_TRUE(texts.type->equal(value, value));
   EXPECT_FALSE(texts.type->equal(value, std::any_cast<T>(&texts.type->defaultObject)));
}

TEST_F(TypeModuleTest, descriptorsReadAndShowValues) {
   expectTexts<AddressFamily>({Kiv::findType("Orlix::AddressFamily"), "'ipv6'", "ipv6"});
   expectTexts<DscpValue>({Kiv::findType("Orlix::DscpValue"), "46", "46"});
   expectTexts<IntfId>({Kiv::findType("Orlix::IntfId"), "\"Ethernet1\"", "Ethernet1"});
   expectTexts<IpGenPrefix>({Kiv::findType("Orlix::IpGenPrefix"), "\"10.0.0.0/8\"", "10.0.0.0/8"});
}

TEST_F(TypeModuleTest, onlyTheDscpValueHasAttributes) {
   const auto& attributes = DscpValue::kivTypeData().attributes;
   ASSERT_EQ(attributes.size(), 1U);
   EXPECT_EQ(attributes[0].id, 1);
   EXPECT_EQ(attributes[0].name, "value");
   EXPECT_TRUE(IntfId::kivTypeData().attributes.empty());
   EXPECT_TRUE(IpGenPrefix::kivTypeData().attributes.empty());
}

} // namespace
} // namespace Orlix
