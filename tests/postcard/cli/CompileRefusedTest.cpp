// `postcard compile` with wrong policy files: each finding is one line on standard error with the
// file's path before it, nothing is printed, and the exit status is 2; within a second and 256 MiB.
#include "postcard/policy/file/PolicyFileFrames.h"
#include "support/RunProgram.h"
#include "support/Sanitized.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using Postcard::Policy::File::Frame;
using Postcard::Policy::File::Literal;

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

static_assert(std::size(refusedPolicies) >= 60);

// What the program writes about a file that has these findings, LINE:COLUMN: MESSAGE each.
std::string reported(const std::string& path, std::string_view findings) {
   std::string lines;
   while (!findings.empty()) {
      const std::size_t end = findings.find('\n') + 1;
      lines += path + ":";
      lines += findings.substr(0, end);
      findings.remove_prefix(end);
   }
   return lines;
}

TEST(CompileRefused, everyFindingIsReportedAndNothingIsPrinted) {
   char folder[] = "/tmp/postcard-cli-XXXXXX";
   ASSERT_NE(::mkdtemp(folder), nullptr);
   const std::string path = std::string{folder} + "/policy.yaml";
   for (const Refused& row : refusedPolicies) {
      std::ofstream{path, std::ios::binary}
            << Postcard::Policy::File::framed(row.frame, row.text.view);
      const auto result =
            TestSupport::runProgram({std::string{POSTCARD_BIN_DIR} + "/postcard", "compile", path});
      EXPECT_EQ(result.exitCode, 2) << row.name;
      EXPECT_EQ(result.out, "") << row.name;
      EXPECT_EQ(result.err, reported(path, row.findings.view)) << row.name;
      EXPECT_LT(result.seconds, TestSupport::patience) << row.name;
      if (!TestSupport::sanitized) {
         EXPECT_LT(result.peakKibibytes, 256 * 1024) << row.name;
      }
   }
   std::filesystem::remove_all(folder);
}

} // namespace
