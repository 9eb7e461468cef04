// `postcard report`, the real program with the real module: where the page goes, and every exit
// status. What stands in a page is tested in report/page.
#include "support/CaptureBytes.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using TestSupport::ProgramResult;
using TestSupport::runProgram;

const std::string examples = std::string{POSTCARD_SOURCE_DIR} + "/examples/";

class ReportPage : public testing::Test {
 protected:
   static ProgramResult report(std::vector<std::string> arguments) {
      arguments.insert(arguments.begin(), {std::string{POSTCARD_BIN_DIR} + "/postcard", "report"});
      return runProgram(std::move(arguments));
   }
   std::string write(const std::string& name, const std::string& text) const {
      return folder_.write(name, text);
   }
   static std::string read(const std::string& path) {
      std::ostringstream text;
      text << std::ifstream{path}.rdbuf();
      return text.str();
   }
   static bool isPage(const std::string& text) {
      return text.starts_with("<!doctype html>\n") && text.ends_with("</html>\n");
   }

 private:
   TestSupport::TemporaryFolder folder_;
};

TEST_F(ReportPage, goesToStandardOutputOrIntoAFile) {
   const ProgramResult printed = report({examples + "web-tier.yaml"});
   EXPECT_EQ(printed.exitCode, 0);
   EXPECT_EQ(printed.err, "");
   EXPECT_TRUE(isPage(printed.out));
   const std::string page = write("page.html", "what stood here before");
   const ProgramResult written = report({examples + "web-tier.yaml", "-o", page});
   EXPECT_EQ(written.exitCode, 0);
   EXPECT_EQ(written.out + written.err, "");
   EXPECT_EQ(read(page), printed.out); // the same file gives the same page
   EXPECT_EQ(report({examples + "web-tier.yaml", "--output", "-"}).out, printed.out);
}

TEST_F(ReportPage, choicesMakeAnotherPage) {
   const std::string whole = report({examples + "web-tier.yaml"}).out;
   EXPECT_LT(report({examples + "web-tier.yaml", "--family", "ipv6"}).out.size(), whole.size());
   EXPECT_EQ(report({examples + "web-tier.yaml", "--policy", "web-tier"}).out, whole);
}

TEST_F(ReportPage, aRefusedPolicyIsSaidAndThePageIsWritten) {
   const ProgramResult result = report({examples + "all-features.yaml"});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_TRUE(result.err.starts_with("not-for-this-hardware ipv4: Unsupported match(es): "));
   EXPECT_TRUE(isPage(result.out));
}

TEST_F(ReportPage, aCaptureThatWasCutOffIsShownAsFarAsItGoes) {
   TestSupport::Capture capture;
   capture.add(TestSupport::packet({}));
   const std::string whole = write("whole.pcap", TestSupport::textOf(capture.bytes));
   EXPECT_EQ(report({examples + "web-tier.yaml", "--pcap", whole}).exitCode, 0);
   capture.bytes.resize(capture.bytes.size() - 1);
   const std::string cut = write("cut.pcap", TestSupport::textOf(capture.bytes));
   const ProgramResult result = report({examples + "web-tier.yaml", "--pcap", cut});
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_TRUE(result.err.starts_with(cut + ": ")) << result.err;
   EXPECT_TRUE(isPage(result.out));
}

TEST_F(ReportPage, whatCannotBeUsed) {
   const std::string policy = write("policy.yaml", read(examples + "web-tier.yaml"));
   const std::string page = write("page.html", "before");
   struct Row {
      std::vector<std::string> arguments;
      int exitCode;
      std::string err; // how it begins
   };
   const Row rows[] = {
         {{policy, "-o", policy},
          2,
          "postcard report: --output: the page would replace '" + policy + "'\n"},
         {{policy, "--pcap", page, "-o", page},
          2,
          "postcard report: --output: the page would replace '" + page + "'\n"},
         {{"-", "--pcap", "-"},
          2,
          "postcard report: standard input can be read once, as policy file or as capture\n"},
         {{policy, "--pcap", page, "-o", page + "2"}, 2, page + ": "},
         {{page + "3", "-o", page}, 2, page + "3: "},
         {{policy, "--policy", "other", "-o", page}, 2, policy + ": there is no policy 'other'\n"},
         {{policy, "-o", "/nowhere/page.html"},
          3,
          "/nowhere/page.html: the page cannot be written: No such file or directory\n"},
         {{policy, "-o", "/dev/full"},
          3,
          "/dev/full: the page cannot be written: No space left on device\n"},
         {{}, 2, "postcard report: "},
   };
   for (const Row& row : rows) {
      const ProgramResult result = report(row.arguments);
      EXPECT_EQ(result.exitCode, row.exitCode) << row.err;
      EXPECT_TRUE(result.err.starts_with(row.err)) << result.err;
      EXPECT_EQ(result.out, "");
   }
   EXPECT_EQ(read(page), "before");
   EXPECT_EQ(read(policy), read(examples + "web-tier.yaml"));
   EXPECT_FALSE(std::filesystem::exists(page + "2"));
}

} // namespace
