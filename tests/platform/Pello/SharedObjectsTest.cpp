// Objects, texts and traces in the hands of several threads, with the switch on. What is asserted
// holds without a sanitizer too; the thread sanitizer sees more.
#include "Pello/AllocationTracker.h"
#include "Pello/Format.h"
#include "Pello/Ptr.h"
#include "Pello/Publisher.h"
#include "Pello/String.h"
#include "Pello/TextTrace.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr U32 threadCount = 4;
constexpr U32 rounds = 2'000;

class SharedObjects : public testing::Test {
 protected:
   SharedObjects() { Pello::threadSafeIs(true); }
   ~SharedObjects() override { Pello::threadSafeIs(false); }

   // Runs `work(number)` on several threads at once, numbered from 0, and waits for all of them.
   template <class Work>
   static void inThreads(Work work) {
      std::barrier start{threadCount};
      std::vector<std::jthread> threads;
      for (U32 number = 0; number < threadCount; ++number) {
         threads.emplace_back([&start, work, number] {
            start.arrive_and_wait();
            work(number);
         });
      }
   }
};

// An object that the slab keeps and a tracker counts. Its end looks at it once more.
class Thing : public Pello::Counted {
 public:
   explicit Thing(U32 number) : number_{number}, name_{"thing " + std::to_string(number)} {}
   ~Thing() override {
      whole += name_ == "thing " + std::to_string(number_) ? 1U : 0U;
      number_ = 0;
   }
   static void* operator new(std::size_t size) { return tracker.allocate(size); }
   static void operator delete(void* memory, std::size_t size) { tracker.free(memory, size); }

   bool well() const { return name_.view().starts_with("thing "); }

   static constinit Pello::AllocationTracker tracker;
   static constinit std::atomic<U32> whole; // objects that ended and were as they were made

 private:
   U32 number_;
   Pello::String name_;
};

constinit Pello::AllocationTracker Thing::tracker{"Thing", sizeof(Thing)};
constinit std::atomic<U32> Thing::whole{0};

using Things = std::vector<Pello::Ptr<Thing>>;

// No lock orders what the threads do here but the counting itself.
TEST_F(SharedObjects, theLastReferenceEndsTheObjectAfterAllOthersLookedAtIt) {
   const U64 totalBefore = Thing::tracker.total();
   Thing::whole = 0;
   std::vector<Things> hands(threadCount);
   for (U32 i = 0; i < rounds; ++i) {
      const Pello::Ptr<Thing> thing = new Thing{i};
      for (Things& hand : hands) {
         hand.push_back(thing);
      }
   }
   std::atomic<U32> well{0};
   inThreads([&](U32 number) {
      for (Pello::Ptr<Thing>& thing : hands[number]) {
         const Pello::Ptr<Thing> another = thing;
         well += another->well() ? 1U : 0U;
         thing = nullptr;
      }
   });
   EXPECT_EQ(well, threadCount * rounds);
   EXPECT_EQ(Thing::whole, rounds);
   EXPECT_EQ(Thing::tracker.live(), 0U);
   EXPECT_EQ(Thing::tracker.total() - totalBefore, rounds);
}

TEST_F(SharedObjects, whatOneThreadMakesAnotherFrees) {
   Thing::whole = 0;
   std::mutex mutex;
   Things table;
   inThreads([&](U32 number) {
      for (U32 i = 0; i < rounds; ++i) {
         Things taken;
         const Pello::Ptr<Thing> made = new Thing{number * rounds + i};
         const std::lock_guard lock{mutex};
         table.push_back(made);
         if (table.size() > 2 * threadCount) {
            taken.swap(table); // gone when the lock is, mostly made by others
         }
      }
   });
   table.clear();
   EXPECT_EQ(Thing::whole, threadCount * rounds);
   EXPECT_EQ(Thing::tracker.live(), 0U);
}

TEST_F(SharedObjects, textsOfAllSizesGoFromThreadToThread) {
   std::mutex mutex;
   std::vector<Pello::String> table(64);
   std::atomic<U32> broken{0};
   inThreads([&](U32 number) {
      for (U32 i = 0; i < rounds; ++i) {
         const std::string text(1 + (i * 37 + number) % 700, static_cast<char>('a' + number));
         Pello::String passed{text};
         {
            const std::lock_guard lock{mutex};
            std::swap(passed, table[i % table.size()]);
         }
         const std::string_view view = passed.view();
         broken += view.empty() || view.find_first_not_of(view[0]) == view.npos ? 0U : 1U;
      }
   });
   EXPECT_EQ(broken, 0U);
}

TEST_F(SharedObjects, publishersOfSeveralThreadsDoNotMeet) {
   std::vector<U32> heard(threadCount, 0);
   inThreads([&](U32 number) {
      for (U32 i = 0; i < rounds; ++i) {
         Pello::Publisher publisher;
         const auto subscription = publisher.subscribe(
               [&, number](const Pello::Change& change) { heard[number] += change.attribute; });
         publisher.publish({2, {}, Pello::ValueView{number}});
      }
   });
   EXPECT_EQ(heard, std::vector<U32>(threadCount, 2 * rounds));
}

// Restores what the other tests of the program expect.
class SharedTraces : public SharedObjects {
 protected:
   SharedTraces() : before_{Pello::traceLevels()} {}
   ~SharedTraces() override {
      Pello::traceSinkIs({});
      Pello::traceLevelsIs(before_);
   }

   static void trace(const Pello::TraceSource& source, U8 level, const std::string& text) {
      const Pello::TracePoint point{&source, 1, "", "work", "{}", level};
      if (source.enabled(level)) {
         Pello::fmtrace(point, "{}", fmt::make_format_args(text));
      }
   }

 private:
   std::string before_;
};

TEST_F(SharedTraces, levelsSourcesAndSinksChangeWhileOthersTrace) {
   const Pello::TraceSource shared{"shared"};
   std::atomic<U32> traced{0};
   std::atomic<U32> broken{0};
   const auto sink = [&](const Pello::TraceRecord& record) {
      ++traced;
      broken += record.text.find_first_not_of('x') == record.text.npos ? 0U : 1U;
   };
   Pello::traceSinkIs(sink);
   Pello::traceLevelsIs("*/5");
   inThreads([&](U32 number) {
      const std::string text(number + 1, 'x');
      for (U32 i = 0; i < rounds; ++i) {
         if (number == 0) {
            Pello::traceLevelsIs(i % 2 == 0 ? "*/0-9" : "shared/5;own/9");
            Pello::traceSinkIs(sink);
         }
         const Pello::TraceSource own{"own"};
         trace(shared, 5, text);
         trace(own, 9, text);
      }
   });
   EXPECT_EQ(broken, 0U);
   // Level 5 of the shared source was never off; the other one was on from the first change on.
   EXPECT_GE(traced, threadCount * rounds);
   EXPECT_LE(traced, 2 * threadCount * rounds);
   EXPECT_EQ(Pello::traceLevels(), "shared/5;own/9");
   EXPECT_TRUE(shared.enabled(5));
   EXPECT_FALSE(shared.enabled(9));
}

} // namespace
