// Maps with a large table: against a naive oracle, with keys whose hashes collide and whose homes
// are at both ends of the table.
#include "Kiv/detail/LargeTable.h"

#include "House.h"
#include "Kiv/HashMap2018.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using House::Bulb;
using House::Clash;
using House::Counter;
using Kiv::NoReport;

using LargeMap = Kiv::HashMap2018<Pello::String, Bulb, &Bulb::name, 77, Kiv::TableKind::large>;
using LargeClashMap = Kiv::HashMap2018<Clash, Counter, &Counter::key, 1, Kiv::TableKind::large>;

// Slots whose hash is their number, so that a test chooses their homes.
struct Slot {
   U64 hash = 0;
   Counter::Ptr element;
};
struct SameHash {
   bool operator()(const Slot& a, const Slot& b) const { return a.hash == b.hash; }
};
using Table = Kiv::Detail::LargeTable<Slot, SameHash>;

class LargeTableTest : public House::NothingLeft {};

// Hashes near both ends, so that rows of slots reach over the end of the table; few, so that they
// meet.
U64 drawHash(std::mt19937& random) {
   constexpr U64 step = U64{1} << 58;
   const U64 hash = random() % 12 * step / 3;
   return random() % 2 == 0 ? hash : ~hash;
}

TEST_F(LargeTableTest, holdsWhatASetOfHashesHolds) {
   std::mt19937 random{20240229};
   for (int round = 0; round < 200; ++round) {
      Table table;
      std::map<U64, Counter::Ptr> oracle;
      for (int step = 0; step < 60; ++step) {
         const U64 hash = drawHash(random);
         const auto found = table.find(Slot{hash, nullptr});
         ASSERT_EQ(found != table.end(), oracle.contains(hash));
         if (found == table.end()) {
            const Counter::Ptr element{new Counter{Clash{}}};
            table.insert({hash, element});
            oracle.emplace(hash, element);
         } else {
            ASSERT_EQ(found->element, oracle.at(hash));
            table.erase(found);
            oracle.erase(hash);
         }
         ASSERT_EQ(table.size(), oracle.size());
         std::map<U64, Counter::Ptr> walked;
         for (auto at = table.begin(); at != table.end(); ++at) {
            walked.emplace(at->hash, at->element);
         }
         ASSERT_EQ(walked, oracle);
      }
   }
}

TEST_F(LargeTableTest, reservesExactlyFirstAndMoreLater) {
   Table table;
   EXPECT_EQ(table.max_load(), 0U);
   table.prefetch(1);
   for (const std::size_t count : {12U, 13U, 100U, 1'000'000U}) {
      Table exact;
      exact.reserve(count);
      EXPECT_GE(exact.max_load(), count);
      EXPECT_LE(exact.max_load(), count + 2);
      exact.prefetch(~U64{0});
   }
   table.reserve(1000);
   const std::size_t room = table.max_load();
   table.reserve(room); // no more than there is
   EXPECT_EQ(table.max_load(), room);
   table.reserve(room + 1);
   EXPECT_GE(table.max_load(), room + room / 2);
}

TEST_F(LargeTableTest, takesWithoutMovingWhatWasReserved) {
   Table table;
   table.reserve(1000);
   const std::size_t room = table.max_load();
   std::mt19937_64 random{1};
   for (std::size_t i = 0; i < room; ++i) {
      table.insert({random(), Counter::Ptr{new Counter{Clash{}}}});
   }
   EXPECT_EQ(table.max_load(), room);
   table.insert({random(), Counter::Ptr{new Counter{Clash{}}}});
   EXPECT_GT(table.max_load(), room);
   EXPECT_EQ(table.size(), room + 1);
}

TEST_F(LargeTableTest, movesAndIsEmptyAfterwards) {
   Table table;
   table.insert({7, Counter::Ptr{new Counter{Clash{}}}});
   Table other = std::move(table);
   EXPECT_EQ(other.size(), 1U);
   EXPECT_TRUE(table.empty()); // NOLINT(bugprone-use-after-move): that is what is tested
   EXPECT_TRUE(table.begin() == table.end());
   table.insert({8, Counter::Ptr{new Counter{Clash{}}}});
   other = std::move(table);
   EXPECT_TRUE(other.contains(Slot{8, nullptr}));
   EXPECT_FALSE(other.contains(Slot{7, nullptr}));
}

TEST_F(LargeTableTest, aMapHasTheSameInterface) {
   LargeMap map;
   std::string log;
   const auto report = [&](const Pello::String& key, const Bulb::Ptr* old) {
      log += (old == nullptr ? "+" : "-") + key.str() + " ";
   };
   const Bulb::Ptr a = map.is(report, "a");
   EXPECT_EQ(map.is(report, "a", U16{9}), a);
   const Pello::String b{"b"};
   const Kiv::KnownHash hash = map.expect(b);
   EXPECT_FALSE(map.has(b));
   EXPECT_EQ(map.is(report, b, hash, U16{9})->age(), 9U);
   EXPECT_EQ(map.is(report, b, map.expect(b)), map.get("b"));
   EXPECT_EQ(map.del(report, a->name()), a);
   EXPECT_EQ(map.del(report, "a"), nullptr);
   const Bulb::Ptr other{new Bulb{"b"}};
   map.put(report, other);
   EXPECT_EQ(map.get("b"), other);
   map.clear(report);
   EXPECT_TRUE(map.empty());
   EXPECT_EQ(log, "+a +b -a -b -b ");
   EXPECT_EQ(a->references(), 1U);
}

TEST_F(LargeTableTest, aMapWhoseKeysAllCollideStaysRight) {
   LargeClashMap map;
   std::map<U8, Counter::Ptr> oracle;
   std::mt19937 random{7};
   for (int step = 0; step < 3000; ++step) {
      const auto number = static_cast<U8>(random() % 40);
      if (random() % 3 == 0) {
         map.del(NoReport{}, Clash{number});
         oracle.erase(number);
      } else {
         oracle[number] = map.is(NoReport{}, Clash{number});
      }
      ASSERT_EQ(map.size(), oracle.size());
      for (U8 other = 0; other < 40; ++other) {
         const auto expected = oracle.find(other);
         ASSERT_EQ(map.get(Clash{other}), expected == oracle.end() ? nullptr : expected->second);
      }
   }
}

} // namespace
