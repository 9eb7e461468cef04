// `PrefixTree` against a search of all prefixes, with prefixes that lie in each other, and its
// bound on memory.
#include "postcard/classifier/PrefixTree.h"

#include "postcard/classifier/RandomPackets.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using namespace RulesClientTest;
using Postcard::Classifier::agree;
using Postcard::Classifier::Bits;
using Postcard::Classifier::firstOf64;
using Postcard::Classifier::Prefix;
using Postcard::Classifier::PrefixTree;
using Labels = std::map<Prefix, U32>;

constexpr U32 none = 1'000'000;

PrefixTree treeOf(const Labels& labels) {
   std::vector<PrefixTree::Labelled> labelled;
   for (const auto& [prefix, label] : labels) {
      labelled.push_back({prefix, label});
   }
   return PrefixTree{labelled, none};
}

U32 longest(const Labels& labels, Bits value) {
   U32 label = none;
   int length = -1;
   for (const auto& [prefix, each] : labels) {
      if (prefix.contains(value) && prefix.length > length) {
         length = prefix.length;
         label = each;
      }
   }
   return label;
}

// Values that differ in few places, so that many prefixes lie in others.
Bits someValue(Random& random, U64 places) {
   return {random() & places, random() & places};
}

Prefix somePrefix(Random& random, U64 places, unsigned width) {
   const auto length = static_cast<unsigned>(random() % (width + 1));
   const Bits value = someValue(random, places);
   return {{value.high & firstOf64(std::min(length, 64U)),
            value.low & firstOf64(length > 64 ? length - 64 : 0)},
           static_cast<U8>(length)};
}

TEST(PrefixTree, theLongestPrefixIsFound) {
   Random random{31};
   for (const U64 places :
        {U64{0x8000000000000001}, U64{0x0f00000f000000f0}, U64{0xffff000000000000}, ~U64{0}}) {
      for (const unsigned width : {8U, 16U, 32U, 64U, 65U, 128U}) {
         for (const std::size_t count : {0U, 1U, 3U, 4U, 30U, 1000U}) {
            Labels labels;
            while (labels.size() < count && random() % 5000 != 0) {
               labels.emplace(somePrefix(random, places, width), labels.size());
            }
            const PrefixTree tree = treeOf(labels);
            EXPECT_LE(tree.bytes(), 192 * labels.size());
            for (int i = 0; i < 100; ++i) {
               const Bits value = someValue(random, places);
               ASSERT_EQ(tree.find(value), longest(labels, value)) << width << ' ' << count;
            }
         }
      }
   }
}

// A prefix of every length inside the one before, and as many beside each.
TEST(PrefixTree, everyLengthOfOnePath) {
   const Bits path{0xa5c3'0ff0'1234'8001, 0x0f1e'2d3c'4b5a'6978};
   Labels labels;
   for (unsigned length = 0; length <= 128; ++length) {
      const Bits mask{firstOf64(std::min(length, 64U)), firstOf64(length > 64 ? length - 64 : 0)};
      labels.emplace(Prefix{{path.high & mask.high, path.low & mask.low}, static_cast<U8>(length)},
                     length);
   }
   const PrefixTree tree = treeOf(labels);
   EXPECT_LE(tree.bytes(), 192 * labels.size());
   EXPECT_EQ(tree.find(path), 128U);
   for (unsigned bit = 0; bit < 128; ++bit) {
      Bits other = path;
      (bit < 64 ? other.high : other.low) ^= U64{1} << (63 - bit % 64);
      EXPECT_EQ(tree.find(other), bit);
   }
}

TEST(PrefixTree, allPortsAreATable) {
   Labels labels;
   for (U32 port = 0; port <= 0xffff; ++port) {
      labels.emplace(Prefix{Postcard::Classifier::highestFirst(static_cast<U16>(port)), 16}, port);
   }
   const PrefixTree tree = treeOf(labels);
   EXPECT_LE(tree.bytes(), 2 * 4 * 65'536U);
   for (U32 port = 0; port <= 0xffff; ++port) {
      ASSERT_EQ(tree.find(Postcard::Classifier::highestFirst(static_cast<U16>(port))), port);
   }
}

} // namespace
