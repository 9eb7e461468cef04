// The main() of every test program: GoogleTest's, a look at the live objects around every test, and
// in a build that counts lines, the counts of processes that end by an assertion.
#include "support/LiveCounts.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

class LeakWatch : public testing::EmptyTestEventListener {
   void OnTestStart(const testing::TestInfo&) override {
      before_ = TestSupport::LiveCounts::taken();
   }
   // Fixtures are gone by now, and the test can still fail.
   void OnTestEnd(const testing::TestInfo&) override {
      const std::string differences = TestSupport::LiveCounts::taken().differences(before_);
      if (!differences.empty()) {
         ADD_FAILURE() << "the test leaves objects behind:\n" << differences;
      }
   }

   TestSupport::LiveCounts before_;
};

} // namespace

// Of the compiler's run-time library for line counts; null in other builds.
extern "C" [[gnu::weak]] void __gcov_dump();

int main(int argc, char** argv) {
   if (&__gcov_dump != nullptr) {
      std::signal(SIGABRT, [](int) { __gcov_dump(); }); // and `abort` goes on
   }
   testing::InitGoogleTest(&argc, argv);
   testing::UnitTest::GetInstance()->listeners().Append(new LeakWatch); // which then owns it
   return RUN_ALL_TESTS();
}
