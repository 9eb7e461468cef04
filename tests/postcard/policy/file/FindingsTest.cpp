// The bounded list of findings and the wording of messages.

#include "postcard/policy/file/Findings.h"

#include "postcard/policy/file/PolicyFile.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <rapidcheck.h>
#include <string>
#include <vector>

namespace Postcard::Policy::File {
namespace {

// The oracle keeps everything and sorts.
RC_GTEST_PROP(PolicyFileFindings, keepsTheFirstOnesInFileOrder, ()) {
   const auto kept = *rc::gen::inRange<std::size_t>(0, 5);
   const auto lines = *rc::gen::container<std::vector<std::uint32_t>>(
         *rc::gen::inRange<std::size_t>(0, 300), rc::gen::inRange<std::uint32_t>(1, 9));
   Findings findings(kept);
   std::vector<Finding> all;
   for (const std::uint32_t line : lines) {
      all.push_back({{line, 1}, FindingCode::wrongValue, std::to_string(all.size())});
      findings.add(all.back().location, FindingCode::wrongValue, all.back().message);
   }
   std::stable_sort(all.begin(), all.end(), [](const Finding& left, const Finding& right) {
      return left.location < right.location;
   });
   RC_ASSERT(findings.count() == lines.size());
   RC_ASSERT(findings.empty() == lines.empty());
   const std::vector<Finding> first = findings.take();
   RC_ASSERT(first.size() == std::min(kept, all.size()));
   for (std::size_t i = 0; i < first.size(); ++i) {
      RC_ASSERT(first[i].message == all[i].message);
   }
}

TEST(PolicyFileFindings, formatted) {
   EXPECT_EQ(format("dir/a.yaml", {{3, 14}, FindingCode::unknownKey, "unknown"}),
             "dir/a.yaml:3:14: unknown");
   EXPECT_EQ(format("a.yaml", {{}, FindingCode::unreadable, "cannot open"}), "a.yaml: cannot open");
   LoadResult result;
   result.fileName = "F";
   result.findings = {{{1, 2}, FindingCode::syntax, "one"}, {{3, 4}, FindingCode::syntax, "two"}};
   EXPECT_EQ(formatFindings(result), "F:1:2: one\nF:3:4: two\n");
   result.omittedFindings = 7;
   EXPECT_EQ(formatFindings(result), "F:1:2: one\nF:3:4: two\nF: … and 7 more\n");
}

TEST(PolicyFileFindings, capIsAnOption) {
   LoadOptions options;
   options.maxFindings = 2;
   const LoadResult result = parsePolicyText("policies: [a, b, c]\nd: 1\n", "F", options);
   EXPECT_EQ(formatFindings(result), "F:1:12: expected a mapping for a policy, found 'a'\n"
                                     "F:1:15: expected a mapping for a policy, found 'b'\n"
                                     "F: … and 2 more\n");
   options.maxFindings = 0;
   const LoadResult counted = parsePolicyText("policies: 1\n", "F", options);
   EXPECT_FALSE(counted.policyFile);
   EXPECT_EQ(formatFindings(counted), "F: … and 1 more\n");
}

} // namespace
} // namespace Postcard::Policy::File
