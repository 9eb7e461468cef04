// Good policy files: what is written is what is read.

#include "postcard/policy/file/PolicyFile.h"

#include "postcard/policy/file/PolicyFileContract.h"
#include "postcard/policy/file/PolicyFileDump.h"
#include "postcard/policy/file/PolicyFileFrames.h"

#include <gtest/gtest.h>

#include <string>

namespace Postcard::Policy::File {
namespace {

struct Accepted {
   const char* name;
   Frame frame;
   Literal text;
   Literal dump;
};

// clang-format off
const Accepted acceptedPolicies[] = {
#include "postcard/policy/file/AcceptedPolicies.inc"
};
// clang-format on

TEST(PolicyFile, whatIsWrittenIsRead) {
   for (const Accepted& row : acceptedPolicies) {
      const LoadResult result = parsePolicyText(framed(row.frame, row.text.view), "F");
      ASSERT_TRUE(result.policyFile) << row.name << "\n" << formatFindings(result);
      EXPECT_EQ(dump(*result.policyFile), row.dump.view) << row.name;
      EXPECT_EQ(brokenPromise(*result.policyFile), "") << row.name;
   }
}

TEST(PolicyFile, resultIsOneOrTheOther) {
   const LoadResult good = parsePolicyText("policies: []\n", "good.yaml");
   EXPECT_EQ(good.fileName, "good.yaml");
   EXPECT_TRUE(good.policyFile && good.findings.empty() && good.omittedFindings == 0);
   const LoadResult bad = parsePolicyText("policies: 1\n", "bad.yaml");
   EXPECT_EQ(bad.fileName, "bad.yaml");
   EXPECT_TRUE(!bad.policyFile && bad.findings.size() == 1 && bad.omittedFindings == 0);
}

TEST(PolicyFile, anEmptyListIsWritten) {
   const LoadResult none = parsePolicyText("hardware: {}\npolicies: []\n", "F");
   ASSERT_TRUE(none.policyFile);
   EXPECT_TRUE(none.policyFile->emptyListWritten());
   EXPECT_EQ(none.policyFile->policiesLocation, (Location{2, 11}));
   EXPECT_FALSE(parsePolicyText("policies:\n", "F").policyFile);
   EXPECT_FALSE(parsePolicyText("hardware: {}\n", "F").policyFile);
   EXPECT_FALSE(parsePolicyText(framed(Frame::policy, ""), "F").policyFile->emptyListWritten());
   EXPECT_FALSE(PolicyFile{}.emptyListWritten());
}

TEST(PolicyFile, togglesAreThoseOfTheOptions) {
   const std::string entries =
         framed(Frame::ipv4,
                "      protocols: [{protocol: tcp, ports: [{source: [1]}, {source: [2]}]}]\n");
   LoadOptions options;
   EXPECT_TRUE(parsePolicyText(entries, "F", options).policyFile);
   options.toggles = {{"FeaturePostcardTelemetryTcpControl", false}, {"Other", true}};
   EXPECT_FALSE(parsePolicyText(entries, "F", options).policyFile);
   const std::string on = "feature-toggles: {FeaturePostcardTelemetryTcpControl: true, Other: "
                          "false}\n";
   const LoadResult result = parsePolicyText(on + entries, "F", options);
   ASSERT_TRUE(result.policyFile);
   EXPECT_EQ(result.policyFile->featureToggles,
             (ToggleMap{{"FeaturePostcardTelemetryTcpControl", true}, {"Other", false}}));
   // What the file does not set is as the options have it.
   EXPECT_EQ(parsePolicyText(framed(Frame::policy, ""), "F", options).policyFile->featureToggles,
             options.toggles);
   options.toggles = {};
   EXPECT_TRUE(parsePolicyText(entries, "F", options).policyFile);
}

TEST(PolicyFile, togglesAreTheDeclaredOnesByDefault) {
   EXPECT_EQ(LoadOptions{}.toggles, declaredToggles());
}

TEST(PolicyFile, filterAndInterfacesByFamily) {
   const LoadResult result = parsePolicyText(framed(Frame::klass, "    ipv6: {}\n"), "F");
   ASSERT_TRUE(result.policyFile);
   const Policy& policy = result.policyFile->policies[0];
   EXPECT_EQ(policy.classes[0].filter(Family::ipv4), nullptr);
   EXPECT_EQ(policy.classes[0].filter(Family::ipv6), &*policy.classes[0].ipv6);
   EXPECT_EQ(&policy.interfaces(Family::ipv4), &policy.ipv4Interfaces);
   EXPECT_EQ(&policy.interfaces(Family::ipv6), &policy.ipv6Interfaces);
}

TEST(PolicyFile, longestNameAndGreatestNumbers) {
   const std::string text =
         framed(Frame::policy,
                "  scope: " + std::string(255, 's') +
                      "\n  classes: [{name: c, priority: 4294967295}, {name: d, priority: 0}]\n");
   const LoadResult result = parsePolicyText(text, "F");
   ASSERT_TRUE(result.policyFile) << formatFindings(result);
   EXPECT_EQ(result.policyFile->policies[0].scope.size(), 255U);
   EXPECT_EQ(result.policyFile->policies[0].classes[0].priority, 4294967295U);
}

} // namespace
} // namespace Postcard::Policy::File
