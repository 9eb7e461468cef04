// What the slab promises: distinct aligned memory of any size, used again when it is given back.
#include "Pello/Slab.h"

#include "Pello/AllocationTracker.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <sys/resource.h>
#include <utility>
#include <vector>

namespace {

using Pello::slabAllocate;
using Pello::slabFree;
using Pello::slabReserved;

#if defined(__SANITIZE_ADDRESS__)
#define SLAB_TEST_USES_HEAP 1
#elif defined(__SANITIZE_THREAD__)
#define SLAB_TEST_ENDS_WITHOUT_MEMORY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SLAB_TEST_USES_HEAP 1
#elif __has_feature(thread_sanitizer)
#define SLAB_TEST_ENDS_WITHOUT_MEMORY 1
#endif
#endif

// Under AddressSanitizer every request goes to the heap: what is promised of the lists and chunks
// does not hold there, everything else does.
#ifdef SLAB_TEST_USES_HEAP
constexpr bool slabHasLists = false;
#else
constexpr bool slabHasLists = true;
#endif

// Both sanitizers end the process that asks for more memory than there is.
#if defined(SLAB_TEST_USES_HEAP) || defined(SLAB_TEST_ENDS_WITHOUT_MEMORY)
constexpr bool newThrows = false;
#else
constexpr bool newThrows = true;
#endif

bool isAligned(const void* memory) {
   return reinterpret_cast<std::uintptr_t>(memory) % 16 == 0;
}

TEST(Slab, everySizeIsAlignedAndWritable) {
   std::vector<std::pair<void*, std::size_t>> blocks;
   for (std::size_t size = 0; size <= Pello::slabLargest + 1; ++size) {
      void* memory = slabAllocate(size);
      ASSERT_NE(memory, nullptr);
      EXPECT_TRUE(isAligned(memory)) << size;
      std::memset(memory, static_cast<int>(size % 251), size);
      blocks.emplace_back(memory, size);
   }
   for (const auto& [memory, size] : blocks) {
      const auto* bytes = static_cast<const unsigned char*>(memory);
      EXPECT_TRUE(std::all_of(bytes, bytes + size, [&](unsigned char byte) {
         return byte == size % 251;
      })) << size;
      slabFree(memory, size);
   }
}

TEST(Slab, noBytesHaveAnAddressOfTheirOwn) {
   void* first = slabAllocate(0);
   void* second = slabAllocate(0);
   EXPECT_NE(first, second);
   slabFree(first, 0);
   slabFree(second, 0);
}

TEST(Slab, nullIsGivenBackWithoutEffect) {
   slabFree(nullptr, 16);
   slabFree(nullptr, 4096);
   void* memory = slabAllocate(16);
   EXPECT_NE(memory, nullptr);
   slabFree(memory, 16);
}

TEST(Slab, freedMemoryIsUsedAgainForItsSize) {
   for (const std::size_t size : {1U, 16U, 17U, 200U, 512U}) {
      void* memory = slabAllocate(size);
      slabFree(memory, size);
      void* again = slabAllocate(size);
      EXPECT_TRUE(!slabHasLists || again == memory) << size;
      slabFree(again, size);
   }
}

TEST(Slab, sizesOfOneGranuleShareAList) {
   void* memory = slabAllocate(17);
   slabFree(memory, 17);
   void* again = slabAllocate(32);
   EXPECT_TRUE(!slabHasLists || again == memory);
   slabFree(again, 32);
}

// Three sizes by turns, as the objects of a rule are made.
std::vector<std::pair<void*, std::size_t>> manyRules() {
   std::vector<std::pair<void*, std::size_t>> blocks;
   for (std::size_t i = 0; i < 9000; ++i) {
      const std::size_t size = std::size_t{40} + i % 3 * 72;
      blocks.emplace_back(slabAllocate(size), size);
   }
   return blocks;
}

void giveBack(const std::vector<std::pair<void*, std::size_t>>& blocks) {
   for (const auto& [memory, size] : blocks) {
      slabFree(memory, size);
   }
}

TEST(Slab, reservedMemoryStaysFlatOnReuse) {
   giveBack(manyRules());
   const std::size_t peak = slabReserved();
   EXPECT_EQ(peak != 0, slabHasLists);
   for (int round = 0; round < 3; ++round) {
      giveBack(manyRules());
      EXPECT_EQ(slabReserved(), peak);
   }
}

TEST(Slab, interleavedBlocksNeverOverlap) {
   const auto blocks = manyRules();
   std::map<const char*, std::size_t> byAddress;
   for (const auto& [memory, size] : blocks) {
      EXPECT_TRUE(byAddress.emplace(static_cast<const char*>(memory), size).second);
   }
   const char* end = nullptr;
   for (const auto& [memory, size] : byAddress) {
      EXPECT_TRUE(end == nullptr || memory >= end);
      end = memory + size;
   }
   giveBack(blocks);
}

TEST(Slab, largeRequestsGoToTheHeap) {
   giveBack(manyRules());
   const std::size_t before = slabReserved();
   void* memory = slabAllocate(std::size_t{8} << 20U);
   EXPECT_TRUE(isAligned(memory));
   EXPECT_EQ(slabReserved(), before);
   slabFree(memory, std::size_t{8} << 20U);
}

// Takes and gives back in any order, and looks whether anybody else wrote into what is held.
RC_GTEST_PROP(SlabProperty, heldMemoryIsLeftAlone, ()) {
   const auto steps = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 12));
   constexpr std::size_t sizes[] = {0, 1, 16, 17, 512, 513};
   std::vector<std::pair<unsigned char*, std::size_t>> held;
   for (const int step : steps) {
      if (step >= 6 && !held.empty()) {
         const auto [memory, size] = held[static_cast<std::size_t>(step) % held.size()];
         std::erase(held, std::pair{memory, size});
         slabFree(memory, size);
      } else {
         const std::size_t size = sizes[step % 6];
         held.emplace_back(static_cast<unsigned char*>(slabAllocate(size)), size);
         std::memset(held.back().first, static_cast<int>(held.size()), size);
      }
   }
   std::set<const unsigned char*> addresses;
   for (const auto& [memory, size] : held) {
      RC_ASSERT(addresses.insert(memory).second);
      for (std::size_t i = 1; i < size; ++i) {
         RC_ASSERT(memory[i] == memory[0]);
      }
      slabFree(memory, size);
   }
}

// Runs in a process of its own: exhausts the memory, and looks whether the slab still tells blocks
// apart afterwards. Leaves with 0 when it does.
[[noreturn]] void exhaustAndGoOn() {
   const rlimit small{std::size_t{256} << 20U, std::size_t{256} << 20U};
   ::setrlimit(RLIMIT_AS, &small);
   bool exhausted = false;
   while (!exhausted) {
      try {
         // Not a divisor of the chunk: each chunk ends with a remainder.
         slabAllocate(496);
      } catch (const std::bad_alloc&) {
         exhausted = true;
      }
   }
   std::set<void*> addresses;
   bool distinct = true;
   for (int i = 0; i < 8; ++i) {
      distinct = distinct && addresses.insert(slabAllocate(std::size_t{256} >> (i % 2 * 4))).second;
   }
   std::_Exit(distinct ? 0 : 1);
}

TEST(SlabDeathTest, exhaustedMemoryLeavesTheListsInOrder) {
   if (newThrows) {
      EXPECT_EXIT(exhaustAndGoOn(), testing::ExitedWithCode(0), "");
   } else {
      void* memory = slabAllocate(16);
      EXPECT_EQ(slabReserved() != 0, slabHasLists);
      slabFree(memory, 16);
   }
}

TEST(AllocationTracker, countsWhatExistsAndWhatEverWas) {
   Pello::AllocationTracker tracker{"House::Lamp", 40};
   EXPECT_EQ(tracker.typeName(), "House::Lamp");
   EXPECT_EQ(tracker.objectSize(), 40U);
   EXPECT_EQ(tracker.live(), 0U);
   void* first = tracker.allocate(40);
   void* derived = tracker.allocate(88); // an object of a derived type is larger
   EXPECT_EQ(tracker.live(), 2U);
   tracker.free(first, 40);
   EXPECT_EQ(tracker.live(), 1U);
   tracker.free(derived, 88);
   EXPECT_EQ(tracker.live(), 0U);
   EXPECT_EQ(tracker.total(), 2U);
   EXPECT_EQ(tracker.objectSize(), 40U);
}

TEST(AllocationTracker, aRefusedRequestIsNotCounted) {
   if (newThrows) {
      Pello::AllocationTracker tracker{"Huge", 1};
      EXPECT_THROW(tracker.allocate(std::size_t{1} << 62U), std::bad_alloc);
      EXPECT_EQ(tracker.total(), 0U);
      EXPECT_EQ(tracker.live(), 0U);
   }
}

} // namespace
