// The ordered collections: the five cases of `is`, order, removal, and changes under a reporter.
#include "Kiv/RbTreeMap.h"

#include "House.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using House::Bulb;
using House::Slot;
using Kiv::NoReport;

using References = Kiv::RbTreeMap<U32, Bulb::Ptr>;
using Texts = Kiv::RbTreeMap<U32, Pello::String>;

class RbTreeMapTest : public House::NothingLeft {
 protected:
   // Writes down what is reported: `+3` for an insertion, `3:old` for a change or removal.
   auto reporter() {
      return [this](U32 key, const auto* old) {
         log += old == nullptr ? "+" + std::to_string(key) + " "
                               : std::to_string(key) + ":" + textOf(*old) + " ";
      };
   }
   auto reporterOfSlots() {
      return [this](U32 key, const Slot::Ptr* old) {
         log += (old == nullptr ? "+" : "-") + std::to_string(key) + " ";
      };
   }
   static std::string textOf(const Bulb::Ptr& bulb) { return bulb->name().str(); }
   static std::string textOf(const Pello::String& text) { return text.str(); }
   static std::string textOf(bool member) { return member ? "true" : "false"; }

   std::string log;
   References references;
   Texts texts;
   const Bulb::Ptr a = new Bulb{"a"};
   const Bulb::Ptr b = new Bulb{"b"};
};

TEST_F(RbTreeMapTest, anAbsentKeyAndNullDoNothing) {
   references.is(reporter(), 3, nullptr);
   EXPECT_TRUE(references.empty());
   EXPECT_EQ(log, "");
}

TEST_F(RbTreeMapTest, anAbsentKeyAndAnObjectInsert) {
   references.is(reporter(), 3, a);
   EXPECT_EQ(references.get(3), a);
   EXPECT_EQ(a->references(), 2U);
   EXPECT_EQ(log, "+3 ");
}

TEST_F(RbTreeMapTest, thePresentObjectChangesNothing) {
   references.is(NoReport{}, 3, a);
   references.is(reporter(), 3, a);
   EXPECT_EQ(a->references(), 2U);
   EXPECT_EQ(log, "");
}

TEST_F(RbTreeMapTest, anotherObjectReplaces) {
   references.is(NoReport{}, 3, a);
   references.is(reporter(), 3, b);
   EXPECT_EQ(references.get(3), b);
   EXPECT_EQ(a->references(), 1U);
   EXPECT_EQ(references.size(), 1U);
   EXPECT_EQ(log, "3:a ");
}

TEST_F(RbTreeMapTest, nullRemovesThePresentOne) {
   references.is(NoReport{}, 3, a);
   references.is(reporter(), 3, nullptr);
   EXPECT_FALSE(references.has(3));
   EXPECT_EQ(a->references(), 1U);
   EXPECT_EQ(log, "3:a ");
}

TEST_F(RbTreeMapTest, emptyTextIsStoredLikeAnyOther) {
   texts.is(reporter(), 1, "");
   EXPECT_TRUE(texts.has(1));
   texts.is(reporter(), 1, "text");
   texts.is(reporter(), 1, "text");
   texts.is(reporter(), 1, "");
   EXPECT_EQ(texts.get(1), "");
   EXPECT_EQ(texts.size(), 1U);
   EXPECT_EQ(log, "+1 1: 1:text ");
}

TEST_F(RbTreeMapTest, iteratesInAscendingOrderOfUnsignedKeys) {
   for (const U32 key : {5U, 1U, 4294967295U, 3U, 0U, 2147483648U}) {
      references.is(NoReport{}, key, a);
   }
   std::vector<U32> keys;
   for (const auto& at : references) {
      keys.push_back(at.key());
      EXPECT_EQ(at.value(), a);
      EXPECT_EQ(at->name(), "a");
   }
   EXPECT_EQ(keys, (std::vector<U32>{0, 1, 3, 5, 2147483648U, 4294967295U}));
}

TEST_F(RbTreeMapTest, anEntryCanBeTakenApart) {
   texts.is(NoReport{}, 8, "eight");
   texts.is(NoReport{}, 3, "three");
   std::string seen;
   for (auto& [key, text] : texts) {
      static_assert(std::is_same_v<decltype(key), const U32>);
      seen += std::to_string(key) + text.str() + " ";
   }
   EXPECT_EQ(seen, "3three 8eight ");
   auto at = texts.begin();
   const auto before = at++;
   EXPECT_EQ(before, texts.begin());
   EXPECT_EQ(at.value(), "eight");
   const auto& [key, text] = *at;
   EXPECT_EQ(++at, texts.end());
   EXPECT_EQ(key, 8U) << "refers to the entry, not to the iterator";
   EXPECT_EQ(text, "eight");
}

TEST_F(RbTreeMapTest, removalByKeyHandsTheValueOver) {
   references.is(NoReport{}, 3, a);
   texts.is(NoReport{}, 3, "text");
   EXPECT_EQ(references.del(reporter(), 3), a);
   EXPECT_EQ(texts.del(reporter(), 3), "text");
   EXPECT_EQ(references.del(reporter(), 3), nullptr);
   EXPECT_EQ(texts.del(reporter(), 3), "");
   EXPECT_EQ(log, "3:a 3:text ");
}

TEST_F(RbTreeMapTest, removalByIteratorTakesTheEntryItStandsOn) {
   texts.is(NoReport{}, 1, "one");
   texts.is(NoReport{}, 2, "two");
   EXPECT_EQ(texts.del(reporter(), texts.find(2)), "two");
   EXPECT_EQ(texts.del(reporter(), texts.end()), "");
   EXPECT_EQ(texts.del(reporter(), texts.find(2)), "");
   EXPECT_EQ(references.del(reporter(), references.end()), nullptr);
   EXPECT_EQ(texts.del(reporter(), texts.begin()), "one");
   EXPECT_EQ(log, "2:two 1:one ");
}

TEST_F(RbTreeMapTest, clearReportsLowestFirst) {
   for (const U32 key : {5U, 1U, 3U}) {
      references.is(NoReport{}, key, key == 3 ? b : a);
   }
   references.clear(reporter());
   EXPECT_TRUE(references.empty());
   EXPECT_EQ(log, "1:a 3:b 5:a ");
   references.clear(reporter());
   EXPECT_EQ(log, "1:a 3:b 5:a ");
}

TEST_F(RbTreeMapTest, unwatchedClearEmptiesToo) {
   references.is(NoReport{}, 1, a);
   references.clear(NoReport{});
   EXPECT_TRUE(references.empty());
   EXPECT_EQ(a->references(), 1U);
}

TEST_F(RbTreeMapTest, theOldElementLivesWhileItIsReported) {
   references.is(NoReport{}, 1, Bulb::Ptr{new Bulb{"brief"}});
   const U64 before = Bulb::memAllocationTracker_.live();
   const auto looks = [&](U32, const Bulb::Ptr* old) {
      ASSERT_NE(old, nullptr);
      EXPECT_EQ((*old)->name(), "brief");
      EXPECT_EQ(Bulb::memAllocationTracker_.live(), before);
   };
   references.is(looks, 1, a);
   EXPECT_EQ(Bulb::memAllocationTracker_.live(), before - 1);
}

// The key is still readable by whoever is told after the entry has gone.
template <class Map, class Insert>
void expectKeyOutlivesItsEntry(Map& map, Insert insert) {
   std::string seen;
   insert(map, [&](const Pello::String& key, const auto* old) {
      if (old == nullptr) {
         map.del(NoReport{}, key);
      }
      seen = key.str();
   });
   EXPECT_EQ(seen, "a key of some length");
   EXPECT_TRUE(map.empty());
}

TEST_F(RbTreeMapTest, aReporterMayRemoveWhatWasJustAdded) {
   Kiv::RbTreeMap<Pello::String, U32> map;
   expectKeyOutlivesItsEntry(
         map, [](auto& to, const auto& report) { to.is(report, "a key of some length", 7); });
   Kiv::RbTreeSet<Pello::String> set;
   expectKeyOutlivesItsEntry(
         set, [](auto& to, const auto& report) { to.is(report, "a key of some length"); });
}

TEST_F(RbTreeMapTest, aChangeMayBeAskedForWithTheEntrysOwnKey) {
   Kiv::RbTreeMap<Pello::String, U32> map;
   map.is(NoReport{}, "own key of some length", 1);
   std::string seen;
   map.is(
         [&](const Pello::String& key, const U32*) {
            map.del(NoReport{}, key);
            seen = key.str();
         },
         map.begin().key(), 2);
   EXPECT_EQ(seen, "own key of some length");
}

TEST_F(RbTreeMapTest, aReporterMayChangeTheMapWhileItIsCleared) {
   for (U32 key = 0; key < 10; ++key) {
      texts.is(NoReport{}, key, "x");
   }
   int removals = 0;
   texts.clear([&](U32 key, const Pello::String*) {
      ++removals;
      texts.del(NoReport{}, key + 1);
      if (key == 4) {
         texts.is(NoReport{}, 1, "again");
      }
   });
   EXPECT_TRUE(texts.empty());
   EXPECT_EQ(removals, 6);
}

TEST_F(RbTreeMapTest, entitiesAreMadeOnceFromTheirKey) {
   Kiv::RbTreeEntityMap<U32, Slot> slots;
   const Slot::Ptr four = slots.is(reporterOfSlots(), 4);
   EXPECT_EQ(four->number(), 4U);
   EXPECT_EQ(slots.is(reporterOfSlots(), 4), four);
   slots.is(reporterOfSlots(), 2);
   EXPECT_EQ(slots.begin()->number(), 2U);
   EXPECT_EQ(slots.get(9), nullptr);
   EXPECT_EQ(slots.del(reporterOfSlots(), 4), four);
   EXPECT_EQ(log, "+4 +2 -4 ");
}

TEST_F(RbTreeMapTest, setsHoldEachKeyOnce) {
   Kiv::RbTreeSet<U32> set;
   for (const U32 key : {5U, 1U, 5U}) {
      set.is(reporter(), key);
   }
   EXPECT_EQ(set.size(), 2U);
   EXPECT_EQ(set.begin().key(), 1U);
   EXPECT_EQ(std::vector<U32>(set.begin(), set.end()), (std::vector<U32>{1, 5}));
   EXPECT_EQ(*set.begin()++, 1U);
   EXPECT_TRUE(set.get(5));
   EXPECT_FALSE(set.get(2));
   EXPECT_TRUE(set.del(reporter(), 5));
   EXPECT_FALSE(set.del(reporter(), 5));
   EXPECT_EQ(log, "+5 +1 5:true ");
}

// A null reference stands for an entry that is not there.
RC_GTEST_PROP(RbTreeMapProperty, behavesLikeAMap, ()) {
   const auto steps = *rc::gen::container<std::vector<std::pair<int, U32>>>(
         rc::gen::pair(rc::gen::inRange(0, 9), rc::gen::inRange<U32>(0, 6)));
   References map;
   std::map<U32, Bulb::Ptr> oracle;
   const Bulb::Ptr bulbs[] = {nullptr, new Bulb{"a"}, new Bulb{"b"}};
   std::vector<std::pair<U32, Bulb::Ptr>> reports;
   std::vector<std::pair<U32, Bulb::Ptr>> expected;
   const auto report = [&](U32 key, const Bulb::Ptr* old) {
      reports.emplace_back(key, old == nullptr ? nullptr : *old);
   };
   for (const auto& [step, key] : steps) {
      const Bulb::Ptr value = step < 6 ? bulbs[step % 3] : nullptr;
      const Bulb::Ptr before = oracle.contains(key) ? oracle[key] : nullptr;
      if (step < 6) {
         map.is(report, key, value);
      } else if (step < 8) {
         RC_ASSERT((step == 6 ? map.del(report, key) : map.del(report, map.find(key))) == before);
      } else {
         continue;
      }
      if (before != value) {
         expected.emplace_back(key, before);
      }
      oracle[key] = value;
      std::erase_if(oracle, [](const auto& entry) { return entry.second == nullptr; });
      RC_ASSERT(map.size() == oracle.size());
      RC_ASSERT(map.get(key) == value);
   }
   RC_ASSERT(reports == expected);
   std::vector<std::pair<const U32, Bulb::Ptr>> content;
   for (const auto& at : map) {
      content.emplace_back(at.key(), at.value());
   }
   RC_ASSERT(content ==
             (std::vector<std::pair<const U32, Bulb::Ptr>>{oracle.begin(), oracle.end()}));
}

} // namespace
