// `L3::VrfName`: text in, the same text out; order, hash and registration.
#include "L3/VrfName.h"

#include "Kiv/Format.h"
#include "L3/TypeModule.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <any>
#include <sstream>
#include <string>
#include <vector>

namespace L3 {
namespace {

static_assert(Kiv::TextualValue<VrfName>);
static_assert(sizeof(VrfName) == sizeof(Pello::String));

// Short texts of pieces that quoting, parsing and hashing stumble over; few enough to meet again.
rc::Gen<std::string> hostileText() {
   static const std::vector<std::string> pieces{
         "",   "a",  "A", "Ethernet", "1",  "/", "\"",   "\\",   "\\\"",     "\\x41",
         "\n", "\t", "'", "(",        ", ", "=", "\x7f", "\xff", "\xc3\xa9", std::string(1, '\0')};
   const auto some = rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(pieces));
   return rc::gen::map(some, [](const std::vector<std::string>& drawn) {
      std::string text;
      for (std::size_t index = 0; index < drawn.size() && index < 4; ++index) {
         text += drawn[index];
      }
      return text;
   });
}

std::string streamed(const VrfName& vrf) {
   std::ostringstream out;
   out << vrf;
   return out.str();
}

TEST(VrfName, isEmptyByDefault) {
   EXPECT_EQ(VrfName{}, VrfName{""});
   EXPECT_EQ(VrfName{}.stringValue(), "");
   EXPECT_EQ(Kiv::valueText(VrfName{}), "\"\"");
   EXPECT_EQ(streamed(VrfName{}), "");
}

TEST(VrfName, isShownBareOrQuoted) {
   const VrfName vrf{"red \"1\""};
   EXPECT_EQ(streamed(vrf), "red \"1\"");
   EXPECT_EQ(fmt::format("{:>8}", vrf), " red \"1\"");
   EXPECT_EQ(Kiv::valueText(vrf), R"("red \"1\"")");
}

TEST(VrfName, isOrderedByBytes) {
   const std::vector<std::string> ascending{"", "A", "AA", "B", "a", "a\n", "b", "\xff"};
   for (std::size_t a = 0; a < ascending.size(); ++a) {
      for (std::size_t b = 0; b < ascending.size(); ++b) {
         EXPECT_EQ(VrfName{ascending[a]} <=> VrfName{ascending[b]}, a <=> b)
               << ascending[a] << " and " << ascending[b];
      }
   }
}

RC_GTEST_PROP(VrfName, keepsEveryText, ()) {
   const auto text = *hostileText();
   const VrfName vrf{text};
   RC_ASSERT(vrf.stringValue().str() == text);
   RC_ASSERT(streamed(vrf) == text);
   RC_ASSERT(Kiv::parseValue<VrfName>(Kiv::valueText(vrf)) == vrf);
}

RC_GTEST_PROP(VrfName, comparesAndHashesAsItsText, ()) {
   const auto a = *hostileText();
   const auto b = *hostileText();
   const auto seed = *rc::gen::inRange<U64>(0, 3);
   RC_ASSERT((VrfName{a} == VrfName{b}) == (a == b));
   RC_ASSERT((VrfName{a} < VrfName{b}) == (a < b));
   RC_ASSERT((VrfName{a}.hash(seed) == VrfName{b}.hash(seed)) == (a == b));
}

TEST(VrfName, hashDependsOnTheSeed) {
   EXPECT_NE(VrfName{"red"}.hash(0), VrfName{"red"}.hash(1));
   EXPECT_EQ(Kiv::hashOf(VrfName{"red"}, 1), VrfName{"red"}.hash(1));
}

TEST(VrfName, isRegisteredByItsModule) {
   Kiv::registerTypeModule(typeModule());
   const Kiv::TypeData* type = Kiv::findType("L3::VrfName");
   ASSERT_EQ(type, &VrfName::kivTypeData());
   EXPECT_EQ(type->kind, Kiv::TypeKind::value);
   EXPECT_TRUE(type->attributes.empty());
   EXPECT_EQ(std::any_cast<VrfName>(type->defaultObject), VrfName{});
   const auto parsed = std::any_cast<VrfName>(type->parse("\"red\""));
   EXPECT_EQ(parsed, VrfName{"red"});
   EXPECT_EQ(type->valueText(&parsed), "\"red\"");
   EXPECT_EQ(type->displayText(&parsed), "red");
   Kiv::unregisterTypeModule("L3");
}

} // namespace
} // namespace L3
