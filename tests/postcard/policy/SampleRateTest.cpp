// The rate of a sample match, counted by trying every value of the field.
#include "postcard/policy/SampleRate.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <rapidcheck.h>

namespace Postcard::Policy {
namespace {

// How many of the 65,536 values of the field the match chooses.
U32 chosenBy(const SampleMatch& match) {
   U32 chosen = 0;
   for (U32 value = 0; value < 65536; ++value) {
      chosen += (value & match.mask) == match.data ? 1 : 0;
   }
   return chosen;
}

TEST(SampleRate, everyRateThatCanBeHad) {
   for (U32 rate = leastSampleRate; rate <= greatestSampleRate; rate *= 2) {
      ASSERT_TRUE(isSampleRate(rate)) << rate;
      const SampleMatch match = sampleOfRate(rate);
      EXPECT_EQ(sampleRate(match), rate);
      EXPECT_EQ(chosenBy(match), 65536 / rate) << rate;
      EXPECT_EQ(match.data, 1) << rate;
      EXPECT_EQ(match.mask, rate - 1) << rate;
      EXPECT_EQ(match.field, SampleField::checksum) << rate;
      EXPECT_FALSE(choosesZeroChecksums(match)) << rate;
   }
}

TEST(SampleRate, ratesThatCannotBeHad) {
   const struct {
      U64 rate;
      const char* nearest;
   } rows[] = {{0, "nearest: 2"},
               {1, "nearest: 2"},
               {3, "nearest: 2 and 4"},
               {100, "nearest: 64 and 128"},
               {65535, "nearest: 32768 and 65536"},
               {65537, "nearest: 65536"},
               {131072, "nearest: 65536"},
               {~U64{0}, "nearest: 65536"}};
   for (const auto& row : rows) {
      EXPECT_FALSE(isSampleRate(row.rate)) << row.rate;
      EXPECT_EQ(nearestSampleRates(row.rate), row.nearest) << row.rate;
   }
}

RC_GTEST_PROP(SampleRate, isThatOfAnyMask, ()) {
   SampleMatch match;
   match.mask = *rc::gen::element<U16>(1, 2, 3, 5, 0x8000, 0xf0f0, 0xff, 0xfffe, 0xffff);
   match.data = *rc::gen::arbitrary<U16>() & match.mask;
   RC_ASSERT(chosenBy(match) * sampleRate(match) == 65536U);
}

TEST(SampleRate, zeroChecksums) {
   EXPECT_TRUE(choosesZeroChecksums({0, 0xff, SampleField::checksum, {}}));
   EXPECT_FALSE(choosesZeroChecksums({1, 0xff, SampleField::checksum, {}}));
   EXPECT_FALSE(choosesZeroChecksums({0, 0xff, SampleField::ipId, {}}));
}

} // namespace
} // namespace Postcard::Policy
