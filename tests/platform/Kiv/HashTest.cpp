// The hash functions: what they depend on, and what not; the process's clock beside them.
#include "Kiv/Hash.h"

#include "Kiv/System.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <set>
#include <string>

namespace {

using Kiv::hashNumber;
using Kiv::HashState;
using Kiv::hashString;

static_assert(hashNumber(1, 2) == hashNumber(1, 2));
static_assert(HashState{5}.result() == 5);
static_assert(HashState{5}.mix(1).result() == hashNumber(1, 5));

TEST(Hash, dependsOnEveryByteAndTheSeed) {
   const std::set<U64> hashes{
         hashString("", 0),  hashString("", 1),  hashString("a", 0),
         hashString("a", 1), hashString("b", 0), hashString(std::string_view{"a\0", 2}, 0),
   };
   EXPECT_EQ(hashes.size(), 6U);
   EXPECT_EQ(hashString("rule", 7), Kiv::hashBytes("rule", 4, 7));
   EXPECT_EQ(Kiv::hashBytes(nullptr, 0, 3), hashString("", 3));
}

TEST(Hash, numbersNearEachOtherAreFarApart) {
   std::set<U64> hashes;
   for (U64 number = 0; number < 100; ++number) {
      for (U64 seed = 0; seed < 100; ++seed) {
         hashes.insert(hashNumber(number, seed));
      }
   }
   EXPECT_EQ(hashes.size(), 10'000U);
}

// The tables use the low bits for one thing and the high bits for another.
TEST(Hash, oneInputBitTurnsAboutHalfOfTheOutput) {
   for (unsigned bit = 0; bit < 64; ++bit) {
      int turned = 0;
      for (U64 number = 0; number < 64; ++number) {
         const U64 other = number ^ (U64{1} << bit);
         turned += __builtin_popcountll(hashNumber(number, 0) ^ hashNumber(other, 0));
      }
      EXPECT_GT(turned, 64 * 26) << bit;
      EXPECT_LT(turned, 64 * 38) << bit;
   }
}

TEST(HashState, orderCounts) {
   const U64 ab = HashState{1}.mix(10).mix(20).result();
   const U64 ba = HashState{1}.mix(20).mix(10).result();
   EXPECT_NE(ab, ba);
   EXPECT_NE(ab, HashState{2}.mix(10).mix(20).result());
   EXPECT_NE(ab, HashState{1}.mix(10).result());
   EXPECT_EQ(ab, HashState{1}.mix(10).mix(20).result());
}

TEST(Hash, theProcessSeedStays) {
   const U64 seed = Kiv::processHashSeed();
   Kiv::processHashSeedIs(seed + 1); // too late
   EXPECT_EQ(Kiv::processHashSeed(), seed);
}

// Each call runs in a process of its own, which says its seed in its exit code.
[[noreturn]] void leaveWithSeed(bool fixed) {
   if (fixed) {
      Kiv::processHashSeedIs(42);
   }
   std::_Exit(Kiv::processHashSeed() == 42 ? 42 : 0);
}

TEST(HashDeathTest, theProcessSeedCanBeFixedBeforeItIsUsed) {
   testing::GTEST_FLAG(death_test_style) = "threadsafe"; // a fork would inherit a drawn seed
   EXPECT_EXIT(leaveWithSeed(true), testing::ExitedWithCode(42), "");
   EXPECT_EXIT(leaveWithSeed(false), testing::ExitedWithCode(0), "");
}

TEST(System, theClockIsTheWallClockInSeconds) {
   const auto seconds = [] {
      const auto now = std::chrono::system_clock::now().time_since_epoch();
      return std::chrono::duration<double>(now).count();
   };
   const double before = seconds();
   const double now = Kiv::System::currentTime();
   EXPECT_LE(before, now);
   EXPECT_LE(now, seconds());
}

} // namespace
