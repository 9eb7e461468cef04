// What the writer keeps in the ring's header for its readers: clocks and counts.
#include "LastRecord.h"
#include "Ringlog/Trace.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <thread>
#include <unistd.h>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"RingHeaderTest"};
using TestSupport::RingFile;

RingFacts factsOf(const std::vector<std::byte>& ring) {
   return readFacts(ring, ring.size());
}

double now() {
   const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
   return std::chrono::duration<double>(sinceEpoch).count();
}

TEST(RingHeaderTest, recordsThatMakeRoomAreCounted) {
   RINGLOG_TRACE(9, "first");
   const auto all = [] {
      return factsOf(snapshot()).overwritten + TestSupport::readRing().records().size();
   };
   const U64 before = all();
   for (int i = 0; i < 60'000; ++i) {
      RINGLOG_TRACE(9, "{}", i);
   }
   EXPECT_GT(factsOf(snapshot()).overwritten, 0U);
   EXPECT_EQ(all(), before + 60'000);
   for (int i = 0; i < 3; ++i) { // threads that end with a block half full
      std::thread{[] {
         for (int n = 0; n < 20'000; ++n) {
            RINGLOG_TRACE(9, "thread {}", n);
         }
      }}.join();
   }
   EXPECT_EQ(all(), before + 120'000);
}

// The clocks are looked at again when they are old, not with every record.
TEST(RingHeaderTest, clocksAreReadAgainWhenTheyAreOld) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      const auto traceOnce = [](bool due) {
         // As after a pause of seconds, or as if none had passed: a busy machine may make pauses.
         Detail::writer.dueTicks = due ? 0 : std::numeric_limits<U64>::max();
         RINGLOG_TRACE(9, "once");
      };
      const auto latest = [&] { return factsOf(file.bytes()).latestTicks; };
      traceOnce(false);
      const U64 first = latest();
      traceOnce(false);
      const U64 second = latest();
      traceOnce(true);
      const U64 third = latest();
      std::exit(second == first && third > second ? 0 : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^$");
}

TEST(RingHeaderTest, aProcessWithoutStandardErrorDoesNotPrintIntoItsRing) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      ::close(STDERR_FILENO);
      RINGLOG_TRACE(9, "whole");
      const bool closed = ::write(STDERR_FILENO, "spoilt", 6) < 0;
      std::_Exit(closed && file.texts() == std::vector<std::string>{"whole"} ? 0 : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^$");
}

TEST(RingHeaderTest, timesAreRightAfterAPause) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      const auto trace = [] { RINGLOG_TRACE(9, "now"); };
      trace();
      std::this_thread::sleep_for(std::chrono::seconds{4}); // more than clocks are good for
      const double before = now();
      trace();
      const double after = now();
      const TestSupport::RingReader reader{file.bytes()};
      const double time = reader.records().back().time;
      constexpr double slack = 2e-4; // both clocks are not read at the same moment
      std::exit(time >= before - slack && time <= after + slack ? 0 : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^$");
}

} // namespace
} // namespace Ringlog
