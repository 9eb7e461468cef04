// `Orlix::IntfId`: one number per name for ever; text, order, hash, threads.
#include "Orlix/IntfId.h"

#include "Kiv/Format.h"
#include "Pello/ThreadSafety.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace Orlix {
namespace {

static_assert(sizeof(IntfId) == 4);
static_assert(std::is_trivially_copyable_v<IntfId>);
static_assert(Kiv::TextualValue<IntfId>);
static_assert(IntfId{}.number() == 0);

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

std::string streamed(IntfId intf) {
   std::ostringstream out;
   out << intf;
   return out.str();
}

TEST(IntfId, defaultIsNoInterface) {
   EXPECT_EQ(IntfId{}, IntfId{""});
   EXPECT_EQ(IntfId{""}.number(), 0U);
   EXPECT_EQ(IntfId{}.stringValue(), "");
   EXPECT_EQ(Kiv::valueText(IntfId{}), "\"\"");
   EXPECT_EQ(Kiv::parseValue<IntfId>("\"\""), IntfId{});
}

TEST(IntfId, isMadeOfAnyKindOfText) {
   const IntfId fromLiteral{"Ethernet1"};
   EXPECT_EQ(fromLiteral, IntfId{std::string{"Ethernet1"}});
   EXPECT_EQ(fromLiteral, IntfId{Pello::String{"Ethernet1"}});
   EXPECT_EQ(fromLiteral, IntfId{std::string_view{"Ethernet12"}.substr(0, 9)});
   EXPECT_NE(fromLiteral, IntfId{"ethernet1"});
}

TEST(IntfId, isShownBareOrQuoted) {
   const IntfId intf{"Ethernet1/1"};
   EXPECT_EQ(streamed(intf), "Ethernet1/1");
   EXPECT_EQ(fmt::format("{:>12}", intf), " Ethernet1/1");
   EXPECT_EQ(Kiv::valueText(intf), "\"Ethernet1/1\"");
}

TEST(IntfId, isOrderedByFirstMention) {
   const IntfId second{"IntfIdTest-z"};
   const IntfId third{"IntfIdTest-a"};
   EXPECT_LT(IntfId{}, second);
   EXPECT_LT(second, third);
   EXPECT_EQ(third.number(), second.number() + 1);
   EXPECT_EQ(IntfId{"IntfIdTest-z"} <=> second, std::strong_ordering::equal);
}

TEST(IntfId, nameStaysWhereItIs) {
   const IntfId intf{"IntfIdTest-stays"};
   const Pello::String& name = intf.stringValue();
   for (int index = 0; index < 10'000; ++index) {
      const IntfId other{"IntfIdTest-" + std::to_string(index)};
      ASSERT_NE(other, intf);
   }
   EXPECT_EQ(&name, &IntfId{"IntfIdTest-stays"}.stringValue());
   EXPECT_EQ(name, "IntfIdTest-stays");
}

RC_GTEST_PROP(IntfId, keepsEveryText, ()) {
   const auto text = *hostileText();
   const IntfId intf{text};
   RC_ASSERT(intf.stringValue().str() == text);
   RC_ASSERT(streamed(intf) == text);
   RC_ASSERT(Kiv::parseValue<IntfId>(Kiv::valueText(intf)) == intf);
}

// Against a table that is searched by name every time.
RC_GTEST_PROP(IntfId, hasOneNumberPerText, ()) {
   static std::map<std::string, U32> seen{{"", 0}};
   const auto text = *hostileText();
   const U32 number = IntfId{text}.number();
   const auto [at, isNew] = seen.emplace(text, number);
   RC_ASSERT(at->second == number);
   for (const auto& [name, known] : seen) {
      RC_ASSERT((name == text) == (known == number));
   }
}

RC_GTEST_PROP(IntfId, hashesEqualWhenEqual, ()) {
   const IntfId a{*hostileText()};
   const IntfId b{*hostileText()};
   const auto seed = *rc::gen::inRange<U64>(0, 3);
   RC_ASSERT((a.hash(seed) == b.hash(seed)) == (a == b));
   RC_ASSERT(Kiv::hashOf(a, seed) == Kiv::hashNumber(a.number(), seed));
}

std::vector<U32> numbersOf(int names) {
   std::vector<U32> numbers;
   for (int index = 0; index < names; ++index) {
      const IntfId intf{"IntfIdTest-thread-" + std::to_string(index)};
      if (intf.stringValue().str() != "IntfIdTest-thread-" + std::to_string(index)) {
         return {};
      }
      numbers.push_back(intf.number());
   }
   return numbers;
}

TEST(IntfId, threadsAgreeOnNumbers) {
   Pello::threadSafeIs(true);
   std::vector<std::vector<U32>> numbers(4);
   {
      std::vector<std::jthread> threads;
      threads.reserve(numbers.size());
      for (auto& mine : numbers) {
         threads.emplace_back([&mine] { mine = numbersOf(2000); });
      }
   }
   Pello::threadSafeIs(false);
   EXPECT_EQ(numbers[0].size(), 2000U);
   for (const auto& mine : numbers) {
      EXPECT_EQ(mine, numbers[0]);
   }
}

} // namespace
} // namespace Orlix
