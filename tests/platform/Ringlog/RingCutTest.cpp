// The ring's file is truncated under the process, as a rotation of logs by copy and truncate does:
// the process goes on, says it once, and traces into a new ring in the file.
#include "LastRecord.h"
#include "Pello/ThreadSafety.h"
#include "Ringlog/FileReader.h"
#include "Ringlog/Trace.h"
#include "support/Sanitized.h"

#include <gtest/gtest.h>

#include <atomic>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <map>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"RingCutTest"};
using TestSupport::RingFile;

void count(U64 from, U64 to) {
   for (U64 number = from; number <= to; ++number) {
      RINGLOG_TRACE(9, "main {}", number);
   }
}

std::string cutLine(const std::string& path) {
   return "RINGLOG_FILE=" + path +
          ": the ring was truncated under the process; its older traces are lost, new ones go "
          "on\\. "
          "A ring may be copied, but must not be truncated: it never grows\n";
}

// The numbers behind the name in texts such as "main 17 end", by name, in the order of the records.
// Every text must be whole.
std::map<std::string, std::vector<U64>> numbersIn(const std::vector<std::string>& texts) {
   std::map<std::string, std::vector<U64>> numbers;
   for (const std::string& text : texts) {
      const std::size_t blank = text.find(' ');
      U64 number = 0;
      const auto [end, error] =
            std::from_chars(text.data() + blank + 1, text.data() + text.size(), number);
      EXPECT_TRUE(blank != std::string::npos && error == std::errc{}) << text;
      const std::string rest{end, text.data() + text.size()};
      EXPECT_TRUE(rest.empty() || rest == " end") << text;
      numbers[text.substr(0, blank)].push_back(number);
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

TEST(RingCutTest, aNewRingBeginsInTheFile) {
   const RingFile file;
   for (const std::size_t size : {std::size_t{0}, std::size_t{8}, headerSize, std::size_t{100'000},
                                  ringSize(0), ringSize(1), ringSize(defaultBlocks) / 2}) {
      const auto child = [&] {
         file.use();
         count(1, 100);
         ::truncate(file.path().c_str(), static_cast<off_t>(size));
         count(101, 100'000); // several times round the ring
         std::raise(SIGKILL);
      };
      EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^" + cutLine(file.path()) + "$")
            << size;
      EXPECT_EQ(file.bytes().size(), ringSize(defaultBlocks)) << size;
      const auto numbers = numbersIn(file.texts());
      EXPECT_EQ(numbers.size(), 1U) << size;
      expectCountingTo(numbers.at("main"), 100'000);
   }
}

TEST(RingCutTest, aFewTracesComeIntoTheNewRingAfterASecond) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      count(1, 3);
      ::truncate(file.path().c_str(), 0);
      count(4, 4);
      std::this_thread::sleep_for(std::chrono::seconds{3});
      count(5, 6);
      RINGLOG_TRACE(9, "other {}", 7); // described in the new ring
      std::raise(SIGKILL);
   };
   EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^" + cutLine(file.path()) + "$");
   EXPECT_EQ(file.texts(), (std::vector<std::string>{"main 5", "main 6", "other 7"}));
}

TEST(RingCutTest, aTraceOfANewCallSiteBeginsTheNewRing) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      count(1, 3);
      ::truncate(file.path().c_str(), 0);
      count(4, 4);
      RINGLOG_TRACE(9, "other {}", 5);
      count(6, 6);
      std::raise(SIGKILL);
   };
   EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^" + cutLine(file.path()) + "$");
   EXPECT_EQ(file.texts(), (std::vector<std::string>{"other 5", "main 6"}));
}

TEST(RingCutTest, itIsSaidOnceHoweverOftenItHappens) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      for (U64 round = 0; round < 50; ++round) {
         count(round * 5'000 + 1, round * 5'000 + 5'000);
         ::truncate(file.path().c_str(), 0);
      }
      count(250'001, 260'000);
      std::raise(SIGKILL);
   };
   EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^" + cutLine(file.path()) + "$");
   expectCountingTo(numbersIn(file.texts()).at("main"), 260'000);
}

void writeUntil(const std::atomic<bool>& stop, const char* name) {
   U64 number = 1;
   // Enough behind the end that the last records are in the ring of the file.
   for (U64 after = 0; after < 20'000; after += stop ? 1U : 0U) {
      RINGLOG_TRACE(9, "{} {} {}", name, number++, Pello::String{"end"});
   }
}

TEST(RingCutTest, copyAndTruncateWhileThreadsWrite) {
   if (TestSupport::threadSanitized) {
      GTEST_SKIP() << "the handler of the fault puts other memory under threads that write, which "
                      "the sanitizer takes for a race; the ring begins anew after it";
   }
   const RingFile file;
   const auto child = [&] {
      Pello::threadSafeIs(true);
      file.use();
      count(1, 1); // makes the ring, so that there is something to truncate
      std::atomic<bool> stop{false};
      std::vector<std::thread> threads;
      for (const char* name : {"alpha", "beta", "gamma", "delta"}) {
         threads.emplace_back([&stop, name] { writeUntil(stop, name); });
      }
      for (int round = 0; round < 40; ++round) {
         file.bytes(); // the copy
         // Every other time the file may be empty already, and is made longer.
         ::truncate(file.path().c_str(), round % 2 == 0 ? 0 : 700'000);
         std::this_thread::sleep_for(std::chrono::milliseconds{1});
      }
      stop = true;
      for (std::thread& thread : threads) {
         thread.join();
      }
      std::raise(SIGKILL);
   };
   EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "^" + cutLine(file.path()) + "$");
   EXPECT_EQ(file.bytes().size(), ringSize(defaultBlocks));
   const auto numbers = numbersIn(file.texts());
   EXPECT_FALSE(numbers.empty());
   for (const auto& [name, ofThread] : numbers) {
      expectCountingTo(ofThread, ofThread.back());
   }
}

TEST(RingCutTest, aReaderThatFollowsFindsTheNewRing) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      FileReader reader{file.path()};
      count(1, 3);
      bool well = reader.look().records.size() == 3;
      ::truncate(file.path().c_str(), 0);
      well = well && reader.look().records.empty();
      count(4, 10'000);
      const FileReader::Look look = reader.look();
      well = well && look.replaced && look.records.back().text == "main 10000";
      std::_Exit(well ? 0 : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^" + cutLine(file.path()) + "$");
}

TEST(RingCutTest, withoutRoomForANewRingTracesStayInMemory) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      count(1, 10);
      ::truncate(file.path().c_str(), 0);
      const rlimit limit{100'000, 100'000};
      ::setrlimit(RLIMIT_FSIZE, &limit);
      count(11, 100'000);
      const TestSupport::RingReader reader = TestSupport::readRing();
      const bool well = reader.records().back().text == "main 100000";
      std::_Exit(well && file.bytes().empty() ? 0 : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0),
               "^" + cutLine(file.path()) + "RINGLOG_FILE=" + file.path() +
                     " ignored: File too large; the ring needs 1540 KiB, and RINGLOG_SIZE sets how "
                     "many\\. Traces stay in memory\n$");
}

TEST(RingCutTest, whatSomebodyElseWritesIntoTheFileStays) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      count(1, 10);
      std::ofstream{file.path()} << "theirs"; // truncates the file
      count(11, 20'000);
      std::_Exit(TestSupport::lastRecord().text == "main 20000" ? 0 : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0),
               "^" + cutLine(file.path()) + "RINGLOG_FILE=" + file.path() +
                     " ignored: the file holds something else than a trace ring .*memory\n$");
   EXPECT_EQ(file.bytes().size(), 6U);
}

// The number of the ring's descriptor belongs to another file, which is empty and must stay so.
TEST(RingCutTest, aDescriptorThatTheProgramHasClosedIsNotUsed) {
   const RingFile file;
   const std::string other = file.path() + "-other";
   const auto child = [&] {
      file.use();
      count(1, 10);
      ::close_range(3, ~0U, 0);
      ::truncate(file.path().c_str(), 0);
      const int first = ::open(other.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
      for (int next = first + 1; next < 30; ++next) {
         ::dup2(first, next);
      }
      count(11, 20'000);
      std::_Exit(TestSupport::lastRecord().text == "main 20000" && ::lseek(first, 0, SEEK_END) == 0
                       ? 0
                       : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0),
               "^" + cutLine(file.path()) + "RINGLOG_FILE=" + file.path() +
                     " ignored: this program has closed the file; .*memory\n$");
   ::unlink(other.c_str());
}

TEST(RingCutTest, aForkedChildGoesOnToo) {
   const RingFile file;
   const auto child = [&] {
      file.use();
      count(1, 10);
      const pid_t forked = ::fork();
      if (forked == 0) {
         ::truncate(file.path().c_str(), 0);
         count(11, 20'000);
         std::_Exit(TestSupport::lastRecord().text == "main 20000" ? 0 : 1);
      }
      int status = -1;
      ::waitpid(forked, &status, 0);
      count(11, 20'000); // the parent says it, the child lost nothing that outlives it
      std::_Exit(status == 0 ? 0 : 1);
   };
   EXPECT_EXIT(child(), testing::ExitedWithCode(0), "^" + cutLine(file.path()) + "$");
   expectCountingTo(numbersIn(file.texts()).at("main"), 20'000);
}

// What a program itself does about SIGBUS, before its first trace.
extern "C" {
void endWith42(int /*signal*/) {
   std::_Exit(42);
}
void endWith43AtFault(int /*signal*/, siginfo_t* info, void* /*context*/) {
   std::_Exit(info->si_addr != nullptr ? 43 : 1);
}
void doNothing(int /*signal*/) {}
}

enum class Handler { standard, ignore, plain, informed, once };

void install(Handler handler) {
   struct sigaction action {};
   switch (handler) {
   case Handler::standard:
      action.sa_handler = SIG_DFL;
      break;
   case Handler::ignore:
      action.sa_handler = SIG_IGN;
      break;
   case Handler::plain:
      action.sa_handler = &endWith42;
      break;
   case Handler::informed:
      action.sa_sigaction = &endWith43AtFault;
      action.sa_flags = SA_SIGINFO;
      break;
   case Handler::once:
      action.sa_handler = &doNothing;
      action.sa_flags = static_cast<int>(SA_RESETHAND);
      break;
   }
   ::sigaction(SIGBUS, &action, nullptr);
}

// A page behind the end of a file that is not the ring's.
[[noreturn]] void touchLostPage() {
   char name[] = "/tmp/postcard-lost-XXXXXX";
   const int file = ::mkstemp(name);
   ::unlink(name);
   auto* page = static_cast<volatile char*>(
         ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
   *page = 1;
   std::_Exit(99); // not reached
}

TEST(RingCutTest, faultsElsewhereAreAsWithoutARing) {
   const RingFile file;
   const struct {
      Handler handler;
      int exitCode; // 0: SIGBUS ends the process
   } rows[] = {{Handler::standard, 0},
               {Handler::ignore, 0},
               {Handler::plain, 42},
               {Handler::informed, 43},
               {Handler::once, 0}};
   for (const auto& row : rows) {
      const auto child = [&] {
         install(row.handler);
         file.use();
         count(1, 10);
         ::truncate(file.path().c_str(), 0);
         count(11, 20'000); // the ring's own fault never reaches the program's handler
         touchLostPage();
      };
      const auto ended = [&](int status) {
         return row.exitCode == 0 ? WIFSIGNALED(status) && WTERMSIG(status) == SIGBUS
                                  : WIFEXITED(status) && WEXITSTATUS(status) == row.exitCode;
      };
      EXPECT_EXIT(child(), ended, "^" + cutLine(file.path()) + "$")
            << static_cast<int>(row.handler);
   }
}

TEST(RingCutTest, aSignalOfAProcessIsNoFault) {
   const RingFile file;
   const auto child = [&](Handler handler) {
      install(handler);
      file.use();
      count(1, 10);
      ::kill(::getpid(), SIGBUS);
      std::_Exit(7);
   };
   EXPECT_EXIT(child(Handler::standard), testing::KilledBySignal(SIGBUS), "^$");
   EXPECT_EXIT(child(Handler::ignore), testing::ExitedWithCode(7), "^$");
   EXPECT_EXIT(child(Handler::plain), testing::ExitedWithCode(42), "^$");
   EXPECT_EXIT(child(Handler::once), testing::ExitedWithCode(7), "^$");
}

TEST(RingCutTest, withoutARingFileThereIsNoHandler) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   const auto child = [](const char* path) {
      install(Handler::standard);
      ::setenv("RINGLOG_FILE", path, 1);
      count(1, 10);
      struct sigaction now {};
      ::sigaction(SIGBUS, nullptr, &now);
      std::_Exit(now.sa_handler == SIG_DFL ? 0 : 1);
   };
   EXPECT_EXIT(child(""), testing::ExitedWithCode(0), "^$");
   EXPECT_EXIT(child("/dev/null"), testing::ExitedWithCode(0), " ignored: ");
}

} // namespace
} // namespace Ringlog
