// What `KIV_ENUM` gives an enumeration.
#include "House.h"
#include "Kiv/Format.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using House::Mode;
using House::ModeInstance;

struct Named {
   Mode mode;
   U32 number;
   std::string name;
};

const Named named[] = {{House::off, 0, "off"}, {House::on, 1, "on"}, {House::dim, 9, "dim"}};

TEST(Enumeration, namesAndNumbersFindEachOther) {
   for (const auto& [mode, number, name] : named) {
      EXPECT_EQ(stringValue(mode), name);
      EXPECT_EQ(ModeInstance(number), mode);
      EXPECT_EQ(ModeInstance(name), mode);
      Mode read = number == 0 ? House::on : House::off;
      sequenceToValue(name, read);
      EXPECT_EQ(read, mode);
      const std::string longer = name + ", and more";
      read = number == 0 ? House::on : House::off;
      sequenceToValue(longer.data(), longer.data() + name.size(), read);
      EXPECT_EQ(read, mode);
      std::ostringstream out;
      out << mode;
      EXPECT_EQ(out.str(), name);
      EXPECT_EQ(fmt::format("{} {:>4}", mode, mode),
                name + " " + std::string(4 - name.size(), ' ') + name);
   }
}

TEST(Enumeration, anUnknownNumberIsARangeError) {
   for (const U32 number : {2U, 8U, 255U, 256U, 257U, 265U, 4294967295U}) {
      try {
         ModeInstance(number);
         ADD_FAILURE() << number;
      } catch (const Kiv::RangeError& error) {
         EXPECT_EQ(error.what(),
                   "House::Mode has no enumerator of number " + std::to_string(number));
      }
   }
}

TEST(Enumeration, anUnknownNameIsAParseError) {
   for (const std::string name : {"", "On", "on ", "o", "1", "House::on"}) {
      Mode untouched = House::dim;
      try {
         sequenceToValue(name, untouched);
         ADD_FAILURE() << name;
      } catch (const Kiv::ParseError& error) {
         EXPECT_EQ(error.reason(),
                   "House::Mode has no enumerator '" + name + "' (expected one of: off, on, dim)");
         EXPECT_EQ(error.position(), 0U);
      }
      EXPECT_EQ(untouched, House::dim);
   }
}

TEST(Enumeration, aValueWithoutANamePrintsItsNumber) {
   const auto unknown = static_cast<Mode>(7);
   std::ostringstream out;
   out << unknown;
   EXPECT_EQ(out.str(), "7");
   EXPECT_EQ(stringValue(unknown), "7");
   EXPECT_EQ(fmt::format("{}", unknown), "7");
   EXPECT_EQ(Kiv::valueText(unknown), "'7'");
   EXPECT_EQ(Kiv::parseValue<Mode>("'7'"), unknown) << "and reads back";
   EXPECT_THROW(House::ModeInstance("7"), Kiv::ParseError) << "a number is no name";
}

TEST(Enumeration, theTableNamesTheType) {
   EXPECT_EQ(Kiv::enumTable<Mode>().typeName, "House::Mode");
   EXPECT_EQ(Kiv::enumTable<Mode>().enumerators.size(), 3U);
   EXPECT_EQ(House::EdgeInstance("top"), House::Edge::top);
}

enum class Stranger : U8 { one };
static_assert(Kiv::Enumeration<Mode> && Kiv::Enumeration<House::Edge>);
static_assert(!Kiv::Enumeration<Stranger> && !Kiv::Enumeration<U8>);

} // namespace
