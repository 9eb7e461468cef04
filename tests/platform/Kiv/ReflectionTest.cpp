// What one line per attribute gives at run time: descriptors, text, setting by text, copy.
#include "Kiv/Reflection.h"

#include "House.h"

#include <gtest/gtest.h>

#include <any>
#include <set>
#include <string>
#include <vector>

namespace {

using House::Bulb;
using House::ChangeLog;
using House::Chest;
using House::Color;
using House::Lamp;
using House::Lantern;
using House::LongRecipe;
using House::Recipe;
using Kiv::AttributeKind;
using Kiv::TypeData;
using Kiv::TypeKind;

class Reflection : public House::NothingLeft {
 protected:
   // A lamp with something in every attribute.
   static Lamp::Ptr fullLamp() {
      Lamp::Ptr lamp = new Lamp{"full"};
      lamp->colorIs(Color{1, House::dim});
      lamp->kicksIs(5);
      lamp->spareIs(Bulb::PtrConst{new Bulb{"s"}});
      lamp->socketIs()->mostIs(House::Watt{40});
      lamp->mainIs("m")->ageIs(2);
      lamp->bulbIs("a")->ageIs(3);
      lamp->byIndexIs(2, lamp->bulb("a"));
      lamp->byIndexIs(1, lamp->bulb("a"));
      lamp->noteIs(1, "one\n");
      lamp->modeIs(House::on);
      lamp->modeIs(House::off);
      lamp->tagIs("t");
      lamp->slotIs(4)->usedIs(true);
      lamp->markIs(6);
      lamp->markIs(2);
      return lamp;
   }
   static std::string text(const Kiv::Entity& entity) {
      return entity.typeData().entityText(entity);
   }
};

const std::string fullText =
      R"((name="full", color=House::Color(red=1, mode='dim'), kicks=5, )"
      R"(spare="s", socket=House::Socket(most=40), )"
      R"(main=House::Bulb(name="m", age=2), bulb={"a": House::Bulb(name="a", age=3)}, )"
      R"(byIndex={1: "a", 2: "a"}, )"
      R"(note={1: "one\n"}, mode={'off', 'on'}, tag={"t"}, )"
      R"(slot={4: House::Slot(number=4, used=true)}, mark={2, 6}))";

TEST_F(Reflection, theTextShowsEveryAttribute) {
   EXPECT_EQ(text(*fullLamp()), "House::Lamp" + fullText);
}

TEST_F(Reflection, theTextOfAnEmptyObjectShowsThatItIsEmpty) {
   const Lamp::Ptr lamp = new Lamp{""};
   EXPECT_EQ(text(*lamp),
             R"(House::Lamp(name="", color=House::Color(red=7, mode='on'), kicks=0, spare=null, )"
             R"(socket=null, main=null, bulb={}, byIndex={}, note={}, mode={}, tag={}, slot={}, )"
             R"(mark={}))");
   const House::Bare::Ptr bare = new House::Bare;
   EXPECT_EQ(text(*bare), "House::Bare()");
}

TEST_F(Reflection, aMapOfFlagsIsNoSet) {
   Kiv::RbTreeMap<U32, bool> flags;
   flags.is(Kiv::NoReport{}, 1, true);
   flags.is(Kiv::NoReport{}, 2, false);
   std::string out;
   Kiv::Detail::printStorage<Kiv::Detail::Holds::own>(out, flags);
   EXPECT_EQ(out, "{1: true, 2: false}");
}

TEST_F(Reflection, describesTheType) {
   const TypeData& type = Lamp::kivTypeData();
   EXPECT_EQ(type.name, "House::Lamp");
   EXPECT_EQ(type.kind, TypeKind::entity);
   EXPECT_EQ(type.size, sizeof(Lamp));
   EXPECT_EQ(type.tracker, &Lamp::memAllocationTracker_);
   EXPECT_EQ(type.valueText, nullptr);
   EXPECT_EQ(type.parse, nullptr);
   EXPECT_FALSE(type.defaultObject.has_value());
   const Lamp::Ptr lamp = new Lamp{"x"};
   EXPECT_EQ(&lamp->typeData(), &type);
   EXPECT_EQ(std::string{Lamp::kivClassName}, "Lamp");
}

TEST_F(Reflection, anObjectAnswersWithItsOwnType) {
   const Lamp::Ptr seenAsLamp = new Lantern{"storm"};
   EXPECT_EQ(&seenAsLamp->typeData(), &Lantern::kivTypeData());
}

TEST_F(Reflection, attributesStandInDeclarationOrderInheritedOnesFirst) {
   const auto& attributes = Lantern::kivTypeData().attributes;
   ASSERT_EQ(attributes.size(), 14U);
   for (std::size_t i = 0; i < 13; ++i) {
      EXPECT_EQ(attributes[i].id, 130 + i);
   }
   EXPECT_EQ(attributes[13].id, 258U);
   EXPECT_EQ(attributes[13].name, "handles");
   const auto kinds = std::vector{AttributeKind::constant, AttributeKind::value};
   EXPECT_EQ((std::vector{attributes[0].kind, attributes[1].kind}), kinds);
   EXPECT_EQ(attributes[4].kind, AttributeKind::child);
   EXPECT_EQ(attributes[6].kind, AttributeKind::collection);
}

TEST_F(Reflection, identifiersAndNamesAreUnique) {
   for (const TypeData* type :
        {&Lantern::kivTypeData(), &Chest::kivTypeData(), &House::Scene::kivTypeData()}) {
      std::set<U16> ids;
      std::set<std::string_view> names;
      for (const auto& attribute : type->attributes) {
         EXPECT_TRUE(ids.insert(attribute.id).second);
         EXPECT_TRUE(names.insert(attribute.name).second);
      }
   }
}

TEST_F(Reflection, eachAttributeHasItsText) {
   const Lamp::Ptr lamp = fullLamp();
   const TypeData& type = lamp->typeData();
   EXPECT_EQ(type.attribute("kicks").text(lamp.get()), "5");
   EXPECT_EQ(type.attribute(U16{139}).text(lamp.get()), "{'off', 'on'}");
   const Color color{3, House::on};
   EXPECT_EQ(Color::kivTypeData().attribute("mode").text(&color), "'on'");
}

TEST_F(Reflection, collectionsShowTheEntitiesThatTheyHold) {
   const Lamp::Ptr lamp = fullLamp();
   std::string shown;
   for (const auto& attribute : lamp->typeData().attributes) {
      if (attribute.forEachEntity != nullptr) {
         shown += std::string{attribute.name} + ":";
         attribute.forEachEntity(*lamp, [&](const Kiv::Entity& entity) {
            shown += " " + std::string{entity.typeData().name};
         });
         shown += "; ";
      }
   }
   EXPECT_EQ(shown, "bulb: House::Bulb; byIndex: House::Bulb House::Bulb; slot: House::Slot; ");
}

TEST_F(Reflection, onlyPlainAttributesAreSetByText) {
   std::string settable;
   for (const auto& attribute : Lantern::kivTypeData().attributes) {
      settable += attribute.setText == nullptr ? "" : std::string{attribute.name} + " ";
   }
   EXPECT_EQ(settable, "color kicks handles ");
   EXPECT_EQ(Color::kivTypeData().attribute("red").setText, nullptr) << "values do not change";
}

TEST_F(Reflection, settingByTextPublishes) {
   const Lantern::Ptr lantern = new Lantern{"storm"};
   ChangeLog log{*lantern};
   const TypeData& type = lantern->typeData();
   type.attribute("kicks").setText(*lantern, "9");
   type.attribute("kicks").setText(*lantern, "9");
   type.attribute("handles").setText(*lantern, "2");
   EXPECT_EQ(lantern->kicks(), 9U);
   EXPECT_EQ(lantern->handles(), 2U);
   EXPECT_EQ(log.take(),
             (std::vector<std::string>{"132 old=0", "258 old=a value of another type"}));
}

TEST_F(Reflection, textThatCannotBeReadChangesNothing) {
   const Lamp::Ptr lamp = new Lamp{"x"};
   ChangeLog log{*lamp};
   const auto& kicks = lamp->typeData().attribute("kicks");
   EXPECT_THROW(kicks.setText(*lamp, "-1"), Kiv::ParseError);
   EXPECT_THROW(kicks.setText(*lamp, "4294967296"), Kiv::ParseError);
   EXPECT_EQ(lamp->kicks(), 0U);
   EXPECT_TRUE(log.take().empty());
}

TEST_F(Reflection, copyTakesEverythingThatCanBeSet) {
   const Lamp::Ptr from = fullLamp();
   const Lamp::Ptr to = new Lamp{"full"};
   to->typeData().copy(*to, *from);
   EXPECT_EQ(text(*to), text(*from));
   EXPECT_NE(to->bulb("a"), from->bulb("a")) << "own elements are made anew";
   EXPECT_NE(to->socket(), from->socket()) << "and so are children";
   EXPECT_EQ(to->byIndex(1), to->bulb("a")) << "what refers to a part refers to its copy";
   EXPECT_EQ(to->byIndex(2), to->bulb("a"));
   EXPECT_EQ(to->spare(), from->spare()) << "other references stay";
   EXPECT_EQ(from->byIndex(1), from->bulb("a"));
}

TEST_F(Reflection, aCopiedReferenceToAPartThatCameLaterFollows) {
   const Lamp::Ptr from = new Lamp{"l"};
   const Bulb::Ptr stranger = new Bulb{"x"};
   from->spareIs(from->bulbIs("a")); // declared before the collection that owns it
   from->byIndexIs(1, stranger);
   from->byIndexIs(2, from->mainIs("m"));
   from->byIndexIs(3, from->bulbIs("b"));
   const Lamp::Ptr to = new Lamp{"l"};
   to->typeData().copy(*to, *from);
   EXPECT_EQ(to->spare(), to->bulb("a"));
   EXPECT_EQ(to->byIndex(1), stranger);
   EXPECT_EQ(to->byIndex(2), to->main());
   EXPECT_EQ(to->byIndex(3), to->bulb("b"));
   EXPECT_EQ(from->spare(), from->bulb("a")) << "the source stays";
}

TEST_F(Reflection, aPartMayReferToThePartOfAnother) {
   const House::Street::Ptr from = new House::Street;
   const auto first = from->homeIs("1");
   const auto second = from->homeIs("2");
   first->neighborIs(second);
   second->neighborIs(first);
   const House::Street::Ptr to = dynamicCast<House::Street>(from->typeData().clone(*from));
   EXPECT_EQ(to->home("1")->neighbor(), to->home("2"));
   EXPECT_EQ(to->home("2")->neighbor(), to->home("1"));
   EXPECT_NE(to->home("1"), first);
   first->neighborIs(nullptr); // objects in a circle keep each other
   to->home("1")->neighborIs(nullptr);
}

// A subscriber that removes each new element from its owner.
TEST_F(Reflection, aCopyIsLinkedEvenWhenASubscriberTakesItAway) {
   const Lamp::Ptr from = fullLamp();
   const Lamp::Ptr to = new Lamp{"full"};
   const auto subscription = to->publisher()->subscribe([&](const Pello::Change& change) {
      if (change.attribute == 136) {
         to->bulbDel("a");
      }
   });
   to->typeData().copy(*to, *from);
   EXPECT_EQ(to->bulbs(), 0U);
   EXPECT_NE(to->byIndex(1), nullptr);
   EXPECT_NE(to->byIndex(1), from->byIndex(1));
}

TEST_F(Reflection, copyTakesInheritedAttributesToo) {
   const Lantern::Ptr from = new Lantern{"same"};
   from->kicksIs(4);
   from->handlesIs(3);
   const Lantern::Ptr to = new Lantern{"same"};
   to->typeData().copy(*to, *from);
   EXPECT_EQ(text(*to), text(*from));
   EXPECT_EQ(to->kicks(), 4U);
}

TEST_F(Reflection, copyKeepsWhatTheOtherLacks) {
   const Lamp::Ptr to = fullLamp();
   const Lamp::Ptr from = new Lamp{"other"};
   from->bulbIs("b");
   to->typeData().copy(*to, *from);
   EXPECT_EQ(to->name(), "full") << "a constant stays";
   EXPECT_EQ(to->kicks(), 0U);
   EXPECT_EQ(to->spare(), nullptr);
   EXPECT_EQ(to->bulbs(), 2U);
   EXPECT_NE(to->socket(), nullptr);
   EXPECT_EQ(to->marks(), 2U);
}

TEST_F(Reflection, copyPublishesOnlyWhatChanges) {
   const Lamp::Ptr from = fullLamp();
   const Lamp::Ptr to = new Lamp{"full"};
   ChangeLog log{*to};
   to->typeData().copy(*to, *from);
   EXPECT_EQ(log.take().size(), 15U);
   to->typeData().copy(*to, *from);
   EXPECT_TRUE(log.take().empty());
   to->typeData().copy(*to, *to);
   EXPECT_TRUE(log.take().empty());
}

TEST_F(Reflection, aTypesOwnCopyIsUsed) {
   const Recipe::Ptr from = new Recipe;
   from->firstIs(1);
   from->secondIs(2);
   const Recipe::Ptr to = new Recipe;
   to->typeData().copy(*to, *from);
   EXPECT_EQ(text(*to), "House::Recipe(first=1, second=0)");
}

TEST_F(Reflection, anInheritedCopyIsNotTheWholeCopy) {
   const LongRecipe::Ptr from = new LongRecipe;
   from->firstIs(1);
   from->secondIs(2);
   from->thirdIs(3);
   const LongRecipe::Ptr to = new LongRecipe;
   to->typeData().copy(*to, *from);
   EXPECT_EQ(text(*to), "House::LongRecipe(first=1, second=0, third=3)");
}

TEST_F(Reflection, aBaseBehindAnotherBaseIsFound) {
   const Chest::Ptr chest = new Chest;
   chest->firstIs(1);
   chest->secondIs(2);
   EXPECT_EQ(text(*chest), "House::Chest(first=1, second=2, locks=2)");
   chest->typeData().attribute("second").setText(*chest, "9");
   chest->typeData().attribute("locks").setText(*chest, "8");
   EXPECT_EQ(text(*chest), "House::Chest(first=1, second=9, locks=8)");
   EXPECT_EQ(chest->typeData().attribute("first").text(chest.get()), "1");
}

// A value's descriptor, asked through nothing but the descriptor.
void expectValueType(const TypeData& type, const std::string& name, TypeKind kind,
                     const std::string& valueText) {
   EXPECT_EQ(type.name, name);
   EXPECT_EQ(type.kind, kind);
   EXPECT_EQ(type.tracker, nullptr);
   EXPECT_EQ(type.entityText, nullptr);
   EXPECT_TRUE(type.defaultObject.has_value());
   const std::any parsed = type.parse(valueText);
   EXPECT_EQ(parsed.type(), type.defaultObject.type());
   EXPECT_THROW(type.parse("nonsense"), Kiv::ParseError);
}

TEST_F(Reflection, describesValues) {
   const TypeData& type = Color::kivTypeData();
   expectValueType(type, "House::Color", TypeKind::value, "House::Color(red=1, mode='on')");
   const Color color{1, House::on};
   const Color same = std::any_cast<Color>(type.parse(type.valueText(&color)));
   EXPECT_TRUE(type.equal(&color, &same));
   EXPECT_FALSE(type.equal(&color, std::any_cast<Color>(&type.defaultObject)));
   EXPECT_EQ(type.displayText(&color), "House::Color(red=1, mode='on')");
   EXPECT_EQ(type.size, sizeof(Color));
   EXPECT_EQ(type.attributes.size(), 2U);
}

TEST_F(Reflection, describesEnumerations) {
   const TypeData& type = kivTypeData(std::type_identity<House::Mode>{});
   expectValueType(type, "House::Mode", TypeKind::enumeration, "'dim'");
   const House::Mode mode = House::dim;
   EXPECT_EQ(type.valueText(&mode), "'dim'");
   EXPECT_EQ(type.displayText(&mode), "dim");
   EXPECT_TRUE(type.attributes.empty());
   EXPECT_EQ(type.size, 1U);
}

} // namespace
