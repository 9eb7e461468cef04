// The feature toggles of a policy file, and the platform's.
#include "postcard/policy/FeatureToggles.h"

#include "FeatureToggle/FeatureToggle.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace Postcard::Policy {
namespace {

constexpr const char* toggleFile = "PostcardTelemetryCommon.json";

TEST(FeatureToggles, areDeclaredBesideThePlatform) {
   const std::string name{tcpControlToggle};
   EXPECT_EQ(name, "FeaturePostcardTelemetryTcpControl");
   EXPECT_EQ(declaredToggles(), (ToggleMap{{name, true}}));
   const TestSupport::TemporaryFolder folder;
   folder.write(toggleFile,
                R"({"toggles": {"FeaturePostcardTelemetryTcpControl": {"default": false}}})");
   FeatureToggle::toggleDirectoryIs(folder.path(""));
   FeatureToggle::toggleOverrideIs(name, true); // as an earlier file of this process set it
   EXPECT_EQ(declaredToggles(), (ToggleMap{{name, false}}));
   FeatureToggle::toggleOverridesDelAll();
   FeatureToggle::toggleDirectoryIs({});
}

TEST(FeatureToggles, thoseOfAFileHoldWhateverIsDeclared) {
   applyFeatureToggles({{"One", false}, {"Two", true}});
   EXPECT_EQ(FeatureToggle::getToggleState("One", toggleFile, true), 0U);
   EXPECT_EQ(FeatureToggle::getToggleState("Two", toggleFile, false), 1U);
   EXPECT_EQ(FeatureToggle::getToggleState(tcpControlToggle, toggleFile, false), 1U);
   applyFeatureToggles({{"One", true}});
   EXPECT_EQ(FeatureToggle::getToggleState("One", toggleFile, false), 1U);
   EXPECT_EQ(FeatureToggle::getToggleState("Two", toggleFile, false), 1U);
   FeatureToggle::toggleOverridesDelAll();
}

} // namespace
} // namespace Postcard::Policy
