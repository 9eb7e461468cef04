// The thread-safety switch and the counter that obeys it.
#include "Pello/ThreadSafety.h"

#include "Pello/AllocationTracker.h"
#include "Pello/Ptr.h"
#include "Pello/String.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>
#include <vector>

namespace {

class ThreadSafety : public testing::Test {
 protected:
   ~ThreadSafety() override { Pello::threadSafeIs(false); }

   // Runs `work` on four threads with the switch on.
   template <class Work>
   static void inFourThreads(Work work) {
      Pello::threadSafeIs(true);
      std::vector<std::jthread> threads;
      for (int i = 0; i < 4; ++i) {
         threads.emplace_back(work);
      }
   }
};

constexpr U32 rounds = 20'000;

TEST_F(ThreadSafety, isOffUntilItIsTurnedOn) {
   EXPECT_FALSE(Pello::threadSafe());
   Pello::threadSafeIs(true);
   EXPECT_TRUE(Pello::threadSafe());
}

TEST_F(ThreadSafety, counterCountsAlikeBothWays) {
   for (const bool on : {false, true}) {
      Pello::threadSafeIs(on);
      Pello::SwitchedCounter<U32> counter;
      EXPECT_EQ(counter.value(), 0U);
      counter.add(3);
      EXPECT_EQ(counter.value(), 3U);
      EXPECT_EQ(counter.subtract(1), 2U);
      EXPECT_EQ(counter.subtract(2), 0U);
      EXPECT_EQ(Pello::SwitchedCounter<U32>{7}.value(), 7U);
   }
}

TEST_F(ThreadSafety, counterWrapsAlikeBothWays) {
   for (const bool on : {false, true}) {
      Pello::threadSafeIs(on);
      Pello::SwitchedCounter<U8> counter{std::numeric_limits<U8>::max()};
      counter.add(2);
      EXPECT_EQ(counter.value(), 1U);
      EXPECT_EQ(counter.subtract(2), std::numeric_limits<U8>::max());
   }
}

TEST_F(ThreadSafety, noCountIsLostBetweenThreads) {
   Pello::SwitchedCounter<U64> counter;
   inFourThreads([&] {
      for (U32 i = 0; i < rounds; ++i) {
         counter.add(2);
         counter.subtract(1);
      }
   });
   EXPECT_EQ(counter.value(), 4U * rounds);
}

TEST_F(ThreadSafety, sharedReferencesAreCounted) {
   class Thing : public Pello::Counted {};
   const Pello::Ptr<Thing> shared = new Thing;
   const Pello::String text{"shared by all threads"};
   inFourThreads([&] {
      for (U32 i = 0; i < rounds; ++i) {
         const Pello::Ptr<Thing> mine = shared;
         const Pello::String copy = text; // NOLINT(performance-unnecessary-copy-initialization)
         ASSERT_EQ(copy.c_str(), text.c_str());
      }
   });
   EXPECT_EQ(shared->references(), 1U);
   EXPECT_EQ(text, "shared by all threads");
}

TEST_F(ThreadSafety, memoryOfOneThreadIsNeverThatOfAnother) {
   Pello::AllocationTracker tracker{"Shared", 24};
   inFourThreads([&] {
      std::vector<U32*> mine;
      for (U32 round = 0; round < rounds; ++round) {
         mine.push_back(new (tracker.allocate(24)) U32{round});
         if (mine.size() == 8) {
            for (U32* memory : mine) {
               ASSERT_LE(round - *memory, 7U);
               tracker.free(memory, 24);
            }
            mine.clear();
         }
      }
   });
   EXPECT_EQ(tracker.live(), 0U);
   EXPECT_EQ(tracker.total(), 4U * rounds);
}

TEST_F(ThreadSafety, slabReportsItsSizeWithTheSwitchOn) {
   const std::size_t before = Pello::slabReserved();
   Pello::threadSafeIs(true);
   EXPECT_EQ(Pello::slabReserved(), before);
}

} // namespace
