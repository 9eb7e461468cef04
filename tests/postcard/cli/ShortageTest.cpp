// The program when memory or file descriptors are short: it says what it was doing and what the
// user can do, and no output that is cut passes for whole.
#include "support/Examples.h"
#include "support/RunProgram.h"
#include "support/Sanitized.h"
#include "support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>

namespace {

using TestSupport::program;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

const std::string webTier = TestSupport::examples + "web-tier.yaml";

// Runs the program under a limit of the shell's `ulimit`, without the files that this process has
// open.
ProgramResult limited(const std::string& limit, std::vector<std::string> arguments) {
   arguments.insert(arguments.begin(),
                    {"/bin/sh", "-c",
                     "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit " + limit + "; exec \"$@\"",
                     "sh", program});
   return runProgram(std::move(arguments));
}

// A policy of `classes` classes, each of which makes 1,800 rules.
std::string largePolicy(int classes) {
   std::string text = "policies:\n  - name: big\n    interfaces: { ipv4: [Ethernet1] }\n"
                      "    classes:\n";
   const std::string ports = "ports: [{ source: [1-65534], destination: [1-65534] }]";
   for (int i = 0; i < classes; ++i) {
      text +=
            fmt::format("      - {{ name: c{}, actions: [sample], ipv4: {{ source: [10.0.{}.0/24], "
                        "protocols: [{{ protocol: tcp, {} }}, {{ protocol: udp, {} }}] }} }}\n",
                        i, i, ports, ports);
   }
   return text;
}

TEST(Shortage, tooFewDescriptorsAreAMessage) {
   if (TestSupport::sanitized) {
      GTEST_SKIP()
            << "the sanitizer looks at memory through a pipe, for which it needs descriptors";
   }
   for (int limit = 4; limit <= 30; ++limit) {
      for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
                 {"compile", webTier},
                 {"compile", "--format", "json", webTier},
                 {"check", webTier},
                 {"types"},
                 {"status", "--socket", "/nonexistent/socket"},
                 {"agent", "--socket", "/nonexistent/socket", webTier}}) {
         const auto result = limited(fmt::format("-n {}", limit), arguments);
         const std::string what =
               fmt::format("{} with {} descriptors: {}", arguments.front(), limit, result.err);
         EXPECT_EQ(result.signal, 0) << what;
         const bool tooFew =
               result.err.find("(ulimit -n; LimitNOFILE= of a unit)\n") != std::string::npos;
         const bool asEver = result.err.find("/nonexistent/socket") != std::string::npos;
         EXPECT_TRUE(result.exitCode == 0 || (result.exitCode == 3 && (tooFew || asEver))) << what;
      }
   }
   EXPECT_EQ(limited("-n 5", {"agent", webTier}).err,
             "postcard: this command needs 4 file descriptors, and 2 are free; raise the limit of "
             "the process (ulimit -n; LimitNOFILE= of a unit)\n");
}

// Wherever memory runs out: enough steps to meet reading, compiling, analysing and writing.
TEST(Shortage, shortMemoryIsAMessageAndJsonIsCut) {
   if (TestSupport::sanitized) {
      GTEST_SKIP() << "the sanitizer needs terabytes of address space";
   }
   const TestSupport::TemporaryFolder folder;
   const std::string file = folder.write("big.yaml", largePolicy(12));
   std::map<std::string, int> during;
   for (const char* command : {"compile", "check"}) {
      const std::vector<std::string> arguments{command, "--format", "json", file};
      const std::string whole = limited("-v unlimited", arguments).out;
      ASSERT_TRUE(nlohmann::json::accept(whole)) << command;
      bool done = false;
      for (int kibibytes = 20'000; !done && kibibytes <= 120'000; kibibytes += 1'500) {
         const auto result = limited(fmt::format("-v {}", kibibytes), arguments);
         const std::string what = fmt::format("{} in {} KiB: {}", command, kibibytes, result.err);
         if (result.exitCode == 0) {
            EXPECT_TRUE(result.out == whole) << what;
            done = true;
            continue;
         }
         if (result.exitCode == 127) { // the loader had no room for the libraries
            continue;
         }
         EXPECT_EQ(result.exitCode, 3) << what;
         EXPECT_LT(result.out.size(), whole.size()) << what;
         EXPECT_TRUE(whole.starts_with(result.out)) << what;
         EXPECT_NE(result.err.find("raise the limit of the process (ulimit -v)"), std::string::npos)
               << what;
         for (const std::string& work : {"compiling policy 'big', ipv4, of " + file + " (1 of 1);",
                                         "preparing the analysis of policy file " + file + ";"}) {
            during[work.substr(0, work.find(' '))] +=
                  result.err.find("out of memory while " + work) != std::string::npos;
         }
      }
   }
   EXPECT_GT(during["compiling"], 0);
   EXPECT_GT(during["preparing"], 0);
}

// A limit of the file's size raises a signal, which by itself ends a process without a word.
TEST(Shortage, aResultThatIsTooLargeForItsFileIsAMessage) {
   const TestSupport::TemporaryFolder folder;
   for (const char* command : {"compile", "compile --format json", "compile --format list"}) {
      const auto result =
            runProgram({"/bin/sh", "-c",
                        fmt::format("ulimit -f 1; exec {} {} {} > {}", program, command,
                                    POSTCARD_SOURCE_DIR "/examples/large-datacenter.yaml",
                                    folder.path("out"))});
      EXPECT_EQ(result.signal, 0) << command;
      EXPECT_EQ(result.exitCode, 3) << command;
      EXPECT_NE(result.err.find("postcard: standard output: "), std::string::npos) << result.err;
   }
}

// As a stream: writing takes next to no memory beside the ACL.
TEST(Shortage, jsonTakesNoMoreMemoryThanTheAcl) {
   if (TestSupport::sanitized) {
      GTEST_SKIP() << "the sanitizer keeps freed memory";
   }
   const TestSupport::TemporaryFolder folder;
   const std::string file = folder.write("big.yaml", largePolicy(56));
   const auto acl = runProgram({program, "check", file});
   const auto json = runProgram({"/bin/sh", "-c", "exec \"$@\" > /dev/null", "sh", program,
                                 "compile", "--format", "json", file});
   EXPECT_EQ(acl.exitCode, 0);
   EXPECT_EQ(json.exitCode, 0);
   EXPECT_LT(json.peakKibibytes, acl.peakKibibytes + 16 * 1024);
   RecordProperty("aclKibibytes", std::to_string(acl.peakKibibytes));
   RecordProperty("jsonKibibytes", std::to_string(json.peakKibibytes));
}

} // namespace
