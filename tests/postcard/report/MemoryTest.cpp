// Live objects and bytes per type, as the trackers have counted them.
#include "postcard/report/Memory.h"

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RuleConfig.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace {

using OruPostcardTelemetry::RuleConfig;
using Postcard::Report::Memory;
using Postcard::Report::processMemory;

const char* const ruleType = "OruPostcardTelemetry::RuleConfig";

Postcard::Report::TypeMemory rulesIn(const Memory& report) {
   const auto found =
         std::ranges::find(report.types, ruleType, &Postcard::Report::TypeMemory::type);
   return found == report.types.end() ? Postcard::Report::TypeMemory{} : *found;
}

TEST(Memory, countsWhatExistsAndWhatWasMade) {
   const Postcard::Report::TypeMemory before = rulesIn(processMemory());
   EXPECT_EQ(before.objectSize, sizeof(RuleConfig));
   Pello::Ptr<RuleConfig> rule{new RuleConfig{"a"}};
   const Pello::Ptr<RuleConfig> other{new RuleConfig{"b"}};
   EXPECT_EQ(rulesIn(processMemory()).live, before.live + 2);
   EXPECT_EQ(rulesIn(processMemory()).bytes(), before.bytes() + 2 * sizeof(RuleConfig));
   rule = nullptr;
   EXPECT_EQ(rulesIn(processMemory()).live, before.live + 1);
   EXPECT_EQ(rulesIn(processMemory()).total, before.total + 2);
}

TEST(Memory, asTextAndAsJson) {
   const Memory report{{{"A", 48, 2, 5}, {"Never", 16, 0, 0}, {"Gone", 100, 0, 1}}, 65536};
   EXPECT_EQ(text(report),
             "      LIVE        BYTES    EVER MADE  TYPE\n"
             "         2           96            5  A\n"
             "         0            0            1  Gone\n"
             "live objects: 96 bytes, reserved for small objects and texts: 65536 bytes\n");
   EXPECT_EQ(nlohmann::json(json(report)), nlohmann::json::parse(R"({
      "schema": 1,
      "types": [
         {"type": "A", "objectSize": 48, "live": 2, "bytes": 96, "total": 5},
         {"type": "Never", "objectSize": 16, "live": 0, "bytes": 0, "total": 0},
         {"type": "Gone", "objectSize": 100, "live": 0, "bytes": 0, "total": 1}],
      "liveBytes": 96,
      "reservedBytes": 65536})"));
}

} // namespace
