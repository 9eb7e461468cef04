// What every test program watches: objects that a test leaves behind fail that very test.
#include "House.h"
#include "Kiv/TypeRegistry.h"
#include "support/LiveCounts.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using TestSupport::LiveCounts;

const Kiv::TypeModule leaking{"Leaking", {&House::Bulb::kivTypeData()}};

class LeakWatch : public testing::Test {
 protected:
   LeakWatch() { Kiv::registerTypeModule(leaking); }
   ~LeakWatch() override { Kiv::unregisterTypeModule(leaking.name); }
};

TEST_F(LeakWatch, differencesAreToldByType) {
   const LiveCounts before = LiveCounts::taken();
   EXPECT_EQ(LiveCounts::taken().differences(before), "");
   House::Bulb::Ptr bulb = new House::Bulb{"a"};
   const House::Bulb::Ptr other = new House::Bulb{"b"};
   const LiveCounts meanwhile = LiveCounts::taken();
   EXPECT_EQ(meanwhile.differences(before), "House::Bulb: 2 objects more than before\n");
   bulb = nullptr;
   EXPECT_EQ(LiveCounts::taken().differences(meanwhile),
             "House::Bulb: 1 objects less than before\n");
}

// Leaks when it is told to by the test below, which runs it in a process of its own.
TEST(LeakOnDemand, leavesABulb) {
   Kiv::registerTypeModule(leaking);
   static House::Bulb::Ptr left;
   if (std::getenv("POSTCARD_TEST_LEAK") != nullptr) {
      left = new House::Bulb{"left"};
   }
   EXPECT_EQ(House::Bulb::memAllocationTracker_.live(), left == nullptr ? 0U : 1U);
   if (left == nullptr) {
      Kiv::unregisterTypeModule(leaking.name);
   }
}

TEST_F(LeakWatch, aTestThatLeavesAnObjectFails) {
   const std::vector<std::string> program{POSTCARD_BIN_DIR "/test-Kiv",
                                          "--gtest_filter=LeakOnDemand.*"};
   EXPECT_EQ(TestSupport::runProgram(program).exitCode, 0);
   const auto result = TestSupport::runProgram(program, {"POSTCARD_TEST_LEAK=1"});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_NE(result.out.find("the test leaves objects behind:\n"
                             "House::Bulb: 1 objects more than before\n"),
             std::string::npos)
         << result.out;
}

} // namespace
