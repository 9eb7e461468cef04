// The values of structured filters: ranges and TCP flags.
#include "Classification/NumericalRange.h"
#include "Classification/TcpFlagAndMask.h"
#include "Classification/TypeModule.h"
#include "Kiv/Exception.h"
#include "Kiv/TypeData.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace Classification {
namespace {

template <class T>
std::string textOf(const T& value) {
   std::ostringstream out;
   out << value;
   return out.str();
}

TEST(NumericalRangeTest, defaultTextAndParse) {
   EXPECT_EQ(NumericalRange{}, (NumericalRange{0, 0}));
   const NumericalRange range{6, 4294967295};
   EXPECT_EQ(textOf(range), "Classification::NumericalRange(low=6, high=4294967295)");
   EXPECT_EQ(NumericalRange{textOf(range)}, range);
   EXPECT_NE(range, (NumericalRange{6, 7}));
   EXPECT_NE(range, (NumericalRange{5, 4294967295}));
}

// Two literals are no ends of a range of characters.
static_assert(!std::is_constructible_v<NumericalRange, const char (&)[2], const char (&)[2]>);
static_assert(!std::is_constructible_v<NumericalRange, const char*, const U8*>);

TEST(NumericalRangeTest, isReadFromTheEndsOfARange) {
   const NumericalRange range{6, 17};
   const std::string longer = textOf(range) + ", and more";
   const std::size_t size = textOf(range).size();
   EXPECT_EQ((NumericalRange{longer.data(), longer.data() + size}), range);
   EXPECT_EQ((NumericalRange{longer.begin(), longer.begin() + static_cast<std::ptrdiff_t>(size)}),
             range);
   EXPECT_THROW((NumericalRange{longer.data(), longer.data() + size - 1}), Kiv::ParseError);
   EXPECT_EQ((NumericalRange{0, 0}), NumericalRange{}) << "zeros are numbers";
}

TEST(NumericalRangeTest, ordersByLowThenHigh) {
   const std::vector<NumericalRange> ascending{{0, 9}, {1, 1}, {1, 2}, {1, 4294967295}, {2, 0}};
   EXPECT_TRUE(std::ranges::is_sorted(ascending));
   EXPECT_EQ(std::ranges::adjacent_find(ascending), ascending.end());
   EXPECT_EQ((NumericalRange{1, 2} <=> NumericalRange{1, 2}), std::strong_ordering::equal);
}

TEST(TcpFlagAndMaskTest, defaultTextAndParse) {
   EXPECT_EQ(TcpFlagAndMask{}, (TcpFlagAndMask{0, 0}));
   const TcpFlagAndMask syn{2, 18};
   EXPECT_EQ(syn.tcpFlag().value(), 2);
   EXPECT_EQ(syn.tcpFlagMask().value(), 18);
   EXPECT_EQ(textOf(syn), "Classification::TcpFlagAndMask(tcpFlag=2, tcpFlagMask=18)");
   EXPECT_EQ(TcpFlagAndMask{textOf(syn)}, syn);
   EXPECT_NE(syn, TcpFlagAndMask{});
   EXPECT_NE((TcpFlagAndMask{0, 1}), TcpFlagAndMask{});
}

TEST(TcpFlagAndMaskTest, flagsBeyondAByteAreRefused) {
   EXPECT_EQ(TcpFlags{"255"}.value(), 255);
   EXPECT_THROW(TcpFlags{"256"}, Kiv::ParseError);
   EXPECT_THROW(TcpFlags{"-1"}, Kiv::ParseError);
}

TEST(TcpFlagAndMaskTest, ordersByFlagsThenMask) {
   const std::vector<TcpFlagAndMask> ascending{{0, 255}, {1, 0}, {1, 1}, {1, 128}, {255, 0}};
   EXPECT_TRUE(std::ranges::is_sorted(ascending));
   EXPECT_EQ(std::ranges::adjacent_find(ascending), ascending.end());
}

RC_GTEST_PROP(ValuesProperty, equalValuesHashAlikeAndOrdersAgreeWithEquality, ()) {
   const auto small = [] { return static_cast<U8>(*rc::gen::inRange(0, 3)); };
   const NumericalRange a{small(), small()};
   const NumericalRange b{small(), small()};
   RC_ASSERT((a == b) == ((a <=> b) == 0));
   RC_ASSERT(!(a == b) || a.hash(7) == b.hash(7));
   const TcpFlagAndMask c{small(), small()};
   const TcpFlagAndMask d{small(), small()};
   RC_ASSERT((c == d) == ((c <=> d) == 0));
   RC_ASSERT(!(c == d) || c.hash(7) == d.hash(7));
   RC_ASSERT((c < d) == (std::pair{c.tcpFlag().value(), c.tcpFlagMask().value()} <
                         std::pair{d.tcpFlag().value(), d.tcpFlagMask().value()}));
}

TEST(ClassificationModuleTest, allTypesAreRegistered) {
   EXPECT_EQ(typeModule().name, "Classification");
   EXPECT_EQ(typeModule().types.size(), 8U);
   for (const Kiv::TypeData* type : typeModule().types) {
      EXPECT_EQ(Kiv::findType(type->name), type) << type->name;
   }
}

} // namespace
} // namespace Classification
