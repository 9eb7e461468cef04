// What can be made, read and set through descriptors alone: construction from named arguments,
// attributes as values, copies of objects whose type nobody names.
#include "House.h"
#include "Kiv/Operation.h"
#include "Kiv/Reflection.h"

#include <gtest/gtest.h>

#include <any>
#include <string>
#include <vector>

namespace {

using House::Bulb;
using House::ChangeLog;
using House::Color;
using House::Lamp;
using House::Lantern;
using Kiv::makeObject;
using Kiv::NamedArgument;
using Kiv::TypeData;

using Arguments = std::vector<NamedArgument>;

class ReflectionMake : public House::NothingLeft {
 protected:
   static std::string text(const Kiv::Entity& entity) {
      return entity.typeData().entityText(entity);
   }
   static std::string refusal(const TypeData& type, const Arguments& arguments) {
      try {
         makeObject(type, arguments);
         return "accepted";
      } catch (const Kiv::Exception& error) {
         return error.what();
      }
   }
};

TEST_F(ReflectionMake, aValueIsMadeFromAllItsAttributes) {
   const Arguments arguments{{"mode", House::dim}, {"red", U8{7}}};
   EXPECT_EQ(std::any_cast<Color>(makeObject(Color::kivTypeData(), arguments)),
             (Color{7, House::dim}));
   EXPECT_EQ(std::any_cast<House::Watt>(
                   makeObject(House::Watt::kivTypeData(), Arguments{{"value", U16{3}}}))
                   .value(),
             3U);
}

TEST_F(ReflectionMake, anEntityIsMadeFromItsConstants) {
   const auto lamp = std::any_cast<Lamp::Ptr>(
         makeObject(Lamp::kivTypeData(), Arguments{{"name", Pello::String{"desk"}}}));
   EXPECT_EQ(lamp->name(), "desk");
   EXPECT_EQ(lamp->references(), 1U);
   const auto bare = std::any_cast<House::Bare::Ptr>(makeObject(House::Bare::kivTypeData(), {}));
   EXPECT_EQ(text(*bare), "House::Bare()");
}

TEST_F(ReflectionMake, aDerivedEntityIsMadeFromInheritedConstants) {
   const auto lantern = std::any_cast<Lantern::Ptr>(
         makeObject(Lantern::kivTypeData(), Arguments{{"name", Pello::String{"storm"}}}));
   EXPECT_EQ(lantern->name(), "storm");
   EXPECT_EQ(lantern->handles(), 1U);
}

TEST_F(ReflectionMake, anEnumeratorIsMadeFromItsName) {
   const TypeData& type = kivTypeData(std::type_identity<House::Mode>{});
   EXPECT_EQ(std::any_cast<House::Mode>(makeObject(type, Arguments{{"name", Pello::String{"on"}}})),
             House::on);
   EXPECT_EQ(refusal(type, {{"name", Pello::String{"On"}}}),
             "House::Mode has no enumerator 'On' (expected one of: off, on, dim) at position 0");
}

TEST_F(ReflectionMake, refusalsSayWhatWasExpected) {
   const TypeData& type = Color::kivTypeData();
   const std::string expected = "expected House::Color(red: U8, mode: House::Mode)";
   EXPECT_EQ(refusal(type, {}), "0 arguments: " + expected);
   EXPECT_EQ(refusal(type, {{"red", U8{1}}}), "1 arguments: " + expected);
   EXPECT_EQ(refusal(type, {{"red", U8{1}}, {"Mode", House::on}}),
             "argument 'mode' is missing: " + expected);
   EXPECT_EQ(refusal(type, {{"red", U16{1}}, {"mode", House::on}}),
             "argument 'red' of House::Color: expected U8");
   EXPECT_EQ(refusal(type, {{"red", U8{1}}, {"mode", U8{1}}}),
             "argument 'mode' of House::Color: expected House::Mode");
   EXPECT_EQ(refusal(House::Level::kivTypeData(), {{"value", U8{0}}}), "level 0 not allowed");
   EXPECT_EQ(refusal(Lamp::kivTypeData(), {{"name", "desk"}}),
             "argument 'name' of House::Lamp: expected Pello::String");
   EXPECT_EQ(refusal(House::Stillborn::kivTypeData(), {}), "not allowed");
}

TEST_F(ReflectionMake, whatOnlyItsOwnLibraryCanMakeSaysSo) {
   EXPECT_EQ(refusal(House::Clinging::kivTypeData(), {}), "House::Clinging cannot be made by name");
   EXPECT_EQ(House::Clinging::kivTypeData().clone, nullptr);
}

TEST_F(ReflectionMake, attributesSayOfWhichTypeTheyAre) {
   std::vector<std::string> types;
   for (const auto& attribute : Lamp::kivTypeData().attributes) {
      types.push_back(attribute.type);
   }
   EXPECT_EQ(types, (std::vector<std::string>{
                          "Pello::String", "House::Color", "U32", "Pello::Ptr<House::Bulb const>",
                          "Pello::Ptr<House::Socket>", "Pello::Ptr<House::Bulb>",
                          "Kiv::HashMap2018<Pello::String, House::Bulb>",
                          "Kiv::RbTreeMap<U32, Pello::Ptr<House::Bulb>>",
                          "Kiv::RbTreeMap<U32, Pello::String>", "Kiv::HashSet2018<House::Mode>",
                          "Kiv::HashSet2018<Pello::String>",
                          "Kiv::RbTreeEntityMap<U32, "
                          "Pello::Ptr<House::Slot>>",
                          "Kiv::RbTreeSet<U32>"}));
}

TEST_F(ReflectionMake, attributesAreReadAsValues) {
   const Lamp::Ptr lamp = new Lamp{"desk"};
   lamp->kicksIs(5);
   lamp->socketIs();
   const TypeData& type = lamp->typeData();
   EXPECT_EQ(std::any_cast<U32>(type.attribute("kicks").get(lamp.get())), 5U);
   EXPECT_EQ(std::any_cast<Pello::String>(type.attribute(U16{130}).get(lamp.get())), "desk");
   EXPECT_EQ(std::any_cast<House::Socket::Ptr>(type.attribute("socket").get(lamp.get())),
             lamp->socket());
   EXPECT_EQ(type.attribute("bulb").get, nullptr) << "a collection is walked";
   const Color color{3, House::on};
   EXPECT_EQ(std::any_cast<House::Mode>(Color::kivTypeData().attribute("mode").get(&color)),
             House::on);
}

TEST_F(ReflectionMake, attributesAreSetFromValuesOfTheirType) {
   const Lamp::Ptr lamp = new Lamp{"desk"};
   ChangeLog log{*lamp};
   const TypeData& type = lamp->typeData();
   type.attribute("kicks").set(*lamp, U32{9});
   type.attribute("kicks").set(*lamp, U32{9});
   const Bulb::Ptr bulb = new Bulb{"b"};
   type.attribute("spare").set(*lamp, bulb);
   EXPECT_EQ(lamp->kicks(), 9U);
   EXPECT_EQ(lamp->spare(), bulb) << "a changeable object serves for a read-only reference";
   EXPECT_EQ(log.take().size(), 2U);
   try {
      type.attribute("kicks").set(*lamp, U16{1});
      ADD_FAILURE();
   } catch (const Kiv::NameError& error) {
      EXPECT_STREQ(error.what(), "attribute 'kicks' of House::Lamp: expected U32");
   }
   EXPECT_EQ(lamp->kicks(), 9U);
   EXPECT_EQ(type.attribute("name").set, nullptr) << "a constant stays";
   EXPECT_EQ(type.attribute("socket").set, nullptr) << "a child is made, not set";
}

TEST_F(ReflectionMake, collectionsAreCountedAndWalked) {
   const Lamp::Ptr lamp = new Lamp{"desk"};
   lamp->noteIs(2, "two");
   lamp->noteIs(1, "one");
   lamp->markIs(7);
   lamp->byIndexIs(4, lamp->bulbIs("b"));
   const TypeData& type = lamp->typeData();
   EXPECT_EQ(type.attribute("note").count(lamp.get()), 2U);
   EXPECT_EQ(type.attribute("slot").count(lamp.get()), 0U);
   EXPECT_EQ(type.attribute("kicks").count, nullptr);
   std::string notes;
   type.attribute("note").forEach(lamp.get(), [&](const std::any& key, const std::any& element) {
      notes += std::to_string(std::any_cast<U32>(key)) + "=" +
               std::any_cast<Pello::String>(element).str() + " ";
   });
   EXPECT_EQ(notes, "1=one 2=two ");
   type.attribute("mark").forEach(lamp.get(), [](const std::any& key, const std::any& element) {
      EXPECT_EQ(std::any_cast<U32>(key), 7U);
      EXPECT_FALSE(element.has_value()) << "a set has keys only";
   });
   type.attribute("byIndex").forEach(lamp.get(), [&](const std::any&, const std::any& element) {
      EXPECT_EQ(std::any_cast<Bulb::Ptr>(element), lamp->bulb("b"));
   });
}

// Takes what it is given only up to 10.
TEST_F(ReflectionMake, aSetterWithARuleOfItsOwnIsTheOneThatIsCalled) {
   const House::Valve::Ptr valve = new House::Valve;
   const TypeData& type = valve->typeData();
   type.attribute("open").setText(*valve, "200");
   EXPECT_EQ(valve->open(), 10U);
   type.attribute("open").set(*valve, U8{4});
   EXPECT_EQ(valve->open(), 4U);
   type.attribute("open").set(*valve, U8{11});
   EXPECT_EQ(valve->open(), 10U);
   const House::Valve::Ptr copy = new House::Valve;
   type.copy(*copy, *valve);
   EXPECT_EQ(copy->open(), 10U);
   EXPECT_EQ(copy->calls(), 1U) << "a copy is set, too";
}

TEST_F(ReflectionMake, aCloneIsAnotherObjectThatLooksTheSame) {
   const Lantern::Ptr lantern = new Lantern{"storm"};
   lantern->handlesIs(3);
   lantern->bulbIs("a")->ageIs(4);
   const Lamp::Ptr seenAsLamp = lantern;
   const Pello::Ptr<Kiv::Entity> clone = seenAsLamp->typeData().clone(*seenAsLamp);
   EXPECT_EQ(text(*clone), text(*lantern));
   EXPECT_NE(clone.get(), lantern.get());
}

TEST_F(ReflectionMake, copyRefusesAnotherType) {
   const Lamp::Ptr lamp = new Lamp{"desk"};
   const Lantern::Ptr lantern = new Lantern{"storm"};
   try {
      lantern->typeData().copy(*lamp, *lantern);
      ADD_FAILURE();
   } catch (const Kiv::NameError& error) {
      EXPECT_STREQ(error.what(), "copying House::Lamp: expected House::Lantern");
   }
}

TEST_F(ReflectionMake, copiedElementsKeepTheirOwnTypes) {
   const House::Hall::Ptr from = new House::Hall;
   const Lantern::Ptr lantern = new Lantern{"a"};
   lantern->handlesIs(5);
   from->lampIs(lantern);
   from->lampIs(Lamp::Ptr{new Lamp{"b"}});
   const House::Hall::Ptr to = new House::Hall;
   to->lampIs(Lamp::Ptr{new Lamp{"a"}});
   const Lamp::Ptr kept = new Lamp{"b"};
   to->lampIs(kept);
   to->typeData().copy(*to, *from);
   EXPECT_EQ(text(*to->lamp("a")), text(*lantern)) << "an element of another type is replaced";
   EXPECT_NE(to->lamp("a"), from->lamp("a"));
   EXPECT_EQ(to->lamp("b"), kept) << "one of the same type stays the object that it was";
}

TEST_F(ReflectionMake, anElementWithOtherConstantsIsReplaced) {
   const House::Hall::Ptr from = new House::Hall;
   from->lampIs(Lamp::Ptr{new House::Sealed{"a", 1}});
   const House::Hall::Ptr to = new House::Hall;
   to->lampIs(Lamp::Ptr{new House::Sealed{"a", 2}});
   to->typeData().copy(*to, *from);
   EXPECT_EQ(text(*to->lamp("a")), text(*from->lamp("a")));
}

} // namespace
