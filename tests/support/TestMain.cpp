// The main() of every test program: GoogleTest's, and a look at the live objects around every test.
#include "support/LiveCounts.h"

#include <gtest/gtest.h>

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

int main(int argc, char** argv) {
   testing::InitGoogleTest(&argc, argv);
   testing::UnitTest::GetInstance()->listeners().Append(new LeakWatch); // which then owns it
   return RUN_ALL_TESTS();
}
