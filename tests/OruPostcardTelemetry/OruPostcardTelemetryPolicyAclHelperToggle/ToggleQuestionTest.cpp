// What the helper asks the feature-toggle library, how often, and what it makes of the answer. This
// program answers in the library's place.
#include "FeatureToggle/FeatureToggle.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/TcpControl.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

U32 answer = 0;
std::string asked;

} // namespace

U32 FeatureToggle::getToggleState(std::string_view name, std::string_view toggleFile,
                                  bool defaultState) {
   asked.append(name).append(" ").append(toggleFile).append(defaultState ? " on;" : " off;");
   return answer;
}

namespace OruPostcardTelemetry {
namespace {

// The answer is kept by the process, so each of these runs in one of its own.
class ToggleQuestionDeathTest : public testing::Test {
 protected:
   ToggleQuestionDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
   // Asks twice, with another answer the second time, and shows what came of it.
   [[noreturn]] static void askTwice(U32 first) {
      answer = first;
      const bool on = toggleFeaturePostcardTelemetryTcpControlEnabled();
      answer = first + 1;
      const bool still = toggleFeaturePostcardTelemetryTcpControlEnabled();
      std::fprintf(stderr, "%d %d %s\n", on ? 1 : 0, still ? 1 : 0, asked.c_str());
      std::_Exit(0);
   }
};

TEST_F(ToggleQuestionDeathTest, theLowestBitOfTheFirstAnswerCounts) {
   const std::string question =
         "FeaturePostcardTelemetryTcpControl PostcardTelemetryCommon\\.json on;\n$";
   for (const U32 first : {0U, 1U, 2U, 3U, 0xffff'fffeU, 0x8000'0001U}) {
      const std::string on = first % 2 == 1 ? "1" : "0";
      EXPECT_EXIT(askTwice(first), testing::ExitedWithCode(0),
                  "^" + on + " " + on + " " + question);
   }
}

} // namespace
} // namespace OruPostcardTelemetry
