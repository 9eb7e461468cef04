// The hash collections, against naive oracles and while they change under a reporter.
#include "Kiv/HashMap2018.h"

#include "House.h"
#include "Kiv/detail/ByteSet.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using House::Bulb;
using House::Clash;
using House::Clinging;
using House::Counter;
using House::Edge;
using Kiv::HashSet2018;
using Kiv::NoReport;

using BulbMap = Kiv::HashMap2018<Pello::String, Bulb, &Bulb::name, 77>;
using ClashMap = Kiv::HashMap2018<Clash, Counter, &Counter::key, 1>;

class HashMap2018Test : public House::NothingLeft {
 protected:
   // Writes down what a map reports: `+key` and `-key`.
   auto reporter() {
      return [this](const Pello::String& key, const Pello::Ptr<Bulb>* old) {
         log += (old == nullptr ? "+" : "-") + key.str() + " ";
      };
   }
   std::string log;
   BulbMap map;
};

TEST_F(HashMap2018Test, instantiatesOnceAndNeverReplaces) {
   const Bulb::Ptr a = map.is(reporter(), "a");
   a->ageIs(4);
   EXPECT_EQ(map.is(reporter(), "a"), a);
   EXPECT_EQ(map.is(reporter(), "a", U16{9}), a);
   EXPECT_EQ(a->age(), 4U);
   EXPECT_EQ(map.is(reporter(), "b", U16{9})->age(), 9U);
   EXPECT_EQ(map.size(), 2U);
   EXPECT_EQ(log, "+a +b ");
}

TEST_F(HashMap2018Test, anAbsentKeyYieldsNullAndDeletesNothing) {
   EXPECT_EQ(map.get("a"), nullptr);
   EXPECT_FALSE(map.has("a"));
   EXPECT_EQ(map.del(reporter(), "a"), nullptr);
   map.clear(reporter());
   EXPECT_EQ(log, "");
   EXPECT_TRUE(map.empty());
   EXPECT_TRUE(map.begin() == map.end());
}

TEST_F(HashMap2018Test, handsTheRemovedElementOver) {
   const Bulb::Ptr a = map.is(NoReport{}, "a");
   EXPECT_EQ(map.del(reporter(), a->name()), a);
   EXPECT_EQ(a->references(), 1U);
   EXPECT_EQ(log, "-a ");
}

TEST_F(HashMap2018Test, aRemovedElementLivesWhileItIsReported) {
   map.is(NoReport{}, "a");
   const U64 before = Bulb::memAllocationTracker_.live();
   map.del(
         [&](const Pello::String& key, const Pello::Ptr<Bulb>* old) {
            EXPECT_EQ(Bulb::memAllocationTracker_.live(), before);
            EXPECT_EQ((*old)->name(), key);
            EXPECT_FALSE(map.has(key));
         },
         "a");
   EXPECT_EQ(Bulb::memAllocationTracker_.live(), before - 1);
}

TEST_F(HashMap2018Test, anEntryCanBeTakenApart) {
   map.is(NoReport{}, "a");
   map.is(NoReport{}, "b");
   std::set<std::string> names;
   for (auto& [name, bulb] : map) {
      static_assert(std::is_same_v<decltype(name), const Pello::String>);
      static_assert(std::is_same_v<decltype(bulb), const Bulb::Ptr>);
      EXPECT_EQ(bulb, map.get(name));
      names.insert(name);
   }
   EXPECT_EQ(names, (std::set<std::string>{"a", "b"}));
   auto at = map.begin();
   const auto before = at++;
   EXPECT_EQ(before, map.begin());
   EXPECT_NE(at->name(), before->name());
   EXPECT_EQ(++at, map.end());
}

TEST_F(HashMap2018Test, iterationReachesEachElementOnce) {
   std::set<std::string> names;
   for (const std::string name : {"a", "b", "c"}) {
      map.is(NoReport{}, name);
   }
   for (const auto& at : map) {
      EXPECT_EQ(at.key(), at->name());
      EXPECT_EQ(at.value(), map.get(at.key()));
      EXPECT_TRUE(names.insert(at.key().str()).second);
   }
   EXPECT_EQ(names, (std::set<std::string>{"a", "b", "c"}));
}

TEST_F(HashMap2018Test, clearReportsElementByElement) {
   for (const std::string name : {"a", "b", "c"}) {
      map.is(NoReport{}, name);
   }
   std::set<std::pair<std::string, std::size_t>> reported;
   map.clear([&](const Pello::String& key, const Pello::Ptr<Bulb>* old) {
      ASSERT_NE(old, nullptr);
      reported.emplace(key.str(), 3 - reported.size());
      EXPECT_EQ(map.size(), 3 - reported.size());
   });
   EXPECT_EQ(reported.size(), 3U);
   EXPECT_TRUE(map.empty());
}

TEST_F(HashMap2018Test, clearSurvivesAReporterThatRemovesAndAdds) {
   for (const std::string name : {"a", "b", "c", "d"}) {
      map.is(NoReport{}, name);
   }
   bool added = false;
   int removals = 0;
   map.clear([&](const Pello::String&, const Pello::Ptr<Bulb>*) {
      ++removals;
      map.del(NoReport{}, "b");
      map.del(NoReport{}, "c");
      if (!std::exchange(added, true)) {
         map.is(NoReport{}, "late");
      }
   });
   EXPECT_TRUE(map.empty());
   EXPECT_GE(removals, 3);
}

TEST_F(HashMap2018Test, aReporterMayRemoveWhatWasJustAdded) {
   const Bulb::Ptr made = map.is(
         [&](const Pello::String& key, const Pello::Ptr<Bulb>* old) {
            if (old == nullptr) {
               map.del(NoReport{}, key);
            }
         },
         "a");
   EXPECT_EQ(made->name(), "a");
   EXPECT_TRUE(map.empty());
}

TEST_F(HashMap2018Test, elementsMayReachTheMapWhenTheyGo) {
   Clinging::Map clinging;
   for (U32 key = 0; key < 8; ++key) {
      clinging.is(NoReport{}, key, clinging);
   }
   clinging.clear(NoReport{});
   EXPECT_TRUE(clinging.empty());
}

// Clearing must not cost the square of the size; with a square this takes minutes.
TEST_F(HashMap2018Test, clearingAMillionIsLinear) {
   using Numbers = HashSet2018<U32, 1>;
   for (const bool watched : {false, true}) {
      Numbers numbers;
      for (U32 number = 0; number < 1'000'000; ++number) {
         numbers.is(NoReport{}, number);
      }
      std::size_t reported = 0;
      const auto begin = std::chrono::steady_clock::now();
      if (watched) {
         numbers.clear([&](U32, const U32*) { ++reported; });
      } else {
         numbers.clear(NoReport{});
      }
      EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{20});
      EXPECT_EQ(reported, watched ? 1'000'000U : 0U);
      EXPECT_TRUE(numbers.empty());
   }
}

TEST_F(HashMap2018Test, reservedRoomChangesNothingElse) {
   map.reserve(1000);
   EXPECT_TRUE(map.empty());
   const Bulb::Ptr a = map.is(reporter(), "a");
   EXPECT_EQ(map.get("a"), a);
}

// One step: what to do, with which key.
using Steps = std::vector<std::pair<int, U8>>;

rc::Gen<Steps> someSteps() {
   return rc::gen::container<Steps>(
         rc::gen::pair(rc::gen::inRange(0, 8), rc::gen::inRange<U8>(0, 12)));
}

// Keys of two hashes only: nearly every look-up passes others of the same hash.
RC_GTEST_PROP(HashMapProperty, behavesLikeAMapWhenHashesCollide, ()) {
   const Steps steps = *someSteps();
   ClashMap map;
   std::map<Clash, Counter::Ptr> oracle;
   std::vector<std::pair<Clash, bool>> reports;
   std::vector<std::pair<Clash, bool>> expected;
   const auto report = [&](const Clash& key, const Counter::Ptr* old) {
      reports.emplace_back(key, old == nullptr);
   };
   for (const auto& [step, number] : steps) {
      const Clash key{number};
      if (step < 4) {
         const Counter::Ptr made = map.is(report, key);
         if (oracle.emplace(key, made).second) {
            expected.emplace_back(key, true);
         }
         RC_ASSERT(made == oracle[key]);
      } else if (step < 7) {
         const bool there = oracle.contains(key);
         const Counter::Ptr removed = map.del(report, key);
         RC_ASSERT(removed == (there ? oracle[key] : Counter::Ptr{}));
         oracle.erase(key);
         if (there) {
            expected.emplace_back(key, false);
         }
      } else if (number == 0) {
         map.clear(NoReport{});
         oracle.clear();
      }
      RC_ASSERT(map.size() == oracle.size());
      RC_ASSERT(map.has(key) == oracle.contains(key));
   }
   RC_ASSERT(reports == expected);
   std::map<Clash, Counter::Ptr> content;
   for (const auto& at : map) {
      RC_ASSERT(content.emplace(at.key(), at.value()).second);
   }
   RC_ASSERT(content == oracle);
}

// Runs `steps` on a set and on its oracle; `valueOf` makes a member of a number.
template <class Set, class ValueOf>
void compareSets(const Steps& steps, ValueOf valueOf) {
   using Value = typename Set::Key;
   Set set;
   std::set<Value> oracle;
   std::size_t reports = 0;
   std::size_t expected = 0;
   const auto report = [&](const Value& value, const Value* old) {
      RC_ASSERT((old == nullptr || *old == value));
      RC_ASSERT(set.has(value) == (old == nullptr));
      ++reports;
   };
   for (const auto& [step, number] : steps) {
      const Value value = valueOf(number);
      if (step < 4) {
         set.is(report, value);
         expected += oracle.insert(value).second ? 1U : 0U;
      } else if (step < 7) {
         set.del(report, value);
         expected += oracle.erase(value);
      } else if (number == 0) {
         set.clear(report);
         expected += oracle.size();
         oracle.clear();
      }
      RC_ASSERT(set.size() == oracle.size());
      RC_ASSERT(set.empty() == oracle.empty());
      RC_ASSERT(set.get(value) == oracle.contains(value));
   }
   RC_ASSERT(reports == expected);
   std::set<Value> content;
   for (const Value& value : set) {
      RC_ASSERT(content.insert(value).second);
   }
   RC_ASSERT(content == oracle);
}

RC_GTEST_PROP(HashSetProperty, ofCollidingValuesBehavesLikeASet, ()) {
   compareSets<HashSet2018<Clash, 1>>(*someSteps(), [](U8 number) { return Clash{number}; });
}

RC_GTEST_PROP(HashSetProperty, ofTextBehavesLikeASet, ()) {
   compareSets<HashSet2018<Pello::String, 5, true>>(
         *someSteps(), [](U8 number) { return Pello::String{std::string(number, 'x')}; });
}

RC_GTEST_PROP(HashSetProperty, ofEnumeratorsBehavesLikeASet, ()) {
   compareSets<HashSet2018<Edge, 1>>(*someSteps(),
                                     [](U8 number) { return static_cast<Edge>(number * 5); });
}

static_assert(sizeof(HashSet2018<Edge, 1>) == sizeof(U64) + sizeof(void*),
              "a set of enumerators is one word, and where the large numbers are");

// In an order in which every number comes once, small and large ones mixed.
U8 mixed(U32 number) {
   return static_cast<U8>(number * 89);
}

TEST(HashSet2018Test, ofEnumeratorsHoldsEveryNumberOfAByte) {
   HashSet2018<Edge, 1> set;
   for (U32 count = 0; count < 256; ++count) {
      const auto edge = static_cast<Edge>(mixed(count));
      EXPECT_FALSE(set.has(edge)) << count;
      set.is(NoReport{}, edge);
      set.is(NoReport{}, edge);
      EXPECT_TRUE(set.has(edge)) << count;
      ASSERT_EQ(set.size(), count + 1);
   }
   U32 expected = 0;
   for (const Edge edge : set) {
      EXPECT_EQ(static_cast<U32>(edge), expected++);
   }
   EXPECT_EQ(expected, 256U);
   for (U32 count = 256; count > 0; --count) {
      const auto edge = static_cast<Edge>(mixed(count * 3));
      set.del(NoReport{}, edge);
      set.del(NoReport{}, edge);
      EXPECT_FALSE(set.has(edge)) << count;
      ASSERT_EQ(set.size(), count - 1);
   }
}

TEST(HashSet2018Test, ofEnumeratorsIsCopiedAndClearedWithLargeNumbersToo) {
   HashSet2018<Edge, 1> set;
   for (const Edge edge : {Edge::first, Edge::last, Edge::outside, Edge::top}) {
      set.is(NoReport{}, edge);
   }
   HashSet2018<Edge, 1> copy = set;
   set.clear(NoReport{});
   EXPECT_TRUE(set.empty());
   EXPECT_FALSE(set.has(Edge::top));
   EXPECT_EQ(copy.size(), 4U);
   EXPECT_TRUE(copy.has(Edge::top) && copy.has(Edge::first));
   set = std::move(copy);
   EXPECT_EQ(std::vector<Edge>(set.begin(), set.end()),
             (std::vector<Edge>{Edge::first, Edge::last, Edge::outside, Edge::top}));
}

RC_GTEST_PROP(ByteSetProperty, behavesLikeASet, ()) {
   const auto steps = *rc::gen::container<std::vector<std::pair<int, U8>>>(rc::gen::pair(
         rc::gen::inRange(0, 8), rc::gen::element<U8>(0, 1, 61, 62, 63, 64, 127, 128, 254, 255)));
   Kiv::ByteSet set;
   std::set<U32> oracle;
   for (const auto& [step, number] : steps) {
      if (step == 7) {
         set.clear();
         oracle.clear();
      } else if (step < 4) {
         RC_ASSERT(set.insert(number) == oracle.insert(number).second);
      } else {
         RC_ASSERT(set.erase(number) == (oracle.erase(number) != 0));
      }
      RC_ASSERT(set.size() == oracle.size());
      RC_ASSERT(set.has(number) == oracle.contains(number));
      const auto next = oracle.lower_bound(number);
      RC_ASSERT(set.next(number) == (next == oracle.end() ? Kiv::ByteSet::end : *next));
   }
}

TEST(HashSet2018Test, enumeratorsAreIteratedWhileTheSetChanges) {
   HashSet2018<House::Mode, 1> set;
   set.is(NoReport{}, House::on);
   set.is(NoReport{}, House::dim);
   std::vector<House::Mode> seen;
   for (const House::Mode mode : set) {
      seen.push_back(mode);
      set.del(NoReport{}, mode);
   }
   EXPECT_EQ(seen, (std::vector<House::Mode>{House::on, House::dim}));
   EXPECT_TRUE(set.empty());
}

TEST(HashSet2018Test, givesItsMembersToWhoeverWalksIt) {
   HashSet2018<Pello::String, 1> names;
   names.is(NoReport{}, "one");
   names.is(NoReport{}, "two");
   std::set<std::string> seen;
   for (const Pello::String& name : names) {
      seen.insert(name);
   }
   EXPECT_EQ(seen, (std::set<std::string>{"one", "two"}));
   auto at = names.begin();
   const auto before = at++;
   EXPECT_EQ(before, names.begin());
   EXPECT_NE(*at, *before);
   EXPECT_EQ(at.key(), *at);
   EXPECT_EQ(++at, names.end());
}

TEST(HashSet2018Test, aMemberMayBeRemovedByAReferenceIntoTheSet) {
   HashSet2018<Pello::String, 1> set;
   set.is(NoReport{}, "member");
   const auto& member = set.begin().key();
   set.del([](const Pello::String& key, const Pello::String* old) { EXPECT_EQ(key, *old); },
           member);
   EXPECT_TRUE(set.empty());
}

TEST(HashSet2018Test, aReporterMayChangeTheSet) {
   HashSet2018<U32, 1> set;
   const auto addsNext = [&](U32 number, const U32* old) {
      if (old == nullptr && number < 100) {
         set.is(NoReport{}, number + 1);
      }
   };
   for (U32 number = 0; number < 100; number += 2) {
      set.is(addsNext, number);
   }
   EXPECT_EQ(set.size(), 100U);
   set.clear([&](U32 number, const U32*) { set.del(NoReport{}, number ^ 1U); });
   EXPECT_TRUE(set.empty());
}

TEST(HashSet2018Test, valuesWithoutAHashAreRefused) {
   HashSet2018<House::Level, 1> set;
   EXPECT_THROW(set.is(NoReport{}, House::Level{2}), Kiv::NotHashable);
}

} // namespace
