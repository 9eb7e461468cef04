// Every way to write a wrong policy file that we thought of, with the exact findings.

#include "postcard/policy/file/PolicyFile.h"
#include "postcard/policy/file/PolicyFileFrames.h"

#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <string>

namespace Postcard::Policy::File {
namespace {

struct Refused {
   const char* name;
   Frame frame;
   Literal text;
   Literal findings;
};

// clang-format off
const Refused refusedPolicies[] = {
#include "postcard/policy/file/RefusedPolicies.inc"
};
// clang-format on

static_assert(std::size(refusedPolicies) >= 70);

TEST(PolicyFileRefusal, findingsAreExact) {
   for (const Refused& row : refusedPolicies) {
      const LoadResult result = parsePolicyText(framed(row.frame, row.text.view), "F");
      EXPECT_EQ(findingsOf(result), row.findings.view) << row.name;
      EXPECT_FALSE(result.policyFile.has_value()) << row.name;
   }
}

TEST(PolicyFileRefusal, locationsAreInOrderAndWithinTheFile) {
   for (const Refused& row : refusedPolicies) {
      const std::string text = framed(row.frame, row.text.view);
      const LoadResult result = parsePolicyText(text, "F");
      Location last{1, 1};
      for (const Finding& finding : result.findings) {
         EXPECT_TRUE(isWithin(finding.location, text)) << row.name << ": " << finding.message;
         EXPECT_LE(last, finding.location) << row.name;
         last = finding.location;
      }
   }
}

TEST(PolicyFileRefusal, namesAreUnique) {
   std::set<std::string> names;
   for (const Refused& row : refusedPolicies) {
      EXPECT_TRUE(names.insert(row.name).second) << row.name;
   }
}

TEST(PolicyFileRefusal, frameAloneIsAccepted) {
   EXPECT_TRUE(parsePolicyText(framed(Frame::policy, ""), "F").policyFile);
   EXPECT_TRUE(parsePolicyText(framed(Frame::klass, ""), "F").policyFile);
   EXPECT_TRUE(parsePolicyText(framed(Frame::ipv4, "      fragments: false\n"), "F").policyFile);
   EXPECT_TRUE(parsePolicyText(framed(Frame::ipv6, "      fragments: false\n"), "F").policyFile);
}

} // namespace
} // namespace Postcard::Policy::File
