// Looks at the ring file of a process that is writing it with several threads: no record is read
// twice, half, or unaccounted for.
#include "LastRecord.h"
#include "Pello/ThreadSafety.h"
#include "Ringlog/FileReader.h"
#include "Ringlog/Trace.h"
#include "support/BackgroundProgram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <thread>

namespace Ringlog {
namespace {

using TestSupport::BackgroundProgram;
using TestSupport::RingFile;

const Pello::TraceSource traceSource{"FileReaderTest"};

constexpr U64 recordsPerThread = 250'000;
constexpr unsigned writerThreads = 4;

// Not a test: what the process does that the next tests read from.
TEST(FileReaderWriter, DISABLED_writesWithSeveralThreads) {
   Pello::threadSafeIs(true);
   std::vector<std::thread> threads;
   for (unsigned thread = 0; thread < writerThreads; ++thread) {
      threads.emplace_back([] {
         for (U64 i = 1; i <= recordsPerThread; ++i) {
            RINGLOG_TRACE(9, "{} {}", i, std::string_view{"0123456789"}.substr(i % 10));
            if (i % 1000 == 0) { // so that it takes a while, on a busy machine too
               std::this_thread::sleep_for(std::chrono::milliseconds{1});
            }
         }
      });
   }
   for (std::thread& thread : threads) {
      thread.join();
   }
}

// What a reader saw of each thread: numbers must count up, however many are missing, and every
// text must be whole.
class Witness {
 public:
   void see(const Record& record) {
      const std::string& text = record.text;
      U64 number = 0;
      std::from_chars(text.data(), text.data() + text.size(), number);
      const std::string whole =
            std::to_string(number) + " " + std::string{"0123456789"}.substr(number % 10);
      EXPECT_EQ(text, whole);
      EXPECT_GT(number, numbers_[record.thread]);
      numbers_[record.thread] = number;
      ++count_;
   }
   U64 count() const { return count_; }
   const std::map<U32, U64>& numbers() const { return numbers_; }

 private:
   std::map<U32, U64> numbers_; // the latest one by thread
   U64 count_ = 0;
};

struct Totals {
   Witness witness;
   U64 before = 0; // gone at the first look
   U64 missed = 0;
   U64 looks = 0;

   U64 all() const { return before + missed + witness.count(); }
};

// Reads what a process of its own traces into a ring of `kibibytes`, with a pause between looks.
Totals readWhileWritten(const char* kibibytes, std::chrono::milliseconds pause) {
   const RingFile file;
   BackgroundProgram writer{
         {"/proc/self/exe", "--gtest_also_run_disabled_tests", "--gtest_filter=FileReaderWriter.*"},
         {"RINGLOG_FILE=" + file.path(), std::string{"RINGLOG_SIZE="} + kibibytes,
          "GTEST_BRIEF=1"}};
   FileReader reader{file.path()};
   Totals totals;
   const auto look = [&] {
      const FileReader::Look seen = reader.look();
      for (const Record& record : seen.records) {
         totals.witness.see(record);
      }
      totals.missed += seen.missed;
      ++totals.looks;
   };
   const auto begun = [&] {
      try {
         look();
         return true;
      } catch (const std::exception&) {
         return false; // there is no ring yet
      }
   };
   EXPECT_TRUE(TestSupport::eventually(begun));
   totals.before = reader.facts().overwritten;
   siginfo_t end{};
   while (::waitid(P_PID, static_cast<id_t>(writer.process()), &end, WEXITED | WNOHANG | WNOWAIT) ==
                0 &&
          end.si_pid == 0) {
      look();
      std::this_thread::sleep_for(pause);
   }
   EXPECT_EQ(writer.wait().exitCode, 0);
   look();
   EXPECT_EQ(reader.damagedBlocks(), 0U);
   EXPECT_EQ(reader.undescribed(), 0U);
   EXPECT_EQ(reader.facts().lostBlocks, 0U);
   totals.missed += reader.look().missed;
   return totals;
}

TEST(FileReaderLiveTest, everyRecordIsReadOnceOrCountedAsMissed) {
   // Sixteen blocks for four threads; the ring turns many times.
   const Totals totals = readWhileWritten("1024", std::chrono::milliseconds{0});
   EXPECT_GT(totals.looks, 2U);
   EXPECT_GT(totals.witness.count(), 1024U * 1024 / 100);
   EXPECT_LE(totals.witness.numbers().size(), writerThreads);
   U64 newest = 0;
   for (const auto& [thread, number] : totals.witness.numbers()) {
      newest = std::max(newest, number);
   }
   EXPECT_EQ(newest, recordsPerThread);
   EXPECT_EQ(totals.all(), recordsPerThread * writerThreads);
}

TEST(FileReaderLiveTest, aSlowReaderMissesRecordsAndNoHalfOnes) {
   const Totals totals = readWhileWritten("512", std::chrono::milliseconds{20});
   EXPECT_GT(totals.missed, 0U);
   EXPECT_EQ(totals.all(), recordsPerThread * writerThreads);
}

TEST(FileReaderLiveTest, aReaderThatKeepsUpMissesNothing) {
   // Room for everything.
   const Totals totals = readWhileWritten("65536", std::chrono::milliseconds{1});
   EXPECT_EQ(totals.before + totals.missed, 0U);
   EXPECT_EQ(totals.witness.count(), recordsPerThread * writerThreads);
}

} // namespace
} // namespace Ringlog
