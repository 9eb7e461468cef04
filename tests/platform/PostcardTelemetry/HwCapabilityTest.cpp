#include "PostcardTelemetry/HwCapability.h"

#include "PostcardTelemetry/TypeModule.h"

#include <gtest/gtest.h>

namespace PostcardTelemetry {
namespace {

TEST(HwCapabilityTest, matchesNoTcpFlagsUntilItSaysSo) {
   const Pello::Ptr<HwCapability> capability{new HwCapability};
   EXPECT_FALSE(capability->tcpFlagsSupported());
   capability->tcpFlagsSupportedIs(true);
   EXPECT_TRUE(capability->tcpFlagsSupported());
   EXPECT_EQ(capability->typeData().entityText(*capability),
             "PostcardTelemetry::HwCapability(tcpFlagsSupported=true)");
   EXPECT_EQ(capability->publisher(), nullptr);
}

TEST(HwCapabilityTest, isRegistered) {
   EXPECT_EQ(typeModule().name, "PostcardTelemetry");
   EXPECT_EQ(Kiv::findType("PostcardTelemetry::HwCapability"), &HwCapability::kivTypeData());
   EXPECT_EQ(HwCapability::kivTypeData().attribute("tcpFlagsSupported").id, 130);
}

} // namespace
} // namespace PostcardTelemetry
