// The registry of types.
#include "Kiv/TypeData.h"

#include "House.h"
#include "Kiv/Exception.h"
#include "Kiv/TypeRegistry.h"
#include "Kiv/detail/TypeModule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

using Kiv::findType;
using Kiv::TypeData;

TypeData named(std::string_view name) {
   TypeData type{};
   type.name = name;
   return type;
}

class TypeRegistry : public testing::Test {
 protected:
   ~TypeRegistry() override {
      Kiv::unregisterTypeModule("First");
      Kiv::unregisterTypeModule("Second");
      EXPECT_EQ(Kiv::registeredTypes(), before_);
   }

   // Those that the test has registered; the basic types are there from the beginning.
   std::string names() const {
      std::string names;
      for (const TypeData* type : Kiv::registeredTypes()) {
         names += std::ranges::count(before_, type) == 0 ? std::string{type->name} + " " : "";
      }
      return names;
   }

   const TypeData a = named("A");
   const TypeData b = named("B");
   const TypeData otherA = named("A");

 private:
   const std::vector<const TypeData*> before_ = Kiv::registeredTypes();
};

TEST_F(TypeRegistry, findsWhatIsRegistered) {
   EXPECT_EQ(findType("A"), nullptr);
   Kiv::registerTypeModule({"First", {&b, &a}});
   EXPECT_EQ(findType("A"), &a);
   EXPECT_EQ(findType("B"), &b);
   EXPECT_EQ(findType("a"), nullptr);
   EXPECT_EQ(findType(""), nullptr);
   EXPECT_EQ(names(), "A B ");
}

TEST_F(TypeRegistry, listsTypesByName) {
   Kiv::registerTypeModule({"First", {&b, &a}});
   EXPECT_TRUE(std::ranges::is_sorted(Kiv::registeredTypes(), {}, &TypeData::name));
}

// At the end of a process the descriptors of one library may be gone before the next unregisters.
TEST_F(TypeRegistry, forgettingLooksAtNoDescriptor) {
   auto brief = std::make_unique<TypeData>(named("Brief"));
   Kiv::registerTypeModule({"First", {brief.get()}});
   Kiv::registerTypeModule({"Second", {&a}});
   brief.reset();
   Kiv::unregisterTypeModule("Second");
   Kiv::unregisterTypeModule("First");
   EXPECT_EQ(names(), "");
}

TEST_F(TypeRegistry, registeringAgainChangesNothing) {
   Kiv::registerTypeModule({"First", {&a}});
   Kiv::registerTypeModule({"First", {&a}});
   EXPECT_EQ(names(), "A ");
   Kiv::unregisterTypeModule("First");
   EXPECT_EQ(names(), "");
}

TEST_F(TypeRegistry, registeringAnotherListReplaces) {
   Kiv::registerTypeModule({"First", {&a}});
   Kiv::registerTypeModule({"First", {&b}});
   EXPECT_EQ(names(), "B ");
}

TEST_F(TypeRegistry, aSecondTypeOfOneNameIsRefused) {
   Kiv::registerTypeModule({"First", {&a}});
   try {
      Kiv::registerTypeModule({"Second", {&b, &otherA}});
      ADD_FAILURE();
   } catch (const Kiv::NameError& error) {
      EXPECT_STREQ(error.what(), "type A is registered twice");
   }
   EXPECT_EQ(names(), "A ") << "nothing changes";
   EXPECT_EQ(findType("A"), &a);
   EXPECT_THROW(Kiv::registerTypeModule({"Second", {&otherA, &a}}), Kiv::NameError);
}

using TypeRegistryDeathTest = TypeRegistry;

TEST_F(TypeRegistryDeathTest, aLibraryThatIsLoadedTwiceEndsTheProcess) {
   Kiv::registerLoadedModule({"First", {&a}});
   EXPECT_EQ(names(), "A ");
   EXPECT_DEATH(Kiv::registerLoadedModule({"Second", {&otherA}}),
                "TypeRegistry\\.cpp:[0-9]+: registerLoadedModule: Assertion 'Second' failed: "
                "type A is registered twice\n");
}

TEST_F(TypeRegistry, aTypeIsKnownUntilItsLastModuleGoes) {
   Kiv::registerTypeModule({"First", {&a}});
   Kiv::registerTypeModule({"Second", {&a, &b}});
   Kiv::unregisterTypeModule("First");
   EXPECT_EQ(names(), "A B ");
   Kiv::unregisterTypeModule("Second");
   EXPECT_EQ(names(), "");
}

TEST_F(TypeRegistry, forgettingAStrangerDoesNothing) {
   Kiv::registerTypeModule({"First", {&a}});
   Kiv::unregisterTypeModule("Nobody");
   EXPECT_EQ(names(), "A ");
}

TEST_F(TypeRegistry, afterForgettingAnotherMayTakeTheName) {
   Kiv::registerTypeModule({"First", {&a}});
   Kiv::unregisterTypeModule("First");
   Kiv::registerTypeModule({"Second", {&otherA}});
   EXPECT_EQ(findType("A"), &otherA);
}

struct Basic {
   std::string name;
   Kiv::TypeKind kind;
   std::size_t size;
   std::string defaultText;
};

const Basic basics[] = {
      {"U8", Kiv::TypeKind::number, 1, "0"},
      {"U16", Kiv::TypeKind::number, 2, "0"},
      {"U32", Kiv::TypeKind::number, 4, "0"},
      {"U64", Kiv::TypeKind::number, 8, "0"},
      {"double", Kiv::TypeKind::number, 8, "0"},
      {"bool", Kiv::TypeKind::boolean, 1, "false"},
      {"Pello::String", Kiv::TypeKind::string, 8, "\"\""},
};

// Registered when the library is loaded; the module is named here, so that it is linked.
TEST(TypeData, theBasicTypesAreThereFromTheBeginning) {
   EXPECT_EQ(Kiv::typeModule().types.size(), std::size(basics));
   for (const auto& [name, kind, size, defaultText] : basics) {
      const TypeData* type = findType(name);
      ASSERT_NE(type, nullptr) << name;
      EXPECT_EQ(type->kind, kind) << name;
      EXPECT_EQ(type->size, size) << name;
      EXPECT_TRUE(type->attributes.empty()) << name;
      EXPECT_EQ(type->parse(defaultText).type(), type->defaultObject.type()) << name;
      EXPECT_EQ(type->anyBytes, kind == Kiv::TypeKind::number) << name;
   }
}

TEST(TypeData, attributesAreFoundByIdentifierAndName) {
   const TypeData& type = House::Lamp::kivTypeData();
   EXPECT_EQ(type.attribute(U16{132}).name, "kicks");
   EXPECT_EQ(type.attribute("kicks").id, 132U);
   EXPECT_EQ(&type.attribute("kicks"), &type.attributes[2]);
}

TEST(TypeData, anUnknownAttributeIsANameError) {
   const TypeData& type = House::Lamp::kivTypeData();
   try {
      type.attribute(U16{129});
      ADD_FAILURE();
   } catch (const Kiv::NameError& error) {
      EXPECT_STREQ(error.what(),
                   "House::Lamp has no attribute 129: expected one of 130, 131, 132, 133, "
                   "134, 135, 136, 137, 138, 139, 140, 141, 142");
   }
   try {
      type.attribute("Kicks");
      ADD_FAILURE();
   } catch (const Kiv::NameError& error) {
      EXPECT_STREQ(error.what(),
                   "House::Lamp has no attribute 'Kicks': expected one of name, color, "
                   "kicks, spare, socket, main, bulb, byIndex, note, mode, tag, "
                   "slot, mark");
   }
}

TEST(TypeData, whereThereIsNothingNothingIsExpected) {
   try {
      House::Bare::kivTypeData().attribute("a");
      ADD_FAILURE();
   } catch (const Kiv::NameError& error) {
      EXPECT_STREQ(error.what(), "House::Bare has no attribute 'a': it has none");
   }
}

TEST(Exception, allDeriveFromOne) {
   static_assert(std::is_base_of_v<Kiv::Exception, Kiv::RangeError>);
   static_assert(std::is_base_of_v<Kiv::Exception, Kiv::NotHashable>);
   static_assert(std::is_base_of_v<Kiv::Exception, Kiv::NameError>);
   static_assert(std::is_base_of_v<Kiv::Exception, Kiv::ParseError>);
   static_assert(std::is_base_of_v<std::runtime_error, Kiv::Exception>);
   // Destroyed through the base.
   const std::unique_ptr<std::exception> errors[] = {
         std::make_unique<Kiv::Exception>("any"), std::make_unique<Kiv::RangeError>("range"),
         std::make_unique<Kiv::NotHashable>("hash"), std::make_unique<Kiv::NameError>("name"),
         std::make_unique<Kiv::ParseError>("parse", 3)};
   std::string texts;
   for (const auto& error : errors) {
      texts += std::string{error->what()} + " ";
   }
   EXPECT_EQ(texts, "any range hash name parse at position 3 ");
}

} // namespace
