// Entities and values in several threads, with the switch on: every thread changes and publishes
// its own objects, and they share what they do not change. The thread sanitizer sees more than is
// asserted.
#include "House.h"
#include "Kiv/Reflection.h"
#include "Pello/ThreadSafety.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using House::Bulb;
using House::Lamp;

constexpr U32 threadCount = 4;
constexpr U32 rounds = 500;

class ThreadsTest : public House::NothingLeft {
 protected:
   ThreadsTest() { Pello::threadSafeIs(true); }
   ~ThreadsTest() override { Pello::threadSafeIs(false); }

   // Runs `work(number)` on several threads, numbered from 0, and waits for all of them.
   template <class Work>
   static void inThreads(Work work) {
      std::vector<std::jthread> threads;
      for (U32 number = 0; number < threadCount; ++number) {
         threads.emplace_back([work, number] { work(number); });
      }
   }
};

// What a subscriber hears of one lamp, counted.
U32 changesOfOneLife(const Pello::Ptr<const Bulb>& shared, U32 number) {
   const Pello::Ptr<Lamp> lamp = new Lamp{"lamp " + std::to_string(number)};
   U32 changes = 0;
   const auto subscription = lamp->publisher()->subscribe([&](const Pello::Change&) { ++changes; });
   lamp->kicksIs(number + 1);
   lamp->spareIs(shared);
   lamp->bulbIs(shared->name())->ageIs(3);
   lamp->noteIs(7, shared->name());
   lamp->tagIs(shared->name());
   lamp->slotIs(number)->usedIs(true);
   lamp->bulbDel(shared->name());
   return changes;
}

TEST_F(ThreadsTest, everyThreadHearsOfItsOwnObjects) {
   const Pello::Ptr<const Bulb> shared = new Bulb{"shared by all", 4};
   const U32 expected = changesOfOneLife(shared, 0);
   EXPECT_EQ(expected, 7U);
   std::atomic<U32> heard{0};
   inThreads([&](U32 number) {
      for (U32 i = 0; i < rounds; ++i) {
         heard += changesOfOneLife(shared, number);
      }
   });
   EXPECT_EQ(heard, threadCount * rounds * expected);
   EXPECT_EQ(shared->references(), 1U);
}

TEST_F(ThreadsTest, entitiesOfOneThreadEndInAnother) {
   std::mutex mutex;
   std::vector<Pello::Ptr<Lamp>> table(8);
   std::atomic<U32> whole{0};
   inThreads([&](U32 number) {
      for (U32 i = 0; i < rounds; ++i) {
         Pello::Ptr<Lamp> passed = new Lamp{"passed on"};
         passed->kicksIs(number + 1);
         passed->bulbIs(Pello::String{"bulb of thread " + std::to_string(number)});
         {
            const std::lock_guard lock{mutex};
            std::swap(passed, table[i % table.size()]);
         }
         whole += passed == nullptr || passed->kicks() != 0 ? 1U : 0U;
      }
   });
   EXPECT_EQ(whole, threadCount * rounds);
   EXPECT_EQ(Lamp::memAllocationTracker_.live(), table.size());
}

// Descriptors are made on first use, which several threads reach together.
TEST_F(ThreadsTest, typesAreDescribedOnceAndFoundByAll) {
   const std::string text = "House::Color(red=7, mode='on')";
   std::atomic<U32> well{0};
   inThreads([&](U32 number) {
      const std::string module = "ThreadsTest " + std::to_string(number);
      for (U32 i = 0; i < rounds; ++i) {
         Kiv::registerTypeModule({module, {&House::Color::kivTypeData()}});
         const Kiv::TypeData* type = Kiv::findType("House::Color");
         const std::any color = type == nullptr ? std::any{} : type->parse(text);
         const auto* value = std::any_cast<House::Color>(&color);
         well += value != nullptr && type->valueText(value) == text ? 1U : 0U;
         Kiv::unregisterTypeModule(module);
      }
   });
   EXPECT_EQ(well, threadCount * rounds);
}

} // namespace
