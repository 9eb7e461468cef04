// Calling operations by name.
#include "Kiv/Operation.h"

#include "House.h"
#include "Kiv/Reflection.h"

#include <gtest/gtest.h>

#include <any>
#include <stdexcept>
#include <string>
#include <vector>

namespace House {

// Operations of every shape.
class Switch : public Kiv::Entity {
   KIV_ENTITY(Switch, Kiv::Entity, "House::Switch");
   KIV_ATTRIBUTE(130, U32, presses);

 public:
   using KivOperationsOf = Switch;
   static constexpr auto kivOperations() {
      return std::tuple{
            Kiv::operation("press", &Switch::press, {}),
            Kiv::operation("pressMany", &Switch::pressMany, {"times", "mode"}),
            Kiv::operation("describe", &Switch::describe, {"prefix", "loud", "color"}),
            Kiv::operation("age", &Switch::age, {"bulb"}),
            Kiv::operation("fail", &Switch::fail, {}),
      };
   }

   void press() { pressesIs(presses() + 1); }
   U32 pressMany(U16 times, Mode mode) {
      pressesIs(presses() + (mode == on ? times : 0U));
      return presses();
   }
   virtual Pello::String describe(const Pello::String& prefix, bool loud, Color color) const {
      return prefix.str() + std::to_string(color.red()) + (loud ? "!" : "");
   }
   U16 age(Bulb::PtrConst bulb) { return bulb == nullptr ? U16{0} : bulb->age(); }
   void fail() { throw Kiv::RangeError{"worn out"}; }
};

// Overrides one, and adds one.
class Dimmer : public Switch {
   KIV_ENTITY(Dimmer, Switch, "House::Dimmer");

 public:
   using KivOperationsOf = Dimmer;
   static constexpr auto kivOperations() {
      return std::tuple{Kiv::operation("level", &Dimmer::level, {"bulb"})};
   }
   Pello::String describe(const Pello::String& prefix, bool, Color) const override {
      return prefix.str() + "dimmer";
   }
   bool level(const Bulb::Ptr& bulb) { return bulb != nullptr; }
};

// Inherits the operations and declares none.
class Plain : public Dimmer {
   KIV_ENTITY(Plain, Dimmer, "House::Plain");
};

} // namespace House

KIV_DEFINE_ENTITY(House::Switch)
KIV_DEFINE_ENTITY(House::Dimmer)
KIV_DEFINE_ENTITY(House::Plain)

namespace {

using House::Bulb;
using House::Color;
using House::Dimmer;
using House::Switch;
using Kiv::callOperation;
using Kiv::NamedArgument;

using Arguments = std::vector<NamedArgument>;

class Operation : public House::NothingLeft {
 protected:
   // Why the call is refused.
   std::string refusal(std::string_view operation, const Arguments& arguments) {
      try {
         callOperation(*wall, operation, arguments);
         return "accepted";
      } catch (const Kiv::NameError& error) {
         return error.what();
      }
   }
   Switch::Ptr wall = new Switch;
};

TEST_F(Operation, withoutResultYieldsNothing) {
   EXPECT_FALSE(callOperation(*wall, "press", {}).has_value());
   EXPECT_EQ(wall->presses(), 1U);
}

TEST_F(Operation, takesArgumentsInAnyOrder) {
   const Arguments forwards{{"times", U16{3}}, {"mode", House::on}};
   const Arguments backwards{{"mode", House::on}, {"times", U16{4}}};
   EXPECT_EQ(std::any_cast<U32>(callOperation(*wall, "pressMany", forwards)), 3U);
   EXPECT_EQ(std::any_cast<U32>(callOperation(*wall, "pressMany", backwards)), 7U);
}

TEST_F(Operation, carriesEveryKindOfValue) {
   const Arguments arguments{
         {"prefix", Pello::String{"red "}}, {"loud", true}, {"color", Color{9, House::on}}};
   EXPECT_EQ(std::any_cast<Pello::String>(callOperation(*wall, "describe", arguments)), "red 9!");
}

TEST_F(Operation, aChangeableObjectServesWhereAReadOnlyOneIsWanted) {
   const Bulb::Ptr bulb = new Bulb{"b", 5};
   for (const std::any& argument : {std::any{bulb}, std::any{Bulb::PtrConst{bulb}}}) {
      EXPECT_EQ(std::any_cast<U16>(callOperation(*wall, "age", Arguments{{"bulb", argument}})), 5U);
   }
   EXPECT_EQ(std::any_cast<U16>(callOperation(*wall, "age", Arguments{{"bulb", Bulb::Ptr{}}})), 0U);
}

TEST_F(Operation, aReadOnlyObjectDoesNotServeForAChangeableOne) {
   wall = new Dimmer;
   EXPECT_EQ(refusal("level", {{"bulb", Bulb::PtrConst{}}}),
             "argument 'bulb' of level: expected Pello::Ptr<House::Bulb>");
   EXPECT_EQ(refusal("level", {{"bulb", Bulb::Ptr{}}}), "accepted");
}

TEST_F(Operation, goesThroughTheVirtualTable) {
   wall = new Dimmer;
   const Arguments arguments{{"prefix", Pello::String{"a "}}, {"loud", true}, {"color", Color{}}};
   EXPECT_EQ(std::any_cast<Pello::String>(callOperation(*wall, "describe", arguments)), "a dimmer");
}

TEST_F(Operation, refusalsSayWhatWasExpected) {
   const std::string many = "pressMany(times: U16, mode: House::Mode)";
   EXPECT_EQ(refusal("push", {}), "House::Switch has no operation 'push': expected one of "
                                  "press, pressMany, describe, age, fail");
   EXPECT_EQ(refusal("press", {{"x", 1}}), "1 arguments: expected press()");
   EXPECT_EQ(refusal("pressMany", {}), "0 arguments: expected " + many);
   EXPECT_EQ(refusal("pressMany", {{"times", U16{1}}, {"times", U16{1}}}),
             "argument 'mode' is missing: expected " + many);
   EXPECT_EQ(refusal("pressMany", {{"times", 1}, {"mode", House::on}}),
             "argument 'times' of pressMany: expected U16");
   EXPECT_EQ(refusal("pressMany", {{"times", U16{1}}, {"mode", U8{1}}}),
             "argument 'mode' of pressMany: expected House::Mode");
   EXPECT_EQ(refusal("age", {{"bulb", 1}}),
             "argument 'bulb' of age: expected Pello::Ptr<House::Bulb const>");
   EXPECT_EQ(refusal("describe", {{"prefix", "text"}, {"loud", true}, {"color", Color{}}}),
             "argument 'prefix' of describe: expected Pello::String");
   EXPECT_EQ(refusal("describe", {{"a", 1}, {"b", 2}, {"c", 3}}),
             "argument 'prefix' is missing: expected describe(prefix: Pello::String, loud: bool, "
             "color: House::Color)");
   EXPECT_EQ(wall->presses(), 0U);
}

TEST_F(Operation, whatItThrowsComesThrough) {
   EXPECT_THROW(callOperation(*wall, "fail", {}), Kiv::RangeError);
}

TEST_F(Operation, areDescribedInheritedOnesFirst) {
   std::string names;
   for (const auto& operation : House::Plain::kivTypeData().operations) {
      names += std::string{operation.name} + " ";
   }
   EXPECT_EQ(names, "press pressMany describe age fail level ");
   EXPECT_TRUE(Bulb::kivTypeData().operations.empty());
}

} // namespace
