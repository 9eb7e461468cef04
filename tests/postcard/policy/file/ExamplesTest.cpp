// The examples are accepted, and whatever is done to them, the loader answers with a policy file
// that keeps its promises or with findings in the file.

#include "support/Examples.h"

#include "postcard/policy/file/PolicyFile.h"
#include "postcard/policy/file/PolicyFileContract.h"
#include "postcard/policy/file/PolicyFileFrames.h"
#include "postcard/policy/file/Text.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <rapidcheck.h>
#include <string>
#include <variant>
#include <vector>

namespace Postcard::Policy::File {
namespace {

const std::string exampleFolder = POSTCARD_SOURCE_DIR "/examples/";

std::string example(const std::string& name) {
   return std::get<std::string>(readPolicyText(exampleFolder + name, 1U << 20U));
}

struct Expected {
   std::size_t policies;
   std::size_t classes;
};

Expected sizeOf(const PolicyFile& file) {
   Expected size{file.policies.size(), 0};
   for (const Policy& policy : file.policies) {
      size.classes += policy.classes.size();
   }
   return size;
}

TEST(PolicyFileExamples, allAreAcceptedAndKnown) {
   const std::map<std::string, Expected> expected = {{"all-features.yaml", {3, 7}},
                                                     {"flags-and-ranges.yaml", {1, 5}},
                                                     {"large-datacenter.yaml", {2, 482}},
                                                     {"twenty-services.yaml", {1, 21}},
                                                     {"web-tier.yaml", {1, 4}}};
   std::size_t files = 0;
   for (const auto& path : TestSupport::examplePolicies()) {
      const std::string name = path.filename();
      ASSERT_TRUE(expected.contains(name)) << name;
      const LoadResult result = loadPolicyFile(path);
      ASSERT_TRUE(result.policyFile) << formatFindings(result);
      EXPECT_EQ(sizeOf(*result.policyFile).policies, expected.at(name).policies) << name;
      EXPECT_EQ(sizeOf(*result.policyFile).classes, expected.at(name).classes) << name;
      EXPECT_EQ(brokenPromise(*result.policyFile), "") << name;
      ++files;
   }
   EXPECT_EQ(files, expected.size());
}

std::size_t countOf(std::string_view text, char byte) {
   return static_cast<std::size_t>(std::ranges::count(text, byte));
}

// A file that was cut never passes, whatever is left of it, once it says what it comes to.
TEST(PolicyFileExamples, fileThatWasCutIsRefused) {
   const std::string whole = example("twenty-services.yaml");
   EXPECT_LT(countOf(whole, '\n'), 150U);
   EXPECT_TRUE(parsePolicyText(whole, "F").policyFile);
   const std::size_t content = whole.find_last_not_of("}] \n");
   for (std::size_t length = 0; length < content; ++length) {
      const LoadResult result = parsePolicyText(whole.substr(0, length), "F");
      ASSERT_FALSE(result.policyFile) << length;
      ASSERT_FALSE(result.findings.empty()) << length;
   }
}

TEST(PolicyFileExamples, lineEndsOfOtherSystems) {
   for (const std::string lineEnd : {"\r\n", "\r"}) {
      std::string text;
      for (const char byte : example("all-features.yaml")) {
         text += byte == '\n' ? lineEnd : std::string(1, byte);
      }
      const LoadResult result = parsePolicyText(text, "F");
      EXPECT_TRUE(result.policyFile) << formatFindings(result);
   }
}

// One change of a text. Positions wrap, so every number is a change of every text.
struct Mutation {
   enum class Kind { erase, repeat, insert, swapLines, dropLine, repeatLine } kind;
   std::size_t position;
   std::size_t length;
   std::string token;
};

std::ostream& operator<<(std::ostream& out, const Mutation& mutation) {
   return out << static_cast<int>(mutation.kind) << " at " << mutation.position << " for "
              << mutation.length << " '" << mutation.token << "'";
}

rc::Gen<Mutation> anyMutation() {
   const auto token = rc::gen::element<std::string>(
         ":", ": ", "- ", ",", "[", "]", "{", "}", "\"", "'", "*a", "&a ", "<<: ", "!t ", "\t",
         "\n", "  ", "#", "~", "0", "-1", "65536", "0x0", "on", "true", "ipv6: ", "ipv4: {}",
         "both: {}", "{rate: 4}", "*often", "https", "&often ", "\xff", "\r", "---\n", "...\n",
         "%TAG\n", "? ", "|\n", ">\n", "name: ", "\xc3\xbc");
   return rc::gen::build<Mutation>(
         rc::gen::set(&Mutation::kind,
                      rc::gen::element(Mutation::Kind::erase, Mutation::Kind::repeat,
                                       Mutation::Kind::insert, Mutation::Kind::swapLines,
                                       Mutation::Kind::dropLine, Mutation::Kind::repeatLine)),
         rc::gen::set(&Mutation::position, rc::gen::inRange<std::size_t>(0, 1U << 16U)),
         rc::gen::set(&Mutation::length, rc::gen::inRange<std::size_t>(1, 12)),
         rc::gen::set(&Mutation::token, token));
}

std::vector<std::string> linesOf(const std::string& text) {
   std::vector<std::string> lines(1);
   for (const char byte : text) {
      lines.back() += byte;
      if (byte == '\n') {
         lines.emplace_back();
      }
   }
   return lines;
}

std::string joinedLines(const std::vector<std::string>& lines) {
   std::string text;
   for (const std::string& line : lines) {
      text += line;
   }
   return text;
}

std::string changedLines(const std::string& text, const Mutation& mutation) {
   std::vector<std::string> lines = linesOf(text);
   const std::size_t line = mutation.position % lines.size();
   const auto place = lines.begin() + static_cast<std::ptrdiff_t>(line);
   switch (mutation.kind) {
   case Mutation::Kind::swapLines:
      std::swap(lines[line], lines[(line + mutation.length) % lines.size()]);
      break;
   case Mutation::Kind::dropLine:
      lines.erase(place);
      break;
   default:
      lines.insert(place, std::string(*place));
      break;
   }
   return joinedLines(lines);
}

std::string changed(std::string text, const Mutation& mutation) {
   const std::size_t position = mutation.position % (text.size() + 1);
   switch (mutation.kind) {
   case Mutation::Kind::erase:
      return text.erase(position, mutation.length);
   case Mutation::Kind::repeat:
      return text.insert(position, std::string(text, position, mutation.length));
   case Mutation::Kind::insert:
      return text.insert(position, mutation.token);
   default:
      return changedLines(text, mutation);
   }
}

RC_GTEST_PROP(PolicyFileExamples, mutantsAreRefusedWithAPlaceOrKeepEveryPromise, ()) {
   std::string text = example(*rc::gen::element<std::string>(
         "all-features.yaml", "web-tier.yaml", "flags-and-ranges.yaml", "twenty-services.yaml"));
   const auto count = *rc::gen::inRange(1, 5);
   for (int i = 0; i < count; ++i) {
      text = changed(text, *anyMutation());
   }
   const LoadResult result = parsePolicyText(text, "F");
   RC_ASSERT(result.policyFile.has_value() == result.findings.empty());
   RC_CLASSIFY(result.policyFile.has_value(), "accepted");
   if (result.policyFile) {
      RC_ASSERT(brokenPromise(*result.policyFile) == "");
   }
   for (const Finding& finding : result.findings) {
      RC_ASSERT(isWithin(finding.location, text));
      RC_ASSERT(finding.message.find('\n') == std::string::npos);
   }
}

// The same without chance: every text that is one byte short.
TEST(PolicyFileExamples, everySingleByteMayGoMissing) {
   const std::string text = example("web-tier.yaml");
   std::size_t accepted = 0;
   for (std::size_t position = 0; position < text.size(); ++position) {
      const std::string mutant = std::string(text).erase(position, 1);
      const LoadResult result = parsePolicyText(mutant, "F");
      ASSERT_EQ(result.policyFile.has_value(), result.findings.empty()) << position;
      ASSERT_EQ(result.policyFile ? brokenPromise(*result.policyFile) : "", "") << position;
      for (const Finding& finding : result.findings) {
         ASSERT_TRUE(isWithin(finding.location, mutant)) << position << " " << finding.message;
      }
      accepted += result.policyFile ? 1U : 0U;
   }
   EXPECT_GT(accepted, text.size() / 10); // comments, names and digits
   EXPECT_LT(accepted, text.size());
}

} // namespace
} // namespace Postcard::Policy::File
