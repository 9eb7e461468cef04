// Values of every kind: text, parse, equality, hash, printing.
#include "House.h"
#include "Kiv/Format.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <bit>
#include <cmath>
#include <sstream>
#include <string>

namespace {

using House::Color;
using House::Fragile;
using House::Level;
using House::Mode;
using House::Scene;
using House::Watt;
using House::Word;
using Kiv::parseValue;
using Kiv::valueText;

static_assert(Kiv::RowValue<Color> && Kiv::CompositeValue<Color>);
static_assert(Kiv::RowValue<Watt> && !Kiv::CompositeValue<Watt>);
static_assert(Kiv::TextualValue<Word> && !Kiv::RowValue<Word>);
static_assert(!Kiv::RowValue<House::Lamp>, "an entity is no value, though it has rows");
static_assert(!Kiv::RowValue<U8> && !Kiv::TextualValue<Pello::String>);

static_assert(Kiv::anyBytes<U8>() && Kiv::anyBytes<double>() && Kiv::anyBytes<Mode>());
static_assert(Kiv::anyBytes<Color>() && Kiv::anyBytes<Watt>());
static_assert(!Kiv::anyBytes<bool>(), "a byte of 2 is no bool");
static_assert(!Kiv::anyBytes<Pello::String>() && !Kiv::anyBytes<Word>() && !Kiv::anyBytes<Scene>());
static_assert(!Kiv::anyBytes<House::Flag>(), "nor is it one inside a value");

template <class T>
void expectText(const T& value, const std::string& text) {
   EXPECT_EQ(valueText(value), text);
   EXPECT_TRUE(parseValue<T>(text) == value) << text;
}

TEST(ValueText, isPrintedAndParsedBack) {
   expectText<U8>(255, "255");
   expectText<U16>(65535, "65535");
   expectText<U32>(4294967295U, "4294967295");
   expectText<U64>(18446744073709551615U, "18446744073709551615");
   expectText<U32>(0, "0");
   expectText(0.0, "0");
   expectText(0.1, "0.1");
   expectText(-1.5, "-1.5");
   expectText(1e300, "1e+300");
   expectText(1732119999.25, "1732119999.25");
   expectText(true, "true");
   expectText(false, "false");
   expectText(Pello::String{"a \"b\"\n"}, R"("a \"b\"\n")");
   expectText(Pello::String{}, R"("")");
   expectText(House::dim, "'dim'");
   expectText(Watt{60}, "60");
   expectText(Level{}, "1");
   expectText(Word{"lamp"}, R"("lamp")");
   expectText(Color{10, House::on}, "House::Color(red=10, mode='on')");
   expectText(Color{}, "House::Color(red=0, mode='off')");
}

const std::string sceneText =
      R"x(House::Scene(name="a, b)", color=House::Color(red=1, mode='dim'), watt=60, lit=true, )x"
      R"x(word="lamp", serial=9))x";

TEST(ValueText, compositesNest) {
   const Scene scene{"a, b)", Color{1, House::dim}, Watt{60}, true, Word{"lamp"}, 9};
   expectText(scene, sceneText);
}

template <class T>
void expectRefused(const std::string& text, const std::string& what) {
   try {
      parseValue<T>(text);
      ADD_FAILURE() << text;
   } catch (const Kiv::ParseError& error) {
      EXPECT_EQ(error.what(), what) << text;
   }
}

TEST(ValueText, numbersEndAtTheirWidth) {
   expectRefused<U8>("256", "expected a number from 0 to 255 at position 0");
   expectRefused<U16>("65536", "expected a number from 0 to 65535 at position 0");
   expectRefused<U32>("4294967296", "expected a number from 0 to 4294967295 at position 0");
   expectRefused<U64>("18446744073709551616",
                      "expected a number from 0 to 18446744073709551615 at position 0");
   expectRefused<Watt>("65536", "expected a number from 0 to 65535 at position 0");
   expectRefused<U8>("1 ", "expected the end of the text at position 1");
}

TEST(ValueText, refusalsSayWhatAndWhere) {
   const std::string names = "(expected one of: off, on, dim)";
   expectRefused<bool>("yes", "expected true or false at position 0");
   expectRefused<Mode>("on", "expected \"'\" at position 0");
   expectRefused<Mode>("'on", "expected a closing single quote at position 1");
   expectRefused<Mode>("'no'", "House::Mode has no enumerator 'no' " + names + " at position 1");
   for (const std::string text : {"256", "1", "07", "7 ", "-7", ""}) {
      expectRefused<Mode>("'" + text + "'", "House::Mode has no enumerator '" + text + "' " +
                                                  names + " at position 1");
   }
   expectRefused<Word>(R"("laMp")", "expected a lower-case letter at position 3");
   expectRefused<Word>("lamp", "expected \"\"\" at position 0");
   expectRefused<Color>("", "expected \"House::Color(red=\" at position 0");
   expectRefused<Color>("House::Colour(red=1, mode='on')",
                        "expected \"House::Color(red=\" at position 0");
   expectRefused<Color>("House::Color(mode='on', red=1)",
                        "expected \"House::Color(red=\" at position 0");
   expectRefused<Color>("House::Color(red=1)", "expected \", \" at position 18");
   expectRefused<Color>("House::Color(red=1, mod='on')", "expected \"mode=\" at position 20");
   expectRefused<Color>("House::Color(red=1, mode='on'", "expected \")\" at position 29");
   expectRefused<Color>("House::Color(red=1, mode='on'))",
                        "expected the end of the text at position 30");
}

TEST(ValueText, refusalsNameTheAttribute) {
   expectRefused<Color>("House::Color(red=256, mode='on')",
                        "attribute 'red': expected a number from 0 to 255 at position 17");
   expectRefused<Color>("House::Color(red=1, mode=on)",
                        "attribute 'mode': expected \"'\" at position 25");
   expectRefused<Color>("House::Color(red=1, mode='no')",
                        "attribute 'mode': House::Mode has no enumerator 'no' (expected one of: "
                        "off, on, dim) at position 26");
   expectRefused<Scene>(R"(House::Scene(name="x", color=House::Color(red=x, mode='on')))",
                        "attribute 'color': attribute 'red': expected a number at position 46");
   expectRefused<Scene>(R"(House::Scene(name="x", color=House::Color(red=1, mode='on'), watt=1, )"
                        R"(lit=true, word="a1"))",
                        "attribute 'word': expected a lower-case letter at position 86");
}

TEST(ValueText, whatTheTypeRefusesIsARangeError) {
   try {
      parseValue<Fragile>("House::Fragile(count=1, level=0)");
      ADD_FAILURE();
   } catch (const Kiv::RangeError& error) {
      EXPECT_STREQ(error.what(), "attribute 'level': level 0 not allowed");
   }
   EXPECT_THROW(parseValue<Level>("0"), Kiv::RangeError);
   EXPECT_EQ(parseValue<Level>("255").value(), 255U);
}

TEST(ValueText, theTextConstructorParses) {
   EXPECT_EQ(Color{"House::Color(red=9, mode='off')"}, (Color{9, House::off}));
   EXPECT_THROW(Color{"red"}, Kiv::ParseError);
}

TEST(Value, streamsAndFormatsItsText) {
   std::ostringstream out;
   out << Color{1, House::on} << ' ' << Watt{80} << ' ' << Level{6};
   EXPECT_EQ(out.str(), "House::Color(red=1, mode='on') 80 6");
   EXPECT_EQ(fmt::format("{} {:>4} {}", Color{1, House::on}, Watt{80}, Word{"own"}),
             "House::Color(red=1, mode='on')   80 own");
}

TEST(Value, isEqualWhenAllAttributesAre) {
   const Color color{1, House::on};
   EXPECT_TRUE(color.isEq(Color{1, House::on}));
   EXPECT_FALSE(color.isEq(Color{2, House::on}));
   EXPECT_FALSE(color.isEq(Color{1, House::off}));
   EXPECT_TRUE(color == color);
   EXPECT_TRUE(color != Color{});
   EXPECT_TRUE(Scene{} == Scene{});
}

TEST(ValueHash, mixesTheAttributesInOrderFromTheSeed) {
   const Color color{1, House::on};
   Kiv::HashState state{77};
   state.mix(Kiv::hashOf(U8{1}, 0)).mix(Kiv::hashOf(House::on, 0));
   EXPECT_EQ(color.hash(77), state.result());
   EXPECT_EQ(Kiv::hashOf(color, 77), color.hash(77));
   EXPECT_NE(color.hash(77), color.hash(78));
   EXPECT_NE((Color{0, House::on}.hash(0)), (Color{1, House::off}.hash(0)));
}

TEST(ValueHash, ofOneAttributeIsTheAttributesWithSeedNought) {
   EXPECT_EQ(Watt{80}.hash(77), Kiv::hashOf(U16{80}, 0));
   EXPECT_EQ(Watt{80}.hash(77), Watt{80}.hash(1));
   EXPECT_NE(Watt{80}.hash(0), Watt{81}.hash(0));
}

TEST(ValueHash, followsEqualityOfEveryKind) {
   EXPECT_EQ(Kiv::hashOf(Pello::String{"a"}, 3), Kiv::hashString("a", 3));
   EXPECT_EQ(Kiv::hashOf(true, 3), Kiv::hashNumber(1, 3));
   EXPECT_EQ(Kiv::hashOf(Word{"a"}, 3), Kiv::hashString("a", 3));
   EXPECT_EQ(Kiv::hashOf(House::dim, 3), Kiv::hashNumber(9, 3));
   EXPECT_EQ(Kiv::hashOf(parseValue<Scene>(sceneText), 5),
             Kiv::hashOf(parseValue<Scene>(sceneText), 5));
}

TEST(ValueHash, aTypeWithoutOneSaysSo) {
   try {
      Kiv::hashOf(Level{}, 0);
      ADD_FAILURE();
   } catch (const Kiv::NotHashable& error) {
      EXPECT_STREQ(error.what(), "House::Level cannot be hashed");
   }
   EXPECT_THROW(Kiv::hashOf(Fragile{}, 0), Kiv::NotHashable) << "one of its attributes has none";
}

RC_GTEST_PROP(ValueProperty, realsAreReadBack, (U64 bits)) {
   const auto value = std::bit_cast<double>(bits);
   RC_PRE(std::isfinite(value));
   RC_ASSERT(std::bit_cast<U64>(parseValue<double>(valueText(value))) == bits);
}

RC_GTEST_PROP(ValueProperty, scenesAreReadBack, ()) {
   const auto text =
         *rc::gen::container<std::string>(rc::gen::elementOf(std::string{"\"\\',=()\n\0a", 10}));
   const auto word = *rc::gen::container<std::string>(rc::gen::inRange('a', 'c'));
   const Mode mode = *rc::gen::element(House::off, House::on, House::dim);
   const Scene scene{text,
                     Color{*rc::gen::arbitrary<U8>(), mode},
                     Watt{*rc::gen::arbitrary<U16>()},
                     *rc::gen::arbitrary<bool>(),
                     Word{word},
                     *rc::gen::arbitrary<U64>()};
   const Scene read = parseValue<Scene>(valueText(scene));
   RC_ASSERT(read == scene);
   RC_ASSERT(read.hash(1) == scene.hash(1));
}

} // namespace
