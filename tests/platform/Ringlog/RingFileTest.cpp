// The ring of another process: in a file, of a given size, after any end of the process. Every
// process here is started afresh, so that its first trace opens its ring.
#include "LastRecord.h"
#include "Orlix/IpGenPrefix.h"
#include "Pello/Assert.h"
#include "Ringlog/Trace.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"RingFileTest"};
using Texts = std::vector<std::string>;
using TestSupport::RingFile;

void trace(std::string_view text) {
   RINGLOG_TRACE(5, "traced {}", text);
}

// Ends the process with 0 when all is as expected.
[[noreturn]] void endWith(bool expected) {
   std::exit(expected ? 0 : 1);
}

TEST(RingFileTest, aProcessThatHasNotTracedHasNoRing) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      const bool none = snapshot().empty();
      trace("first");
      endWith(none && !snapshot().empty());
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^$");
}

TEST(RingFileTest, tracesOutliveAProcessThatIsKilled) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      trace("one");
      RINGLOG_TRACE(8, "{} {}", Orlix::IpGenPrefix{"10.0.0.0/8"}, 7);
      std::raise(SIGKILL);
   };
   EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^$");
   EXPECT_EQ(file.texts(), (Texts{"traced one", "10.0.0.0/8 7"}));
   EXPECT_EQ(file.bytes().size(), ringSize(defaultBlocks));
}

TEST(RingFileTest, aFailedAssertionIsTheLastTrace) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      trace("before");
      Pello::assertionFailed({"Folder/File.cpp", 12, "void f()"}, "a == b", "because");
   };
   const std::string line = "Folder/File.cpp:12: void f(): Assertion 'a == b' failed: because";
   EXPECT_EXIT(child(), testing::KilledBySignal(SIGABRT),
               "^Folder/File.cpp:12: void f\\(\\): Assertion 'a == b' failed: because\n$");
   EXPECT_EQ(file.texts(), (Texts{"traced before", line}));
   const TestSupport::RingReader reader{file.bytes()};
   EXPECT_EQ(reader.records().back().site->level, 0U);
   EXPECT_EQ(reader.records().back().site->source, "Ringlog");
}

TEST(RingFileTest, theFileKeepsTheNewestOfManyTraces) {
   const RingFile file;
   const auto child = [&] {
      ::setenv("RINGLOG_SIZE", "128", 1);
      file.use();
      for (int i = 0; i < 50'000; ++i) {
         RINGLOG_TRACE(9, "{}", i);
      }
      std::raise(SIGKILL);
   };
   EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^$");
   const Texts texts = file.texts();
   EXPECT_EQ(file.bytes().size(), ringSize(2));
   ASSERT_GT(texts.size(), blockCapacity / 24);
   for (std::size_t i = 0; i < texts.size(); ++i) {
      ASSERT_EQ(texts[texts.size() - 1 - i], std::to_string(49'999 - i));
   }
}

TEST(RingFileTest, sizes) {
   struct Row {
      const char* setting;
      std::size_t blocks;
      std::string message;
   };
   const std::string range = " ignored: expected a number of KiB from 128 to 4194304\n$";
   const Row rows[] = {
         {"128", 2, "^$"},
         {"1024", 16, "^$"},
         {"200", 3, "^$"}, // whole blocks
         {"127", defaultBlocks, "^RINGLOG_SIZE=127" + range},
         {"4194305", defaultBlocks, "^RINGLOG_SIZE=4194305" + range},
         {"99999999999999999999", defaultBlocks, "^RINGLOG_SIZE=99999999999999999999" + range},
         {"-128", defaultBlocks, "^RINGLOG_SIZE=-128" + range},
         {"1024k", defaultBlocks, "^RINGLOG_SIZE=1024k" + range},
         {" 1024", defaultBlocks, "^RINGLOG_SIZE= 1024" + range},
         {"", defaultBlocks, "^RINGLOG_SIZE=" + range},
   };
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   for (const Row& row : rows) {
      const auto child = [&row] {
         ::setenv("RINGLOG_SIZE", row.setting, 1);
         trace("first");
         endWith(snapshot().size() == ringSize(row.blocks) &&
                 TestSupport::lastRecord().text == "traced first");
      };
      EXPECT_EXIT(child(), testing::ExitedWithCode(0), row.message) << row.setting;
   }
}

// Forks; the parent waits for the child, which ends with 0 when `inChild` says so.
template <class InChild>
bool forkedWell(InChild inChild) {
   const pid_t child = ::fork();
   if (child == 0) {
      std::_Exit(inChild() ? 0 : 1); // nothing of the parent's is to be ended here
   }
   int status = -1;
   ::waitpid(child, &status, 0);
   return status == 0;
}

TEST(RingFileTest, aForkedChildTracesIntoPagesOfItsOwn) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      trace("before");
      const bool well = forkedWell([] {
         for (int i = 0; i < 100'000; ++i) {
            trace("of the child");
         }
         const TestSupport::RingReader reader = TestSupport::readRing();
         return reader.records().back().text == "traced of the child" &&
                reader.processId() == static_cast<U32>(::getpid());
      });
      trace(well ? "after" : "the child failed");
      std::raise(SIGKILL);
   };
   EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^$");
   EXPECT_EQ(file.texts(), (Texts{"traced before", "traced after"}));
}

TEST(RingFileTest, aChildForkedWhileOthersTraceCanTrace) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   const auto child = [] {
      // Made once: the sanitizers' own allocator cannot be forked while it is at work.
      const std::string text(4000, 'x');
      std::atomic<bool> started{false};
      std::atomic<bool> stop{false};
      std::thread busy{[&] {
         while (!stop) {
            trace(text); // claims a block every 16th time
            started = true;
         }
      }};
      while (!started) {
         std::this_thread::yield();
      }
      bool well = true;
      for (int i = 0; i < 100; ++i) {
         well = well && forkedWell([] {
                   ::alarm(20); // ends a child that waits for ever
                   trace("child");
                   return TestSupport::lastRecord().text == "traced child";
                });
      }
      stop = true;
      busy.join();
      endWith(well);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^$");
}

TEST(RingFileTest, blocksOfThreadsThatDidNotComeAlongAreFreeInTheChild) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   const auto child = [] {
      ::setenv("RINGLOG_SIZE", "128", 1);
      std::atomic<int> step{0};
      std::thread other{[&] {
         trace("other");
         step = 1;
         step.notify_all();
         step.wait(1);
      }};
      step.wait(0);
      trace("main");
      const bool well = forkedWell([] {
         for (int i = 0; i < 10'000; ++i) {
            trace("child");
         }
         return TestSupport::readRing().lostBlocks() == 0;
      });
      step = 2;
      step.notify_all();
      other.join();
      endWith(well);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^$");
}

} // namespace
} // namespace Ringlog
