// The attribute table of a type, asked at compile time. That a row behind a gap does not compile
// is tested by the build files beside this one, which compile `compile/Rows.cc`.
#include "Kiv/detail/Rows.h"

#include "House.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace {

using House::Bare;
using House::Bulb;
using House::Color;
using House::Lamp;
using House::Lantern;
using Kiv::AttributeKind;

static_assert(Kiv::rowCount<Color>() == 2);
static_assert(Kiv::rowCount<Bulb>() == 2);
static_assert(Kiv::rowCount<Lamp>() == 13);
static_assert(Kiv::rowCount<Lantern>() == 1, "inherited rows belong to the base");
static_assert(Kiv::rowCount<Bare>() == 0 && !Kiv::HasRows<Bare>);
static_assert(Kiv::rowCount<int>() == 0 && !Kiv::HasRows<int>);

static_assert(Kiv::isInTable<Color, 1>() && Kiv::isInTable<Color, 2>());
static_assert(!Kiv::isInTable<Color, 0>() && !Kiv::isInTable<Color, 3>());
static_assert(Kiv::isInTable<Bulb, 130>() && Kiv::isInTable<Bulb, 131>());
static_assert(!Kiv::isInTable<Bulb, 129>() && !Kiv::isInTable<Bulb, 132>());
static_assert(Kiv::isInTable<Lantern, 258>() && !Kiv::isInTable<Lantern, 130>());

static_assert(Color::redId == 1 && Lamp::kicksId == 132 && Lamp::markId == 142);
static_assert(Lantern::handlesId == 258 && Lantern::nameId == 130);

static_assert(Kiv::HasRow<Color, 2> && !Kiv::HasRow<Color, 3>);
static_assert(Kiv::rowAt<Color, 1>().id == 2);
static_assert(Kiv::rowAt<Color, 1>().name == "mode");
static_assert(Kiv::rowAt<Color, 1>().kind == AttributeKind::value);
static_assert(std::is_same_v<decltype(Kiv::rowAt<Color, 1>())::StorageType, House::Mode>);
static_assert(Kiv::rowAt<Bulb, 0>().kind == AttributeKind::constant);
static_assert(Kiv::rowAt<Lamp, 4>().kind == AttributeKind::child);
static_assert(Kiv::rowAt<Lamp, 5>().kind == AttributeKind::child);
static_assert(Kiv::rowAt<Lamp, 6>().kind == AttributeKind::collection);

static_assert(Kiv::Entity::kivFirstRow + Kiv::rowsPerLevel == Bulb::kivFirstRow);
static_assert(Bulb::kivFirstRow + Kiv::rowsPerLevel == Lantern::kivFirstRow);

template <class T>
std::string rowsOf() {
   std::string rows;
   Kiv::forEachRow<T>(
         [&](const auto& row) { rows += std::to_string(row.id) + std::string{row.name} + " "; });
   return rows;
}

TEST(Rows, areVisitedInDeclarationOrder) {
   EXPECT_EQ(rowsOf<Color>(), "1red 2mode ");
   EXPECT_EQ(rowsOf<Lamp>(), "130name 131color 132kicks 133spare 134socket 135main 136bulb "
                             "137byIndex 138note 139mode 140tag 141slot 142mark ");
   EXPECT_EQ(rowsOf<Lantern>(), "258handles ");
   EXPECT_EQ(rowsOf<Bare>(), "");
}

} // namespace
