// `Orlix::RangeMaskGen`: examples, every range of eight bits, drawn ranges of sixteen.
#include "Orlix/RangeMaskGen.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <ostream>
#include <vector>

namespace Orlix {

template <class Entry>
   requires requires(const Entry& entry) { entry.data, entry.end, entry.mask; }
void PrintTo(const Entry& entry, std::ostream* out) {
   *out << '(' << +entry.data << ", " << +entry.end << ", " << +entry.mask << ')';
}

namespace {

template <class T>
using Entries = std::vector<typename RangeMaskGen<T>::Entry>;

template <class T>
constexpr Entries<T> cut(T low, T high) {
   Entries<T> out;
   RangeMaskGen<T>::run(low, high, out);
   return out;
}

constexpr auto cut16 = cut<U16>;

static_assert(RangeMaskGen<U16>::getMaskBits(0, 0xffff) == 16);
static_assert(cut16(1, 65534).size() == 30);

struct Example {
   U16 low;
   U16 high;
   Entries<U16> blocks;
};

TEST(RangeMaskGen, cutsTheExamples) {
   const std::vector<Example> examples{
         {1,
          10,
          {{1, 1, 0xffff}, {2, 3, 0xfffe}, {4, 7, 0xfffc}, {8, 9, 0xfffe}, {10, 10, 0xffff}}},
         {1024,
          65535,
          {{0x400, 0x7ff, 0xfc00},
           {0x800, 0xfff, 0xf800},
           {0x1000, 0x1fff, 0xf000},
           {0x2000, 0x3fff, 0xe000},
           {0x4000, 0x7fff, 0xc000},
           {0x8000, 0xffff, 0x8000}}},
         {0, 65535, {{0, 0xffff, 0}}},
         {80, 80, {{0x50, 0x50, 0xffff}}},
         {0, 0, {{0, 0, 0xffff}}},
         {65535, 65535, {{0xffff, 0xffff, 0xffff}}},
         {65533, 65535, {{0xfffd, 0xfffd, 0xffff}, {0xfffe, 0xffff, 0xfffe}}},
         {0, 65534, cut16(0, 65534)},
         {8000, 8999, cut16(8000, 8999)},
         {11, 10, {}},
         {65535, 0, {}},
   };
   for (const auto& [low, high, blocks] : examples) {
      EXPECT_EQ(cut16(low, high), blocks) << low << '-' << high;
   }
}

TEST(RangeMaskGen, countsOfBlocks) {
   EXPECT_EQ(cut16(1, 65534).size(), 30U);
   EXPECT_EQ(cut16(0, 65534).size(), 16U);
   EXPECT_EQ(cut16(1, 65535).size(), 16U);
   EXPECT_EQ(cut<U32>(1, 0xffff'fffe).size(), 62U);
   EXPECT_EQ(cut<U32>(0, 0xffff'ffff), (Entries<U32>{{0, 0xffff'ffff, 0}}));
}

TEST(RangeMaskGen, appendsWithoutClearing) {
   Entries<U16> out{{1, 2, 3}};
   RangeMaskGen<U16>::run(4, 5, out);
   RangeMaskGen<U16>::run(5, 4, out);
   RangeMaskGen<U16>::run(4, 4, out);
   EXPECT_EQ(out, (Entries<U16>{{1, 2, 3}, {4, 5, 0xfffe}, {4, 4, 0xffff}}));
}

struct Bits {
   U16 low;
   U16 high;
   unsigned int bits;
};

TEST(RangeMaskGen, maskBitsOfTheFirstBlock) {
   for (const auto& [low, high, bits] : {
              Bits{0, 0xffff, 16},
              Bits{0, 0xfffe, 15},
              Bits{0, 0, 0},
              Bits{1, 0xffff, 0},
              Bits{0x400, 0xffff, 10},
              Bits{0x8000, 0xffff, 15},
              Bits{0x8000, 0xfffe, 14},
              Bits{0xffff, 0xffff, 0},
              Bits{8, 9, 1},
              Bits{8, 7, 0},
              Bits{0xffff, 0, 0},
        }) {
      EXPECT_EQ(RangeMaskGen<U16>::getMaskBits(low, high), bits) << low << '-' << high;
   }
}

// The rule itself, tried from the largest size down.
template <class T>
unsigned int slowMaskBits(U64 low, U64 high) {
   unsigned int bits = 8 * sizeof(T);
   while (bits > 0 && (low % (U64{1} << bits) != 0 || low + (U64{1} << bits) - 1 > high)) {
      --bits;
   }
   return bits;
}

template <class T>
Entries<T> slowCut(U64 low, U64 high) {
   Entries<T> out;
   for (U64 next = low; next <= high;) {
      const U64 size = U64{1} << slowMaskBits<T>(next, high);
      const U64 all = (U64{1} << (8 * sizeof(T))) - 1;
      out.push_back({static_cast<T>(next), static_cast<T>(next + size - 1),
                     static_cast<T>(all - (size - 1))});
      next += size;
   }
   return out;
}

// Every value of `T` matches exactly one block when it is in the range, and else none.
template <class T>
bool matchesExactly(const Entries<T>& blocks, U64 low, U64 high) {
   for (U64 value = 0; value < (U64{1} << (8 * sizeof(T))); ++value) {
      unsigned matches = 0;
      for (const auto& block : blocks) {
         matches += (value & block.mask) == block.data ? 1 : 0;
      }
      if (matches != (value >= low && value <= high ? 1U : 0U)) {
         return false;
      }
   }
   return true;
}

template <class T>
bool ascends(const Entries<T>& blocks) {
   for (std::size_t index = 1; index < blocks.size(); ++index) {
      if (blocks[index].data != blocks[index - 1].end + 1) {
         return false;
      }
   }
   return true;
}

TEST(RangeMaskGen, everyRangeOfEightBitsAsTheRuleSays) {
   unsigned ranges = 0;
   for (unsigned low = 0; low <= 255; ++low) {
      for (unsigned high = low; high <= 255; ++high, ++ranges) {
         const auto blocks = cut(static_cast<U8>(low), static_cast<U8>(high));
         ASSERT_EQ(blocks, slowCut<U8>(low, high)) << low << '-' << high;
         ASSERT_TRUE(matchesExactly<U8>(blocks, low, high)) << low << '-' << high;
         ASSERT_TRUE(ascends<U8>(blocks)) << low << '-' << high;
         ASSERT_EQ(RangeMaskGen<U8>::getMaskBits(static_cast<U8>(low), static_cast<U8>(high)),
                   slowMaskBits<U8>(low, high));
      }
   }
   EXPECT_EQ(ranges, 32'896U);
}

// The fewest aligned blocks from each value up to `high`, by trying every first block.
std::array<unsigned, 257> fewestBlocks(unsigned high) {
   std::array<unsigned, 257> fewest;
   fewest.fill(0);
   for (unsigned low = high + 1; low-- > 0;) {
      fewest[low] = 256;
      for (unsigned size = 1; low % size == 0 && low + size - 1 <= high; size *= 2) {
         fewest[low] = std::min(fewest[low], 1 + fewest[low + size]);
      }
   }
   return fewest;
}

TEST(RangeMaskGen, noCutOfEightBitsHasFewerBlocks) {
   for (unsigned high = 0; high <= 255; ++high) {
      const auto fewest = fewestBlocks(high);
      for (unsigned low = 0; low <= high; ++low) {
         ASSERT_EQ(cut(static_cast<U8>(low), static_cast<U8>(high)).size(), fewest[low])
               << low << '-' << high;
      }
   }
}

TEST(RangeMaskGen, reversedRangesOfEightBitsGiveNothing) {
   for (unsigned low = 1; low <= 255; ++low) {
      for (unsigned high = 0; high < low; ++high) {
         ASSERT_TRUE(cut(static_cast<U8>(low), static_cast<U8>(high)).empty());
         ASSERT_EQ(RangeMaskGen<U8>::getMaskBits(static_cast<U8>(low), static_cast<U8>(high)), 0U);
      }
   }
}

// Mostly values at and beside powers of two, where blocks begin and end.
rc::Gen<U16> drawPort() {
   const auto beside = rc::gen::map(rc::gen::pair(rc::gen::inRange(0, 17), rc::gen::inRange(-2, 3)),
                                    [](const std::pair<int, int>& at) {
                                       return static_cast<U16>((1 << at.first) + at.second);
                                    });
   return rc::gen::weightedOneOf<U16>({{3, beside}, {1, rc::gen::arbitrary<U16>()}});
}

RC_GTEST_PROP(RangeMaskGen, drawnRangesOfSixteenBitsAsTheRuleSays, ()) {
   const auto low = *drawPort();
   const auto high = *drawPort();
   const auto blocks = cut16(low, high);
   RC_ASSERT((blocks == slowCut<U16>(low, high)));
   RC_ASSERT(ascends<U16>(blocks));
   RC_ASSERT(matchesExactly<U16>(blocks, low, high));
}

TEST(RangeMaskGenDeathTest, moreBitsThanTheTypeHas) {
   EXPECT_EQ(Detail::checkedMaskBits<U8>(8), 8U);
   EXPECT_EQ(Detail::checkedMaskBits<U16>(16), 16U);
   EXPECT_DEATH(Detail::checkedMaskBits<U8>(9),
                "^Orlix/RangeMaskGen:[0-9]+: unsigned int Orlix::RangeMaskGen::getMaskBits"
                "\\( T, T \\): Assertion 'mask <= 8 \\* sizeof\\( T \\)' failed\n");
   EXPECT_DEATH(Detail::checkedMaskBits<U16>(17), "Assertion 'mask <= 8 \\* sizeof\\( T \\)'");
}

} // namespace
} // namespace Orlix
