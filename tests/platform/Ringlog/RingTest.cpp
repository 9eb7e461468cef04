// The writing side: call sites, the turn of the ring, threads.
#include "Ringlog/Ring.h"

#include "LastRecord.h"
#include "Pello/ThreadSafety.h"
#include "Ringlog/Trace.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <charconv>
#include <ctime>
#include <map>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"RingTest"};

struct Member {
   static constexpr const char* kivClassName = "Member";
   static U32 enter() {
      RINGLOG_ENTRY();
      return __LINE__ - 1;
   }
};

U32 freeFunction() {
   RINGLOG_TRACE(5, "free {}", 1);
   return __LINE__ - 1;
}

TEST(RingTest, aDescriptorSaysWhereTheTraceStands) {
   const U32 memberLine = Member::enter();
   const Descriptor member = TestSupport::lastRecord().site;
   const U32 freeLine = freeFunction();
   const Descriptor free = TestSupport::lastRecord().site;
   EXPECT_EQ(member.source, "RingTest");
   EXPECT_EQ(member.className + "::" + member.functionName, "Member::enter");
   EXPECT_EQ(member.line, memberLine);
   EXPECT_EQ(member.level, 8U);
   EXPECT_EQ(member.format, "");
   EXPECT_EQ(free.className + "::" + free.functionName, "::freeFunction");
   EXPECT_EQ(free.line, freeLine);
   EXPECT_EQ(free.level, 5U);
   EXPECT_EQ(free.format, "free {}");
}

TEST(RingTest, aCallSiteIsRegisteredOnFirstUseAndOnce) {
   RINGLOG_TRACE(0, "before");
   const std::size_t before = TestSupport::readRing().descriptors().size();
   for (int i = 0; i < 3; ++i) {
      RINGLOG_TRACE(0, "registered {}", i);
   }
   const TestSupport::RingReader reader = TestSupport::readRing();
   EXPECT_EQ(reader.descriptors().size(), before + 1);
   EXPECT_EQ(reader.descriptors().rbegin()->second.format, "registered {}");
   EXPECT_EQ(reader.records().back().text, "registered 2");
}

TEST(RingTest, everyLevelGoesToTheRingButOnlyEnabledOnesToTheTextTrace) {
   TestSupport::TraceCapture capture;
   Pello::traceLevelsIs("RingTest/0,5");
   for (int i = 0; i < 2; ++i) {
      RINGLOG_TRACE(0, "error");
      RINGLOG_TRACE(5, "decision");
      RINGLOG_TRACE(9, "detail");
   }
   const auto records = TestSupport::readRing().records();
   EXPECT_EQ(records.at(records.size() - 1).text, "detail");
   EXPECT_EQ(records.at(records.size() - 6).text, "error");
   EXPECT_EQ(capture.lines(),
             (std::vector<std::string>{"0 error", "5 decision", "0 error", "5 decision"}));
}

TEST(RingTest, recordsTellTimeThreadAndProcess) {
   const auto before = static_cast<double>(std::time(nullptr));
   RINGLOG_TRACE(5, "now");
   const auto record = TestSupport::lastRecord();
   EXPECT_GE(record.time, before - 1);
   EXPECT_LE(record.time, static_cast<double>(std::time(nullptr)) + 1.5);
   EXPECT_EQ(record.thread, static_cast<U32>(::syscall(SYS_gettid)));
   EXPECT_EQ(TestSupport::readRing().processId(), static_cast<U32>(::getpid()));
}

// The numbers that follow "NAME " in this file's texts, in order; no text of them is a note.
std::vector<U64> numbersAfter(const TestSupport::RingReader& reader, std::string_view name) {
   std::vector<U64> numbers;
   for (const Record& record : reader.records()) {
      if (record.site->source != traceSource.name()) {
         continue;
      }
      EXPECT_NE(record.text.substr(0, 1), "<") << record.text;
      if (record.text.starts_with(name)) {
         const char* begin = record.text.data() + name.size() + 1;
         std::from_chars(begin, record.text.data() + record.text.size(), numbers.emplace_back());
      }
   }
   return numbers;
}

// That the numbers count up to `last` without a gap.
void expectCountingTo(const std::vector<U64>& numbers, U64 last) {
   ASSERT_FALSE(numbers.empty());
   EXPECT_EQ(numbers.back(), last);
   for (std::size_t i = 1; i < numbers.size(); ++i) {
      ASSERT_EQ(numbers[i], numbers[i - 1] + 1);
   }
}

TEST(RingTest, theOldestRecordsMakeRoomForTheNewest) {
   const std::string filler(37, 'x');
   constexpr U64 last = 100'000;
   for (U64 i = 1; i <= last; ++i) {
      RINGLOG_TRACE(9, "turn {} {}", i, std::string_view{filler}.substr(0, i % 37));
      if (i % 9'973 == 0) {
         expectCountingTo(numbersAfter(TestSupport::readRing(), "turn"), i);
      }
   }
   const auto numbers = numbersAfter(TestSupport::readRing(), "turn");
   expectCountingTo(numbers, last);
   // All blocks but the one that has just been emptied are full of them.
   EXPECT_GT(numbers.size(), (defaultBlocks - 1) * blockCapacity / 80);
   EXPECT_LT(numbers.size(), last);
}

class RingThreadsTest : public testing::Test {
 protected:
   void SetUp() override { Pello::threadSafeIs(true); }
   void TearDown() override { Pello::threadSafeIs(false); }
};

TEST_F(RingThreadsTest, threadsThatWriteAtOnceKeepTheirRecordsWhole) {
   constexpr U64 last = 30'000;
   const char* const names[] = {"alpha", "beta", "gamma", "delta"};
   std::vector<std::thread> threads;
   for (const char* name : names) {
      threads.emplace_back([name] {
         for (U64 i = 1; i <= last; ++i) {
            RINGLOG_TRACE(9, "{} {} {}", name, i, Pello::String{"end"});
         }
      });
   }
   for (int i = 0; i < 20; ++i) { // reading while they write
      numbersAfter(TestSupport::readRing(), "alpha");
   }
   for (std::thread& thread : threads) {
      thread.join();
   }
   const TestSupport::RingReader reader = TestSupport::readRing();
   // The slowest thread was at work until the end, so at least its newest records are there.
   EXPECT_EQ(reader.records().back().text.substr(reader.records().back().text.find(' ')),
             " " + std::to_string(last) + " end");
   for (const char* name : names) {
      const auto numbers = numbersAfter(reader, name);
      if (!numbers.empty()) {
         expectCountingTo(numbers, last);
      }
   }
}

TEST_F(RingThreadsTest, textLevelsChangeWhileThreadsTrace) {
   constexpr U64 last = 2'000;
   std::atomic<U64> broken{0};
   const std::string before = Pello::traceLevels();
   Pello::traceSinkIs([&](const Pello::TraceRecord& record) {
      broken += record.text.starts_with("switched ") ? 0U : 1U;
   });
   std::vector<std::thread> threads;
   for (int thread = 0; thread < 3; ++thread) {
      threads.emplace_back([] {
         for (U64 i = 1; i <= last; ++i) {
            RINGLOG_TRACE(9, "switched {} {}", i, Pello::String{"on and off"});
         }
      });
   }
   for (int i = 0; i < 20; ++i) {
      Pello::traceLevelsIs(i % 2 == 0 ? "RingTest/9" : "");
      const TestSupport::RingReader reader = TestSupport::readRing();
      for (const U64 number : numbersAfter(reader, "switched")) {
         broken += number >= 1 && number <= last ? 0U : 1U;
      }
   }
   for (std::thread& thread : threads) {
      thread.join();
   }
   Pello::traceSinkIs({});
   Pello::traceLevelsIs(before);
   EXPECT_EQ(broken, 0U);
   EXPECT_EQ(numbersAfter(TestSupport::readRing(), "switched").back(), last);
}

TEST_F(RingThreadsTest, aThreadThatRestsKeepsItsBlockWhileOthersTurnTheRing) {
   std::barrier meeting{2};
   std::thread resting{[&] {
      RINGLOG_TRACE(9, "resting {}", 1);
      meeting.arrive_and_wait();
      meeting.arrive_and_wait();
      RINGLOG_TRACE(9, "resting {}", 2);
   }};
   meeting.arrive_and_wait();
   constexpr U64 last = 100'000;
   for (U64 i = 1; i <= last; ++i) {
      RINGLOG_TRACE(9, "busy {}", i);
   }
   meeting.arrive_and_wait();
   resting.join();
   const TestSupport::RingReader reader = TestSupport::readRing();
   expectCountingTo(numbersAfter(reader, "busy"), last);
   EXPECT_EQ(numbersAfter(reader, "resting"), (std::vector<U64>{1, 2}));
}

TEST_F(RingThreadsTest, moreThreadsThanBlocksLoseBlocksAndSaySo) {
   const U32 before = TestSupport::readRing().lostBlocks();
   constexpr int extra = 4;
   constexpr int count = static_cast<int>(defaultBlocks) + extra;
   std::barrier meeting{count};
   std::vector<std::thread> threads;
   for (int thread = 0; thread < count; ++thread) {
      threads.emplace_back([&] {
         RINGLOG_TRACE(9, "crowd {}", 1);
         meeting.arrive_and_wait();
         RINGLOG_TRACE(9, "crowd {}", 2);
      });
   }
   for (std::thread& thread : threads) {
      thread.join();
   }
   const TestSupport::RingReader reader = TestSupport::readRing();
   const std::size_t kept = numbersAfter(reader, "crowd").size();
   EXPECT_LE(kept, 2 * defaultBlocks);
   EXPECT_GE(kept, 2 * (defaultBlocks - 1)); // this thread may have one
   EXPECT_GE(reader.lostBlocks(), before + extra);
}

TEST_F(RingThreadsTest, theBlocksOfThreadsThatEndAreUsedAgain) {
   const U32 before = TestSupport::readRing().lostBlocks();
   for (U64 i = 1; i <= 5 * defaultBlocks; ++i) {
      std::thread{[i] { RINGLOG_TRACE(9, "short {}", i); }}.join();
   }
   const TestSupport::RingReader reader = TestSupport::readRing();
   expectCountingTo(numbersAfter(reader, "short"), 5 * defaultBlocks);
   EXPECT_EQ(reader.lostBlocks(), before);
}

TEST_F(RingThreadsTest, threadsThatReachACallSiteTogetherRegisterItOnce) {
   RINGLOG_TRACE(0, "before");
   const std::size_t before = TestSupport::readRing().descriptors().size();
   std::barrier meeting{4};
   std::vector<std::thread> threads;
   for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&] {
         meeting.arrive_and_wait();
         RINGLOG_TRACE(9, "together {}", 1);
      });
   }
   for (std::thread& thread : threads) {
      thread.join();
   }
   EXPECT_EQ(TestSupport::readRing().descriptors().size(), before + 1);
   EXPECT_EQ(numbersAfter(TestSupport::readRing(), "together").size(), 4U);
}

} // namespace
} // namespace Ringlog
