// The types that the tests of the framework declare for themselves: one line per attribute, of
// every kind that there is. `NothingLeft` is the fixture that counts their objects.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/Enumeration.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/Value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace House {

enum Mode : U8 { off, on, dim = 9 };
KIV_ENUM(Mode, ModeInstance)

enum class Edge : U8 { first, last = 63, outside = 64, top = 255 };
KIV_ENUM(Edge, EdgeInstance)

class Color : public Kiv::Value<Color> {
   KIV_VALUE(Color, "House::Color");
   KIV_FIELD(1, U8, red);
   KIV_FIELD(2, Mode, mode);

 public:
   Color() = default;
   Color(U8 red, Mode mode) : red_{red}, mode_{mode} {}
   explicit Color(std::string_view text) : Color{Kiv::parseValue<Color>(text)} {}
};

// One attribute: its text is the attribute's.
class Watt : public Kiv::Value<Watt> {
   KIV_VALUE(Watt, "House::Watt");
   KIV_FIELD(1, U16, value);

 public:
   Watt() = default;
   explicit Watt(U16 value) : value_{value} {}
};

// Refuses 0, and has no hash.
class Level : public Kiv::Value<Level> {
   KIV_VALUE(Level, "House::Level");
   KIV_FIELD(1, U8, value);

 public:
   Level() : value_{1} {}
   explicit Level(U8 value) : value_{value} {
      if (value == 0) {
         throw Kiv::RangeError{"level 0 not allowed"};
      }
   }
   U64 hash(U64 seed) const = delete;
};

// Has a text of its own: a word of lower-case letters.
class Word {
 public:
   static constexpr bool kivTextual = true;
   static constexpr std::string_view kivTypeName = "House::Word";
   Word() = default;
   explicit Word(std::string_view text) : text_{text} {
      const std::size_t bad = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz");
      if (bad != std::string_view::npos) {
         throw Kiv::ParseError{"expected a lower-case letter", bad};
      }
   }
   const std::string& stringValue() const { return text_; }
   U64 hash(U64 seed) const { return Kiv::hashString(text_, seed); }
   friend bool operator==(const Word&, const Word&) = default;

 private:
   std::string text_;
};

// Everything that a value may hold.
class Scene : public Kiv::Value<Scene> {
   KIV_VALUE(Scene, "House::Scene");
   KIV_FIELD(1, Pello::String, name);
   KIV_FIELD(2, Color, color);
   KIV_FIELD(3, Watt, watt);
   KIV_FIELD(4, bool, lit);
   KIV_FIELD(5, Word, word);
   KIV_FIELD(6, U64, serial);

 public:
   Scene() = default;
   Scene(Pello::String name, Color color, Watt watt, bool lit, Word word, U64 serial)
      : name_{std::move(name)},
        color_{color},
        watt_{watt},
        lit_{lit},
        word_{std::move(word)},
        serial_{serial} {}
};

// Holds an attribute without a hash.
class Fragile : public Kiv::Value<Fragile> {
   KIV_VALUE(Fragile, "House::Fragile");
   KIV_FIELD(1, U8, count);
   KIV_FIELD(2, Level, level);

 public:
   Fragile() = default;
   Fragile(U8 count, Level level) : count_{count}, level_{level} {}
};

class Flag : public Kiv::Value<Flag> {
   KIV_VALUE(Flag, "House::Flag");
   KIV_FIELD(1, U8, number);
   KIV_FIELD(2, bool, up);

 public:
   Flag() = default;
   Flag(U8 number, bool up) : number_{number}, up_{up} {}
};

// A key whose hashes collide: there are only two of them.
class Clash : public Kiv::Value<Clash> {
   KIV_VALUE(Clash, "House::Clash");
   KIV_FIELD(1, U8, value);

 public:
   Clash() = default;
   explicit Clash(U8 value) : value_{value} {}
   U64 hash(U64) const { return value_ % 2; }
   friend auto operator<=>(const Clash& a, const Clash& b) { return a.value_ <=> b.value_; }
};

// The plainest entity: published by nobody.
class Bulb : public Kiv::Entity {
   KIV_ENTITY(Bulb, Kiv::Entity, "House::Bulb");
   KIV_CONSTANT(130, Pello::String, name);
   KIV_ATTRIBUTE(131, U16, age);

 public:
   explicit Bulb(Pello::String name) : name_{std::move(name)} {}
   Bulb(Pello::String name, U16 age) : name_{std::move(name)}, age_{age} {}
};

class Socket : public Kiv::Entity {
   KIV_ENTITY(Socket, Kiv::Entity, "House::Socket");
   KIV_ATTRIBUTE(130, Watt, most, 60);
};

class Slot : public Kiv::Entity {
   KIV_ENTITY(Slot, Kiv::Entity, "House::Slot");
   KIV_CONSTANT(130, U32, number);
   KIV_ATTRIBUTE(131, bool, used);

 public:
   explicit Slot(U32 number) : number_{number} {}
};

class Counter : public Kiv::Entity {
   KIV_ENTITY(Counter, Kiv::Entity, "House::Counter");
   KIV_CONSTANT(130, Clash, key);

 public:
   explicit Counter(Clash key) : key_{key} {}
};

// Every kind of attribute, all of them published.
class Lamp : public Kiv::Entity {
   KIV_ENTITY(Lamp, Kiv::Entity, "House::Lamp");
   KIV_PUBLISHED;
   KIV_CONSTANT(130, Pello::String, name);
   KIV_ATTRIBUTE(131, Color, color, 7, on);
   KIV_ATTRIBUTE(132, U32, kicks);
   KIV_ATTRIBUTE(133, Pello::Ptr<const Bulb>, spare);
   KIV_CHILD(134, Socket, socket);
   KIV_CHILD(135, Bulb, main);
   KIV_COLLECTION(136, bulb, Kiv::HashMap2018<Pello::String, Bulb, &Bulb::name, 77>);
   KIV_COLLECTION(137, byIndex, Kiv::RbTreeMap<U32, Pello::Ptr<Bulb>>);
   KIV_COLLECTION(138, note, Kiv::RbTreeMap<U32, Pello::String>);
   KIV_COLLECTION(139, mode, Kiv::HashSet2018<Mode, 3>);
   KIV_COLLECTION(140, tag, Kiv::HashSet2018<Pello::String, 5, true>);
   KIV_COLLECTION(141, slot, Kiv::RbTreeEntityMap<U32, Slot>);
   KIV_COLLECTION(142, mark, Kiv::RbTreeSet<U32>);

 public:
   explicit Lamp(Pello::String name) : name_{std::move(name)} {}
};

// Inherits all that, and adds to it.
class Lantern : public Lamp {
   KIV_ENTITY(Lantern, Lamp, "House::Lantern");
   KIV_ATTRIBUTE(258, U8, handles, 1);

 public:
   using Lamp::Lamp;
};

// Has a constant of its own beside the inherited ones.
class Sealed : public Lamp {
   KIV_ENTITY(Sealed, Lamp, "House::Sealed");
   KIV_CONSTANT(258, U8, seal);

 public:
   Sealed(Pello::String name, U8 seal) : Lamp{std::move(name)}, seal_{seal} {}
};

// Its setter has a rule of its own: never beyond 10.
class Valve : public Kiv::Entity {
   KIV_ENTITY(Valve, Kiv::Entity, "House::Valve");
   KIV_RULED_ATTRIBUTE(130, U8, open);

 public:
   void openIs(U8 value) {
      ++calls_;
      Kiv::setAttribute<130>(*this, open_, std::min<U8>(value, 10));
   }
   U32 calls() const { return calls_; }

 private:
   U32 calls_ = 0;
};

// Holds lamps of any kind, made elsewhere.
class Hall : public Kiv::Entity {
   KIV_ENTITY(Hall, Kiv::Entity, "House::Hall");

   using LampMap = Kiv::HashMap2018<Pello::String, Lamp, &Lamp::name, 11>;
   LampMap lamp_;

 public:
   KIV_ROW(130, lamp, collection, LampMap)
   Lamp::Ptr lamp(const Pello::String& name) const { return lamp_.get(name); }
   void lampIs(const Lamp::Ptr& lamp) { lamp_.put(Kiv::NoReport{}, lamp); }
};

// The collections of a lamp with nobody watching.
class Shelf : public Kiv::Entity {
   KIV_ENTITY(Shelf, Kiv::Entity, "House::Shelf");
   KIV_COLLECTION(130, bulb, Kiv::HashMap2018<Pello::String, Bulb, &Bulb::name, 77>);
   KIV_COLLECTION(131, byIndex, Kiv::RbTreeMap<U32, Pello::Ptr<Bulb>>);
   KIV_COLLECTION(132, number, Kiv::HashSet2018<U32, 9>);
   KIV_COLLECTION(133, edge, Kiv::HashSet2018<Edge, 0>);
};

// Refers to another of its street.
class Home : public Kiv::Entity {
   KIV_ENTITY(Home, Kiv::Entity, "House::Home");
   KIV_CONSTANT(130, Pello::String, name);
   KIV_ATTRIBUTE(131, Pello::Ptr<Home>, neighbor);

 public:
   explicit Home(Pello::String name) : name_{std::move(name)} {}
};

class Street : public Kiv::Entity {
   KIV_ENTITY(Street, Kiv::Entity, "House::Street");
   KIV_COLLECTION(130, home, Kiv::HashMap2018<Pello::String, Home, &Home::name, 12>);
};

// Copies by a rule of its own, which leaves `second` alone.
class Recipe : public Kiv::Entity {
   KIV_ENTITY(Recipe, Kiv::Entity, "House::Recipe");
   KIV_ATTRIBUTE(130, U8, first);
   KIV_ATTRIBUTE(131, U8, second);

 public:
   void copy(const Recipe& other) { firstIs(other.first()); }
   void copy(const PtrConst& other) { copy(*other); }
};

// Has no `copy` of its own: what it inherits knows nothing of `third`.
class LongRecipe : public Recipe {
   KIV_ENTITY(LongRecipe, Recipe, "House::LongRecipe");
   KIV_ATTRIBUTE(258, U8, third);
};

// Stands before the entity in an object's memory.
class Tag {
 public:
   virtual ~Tag() = default;
   U64 tagged = 0x1122334455667788U;
};

// Inherits attributes from a base that is not at the beginning of the object.
class Chest : public Tag, public Recipe {
   KIV_ENTITY(Chest, Recipe, "House::Chest");
   KIV_ATTRIBUTE(258, U8, locks, 2);
};

// Removes its neighbour from the map when it goes.
class Clinging : public Kiv::Entity {
   KIV_ENTITY(Clinging, Kiv::Entity, "House::Clinging");
   KIV_CONSTANT(130, U32, key);

 public:
   using Map = Kiv::HashMap2018<U32, Clinging, &Clinging::key, 3>;
   Clinging(U32 key, Map& map) : key_{key}, map_{&map} {}
   ~Clinging() override { map_->del(Kiv::NoReport{}, (key_ + 1) % 8); }

 private:
   Map* map_;
};

class Bare : public Kiv::Entity {
   KIV_ENTITY(Bare, Kiv::Entity, "House::Bare");
};

// Never comes to be.
class Stillborn : public Kiv::Entity {
   KIV_ENTITY(Stillborn, Kiv::Entity, "House::Stillborn");

 public:
   Stillborn() { throw Kiv::RangeError{"not allowed"}; }
};

// After each test as many objects exist as before it.
class NothingLeft : public testing::Test {
 protected:
   NothingLeft();
   ~NothingLeft() override;

 private:
   std::vector<U64> before_;
};

// Writes down every change of a lamp: `132 old=7`, `136[a] new`, `136[a] old=a`.
class ChangeLog {
 public:
   explicit ChangeLog(const Lamp& lamp);
   // What was written since the last call.
   std::vector<std::string> take() { return std::exchange(lines_, {}); }

 private:
   std::vector<std::string> lines_;
   Pello::Publisher::Subscription subscription_;
};

} // namespace House
