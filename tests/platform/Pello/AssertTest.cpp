// How a broken contract ends the process: the whole line, once, then an abort.
#include "Pello/Assert.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

constexpr Pello::AssertionSite site{"room/File.cpp", 42, "void Class::work( int )"};

class AssertDeathTest : public testing::Test {
 protected:
   ~AssertDeathTest() override { Pello::assertionHookIs(nullptr); }

   // A pattern that fits exactly `text`.
   static std::string exactly(const std::string& text) {
      std::string pattern = "^";
      for (const char c : text) {
         pattern += std::string{"^$.*+?()[]{}|\\"}.find(c) == std::string::npos ? "" : "\\";
         pattern += c;
      }
      return pattern + "$";
   }
};

void sayHook(const Pello::AssertionSite& where, std::string_view line) {
   std::fprintf(stderr, "hook %u<%.*s>\n", where.line, static_cast<int>(line.size()), line.data());
}

void breakAnotherContract(const Pello::AssertionSite&, std::string_view) {
   Pello::assertionFailed({"room/Hook.cpp", 7, "hook"}, "inner", {});
}

TEST_F(AssertDeathTest, writesTheWholeLineAndAborts) {
   EXPECT_EXIT(Pello::assertionFailed(site, "a == b", "they differ"),
               testing::KilledBySignal(SIGABRT),
               exactly("room/File.cpp:42: void Class::work( int ): Assertion 'a == b' failed: "
                       "they differ\n"));
}

TEST_F(AssertDeathTest, withoutMessageThereIsNoColon) {
   EXPECT_EXIT(Pello::assertionFailed(site, "false"), testing::KilledBySignal(SIGABRT),
               exactly("room/File.cpp:42: void Class::work( int ): Assertion 'false' failed\n"));
}

TEST_F(AssertDeathTest, theHookGetsTheFinishedLineBeforeItIsWritten) {
   Pello::assertionHookIs(&sayHook);
   const std::string line =
         "room/File.cpp:42: void Class::work( int ): Assertion 'x' failed: message";
   EXPECT_EXIT(Pello::assertionFailed(site, "x", "message"), testing::KilledBySignal(SIGABRT),
               exactly("hook 42<" + line + ">\n" + line + "\n"));
}

TEST_F(AssertDeathTest, nullTakesTheHookAway) {
   Pello::assertionHookIs(&sayHook);
   Pello::assertionHookIs(nullptr);
   EXPECT_EXIT(Pello::assertionFailed(site, "x"), testing::KilledBySignal(SIGABRT),
               exactly("room/File.cpp:42: void Class::work( int ): Assertion 'x' failed\n"));
}

TEST_F(AssertDeathTest, aHookThatBreaksAContractIsNotCalledForThat) {
   Pello::assertionHookIs(&breakAnotherContract);
   EXPECT_EXIT(Pello::assertionFailed(site, "x"), testing::KilledBySignal(SIGABRT),
               exactly("room/File.cpp:42: void Class::work( int ): Assertion 'x' failed\n"
                       "room/Hook.cpp:7: hook: Assertion 'inner' failed\n"));
}

} // namespace
