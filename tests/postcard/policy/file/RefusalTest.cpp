// Every way to write a wrong policy file that we thought of, with the exact findings.

#include "postcard/policy/file/PolicyFile.h"
#include "postcard/policy/file/PolicyFileFrames.h"

#include <gtest/gtest.h>

#include <iterator>
#include <map>
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

// The kinds of findings of a row, each once, in the order of the file.
std::string codesOf(const Refused& row) {
   std::string codes;
   for (const Finding& finding : parsePolicyText(framed(row.frame, row.text.view), "F").findings) {
      const std::string name{codeName(finding.code)};
      if (codes.find(name) == std::string::npos) {
         codes += (codes.empty() ? "" : " ") + name;
      }
   }
   return codes;
}

// Programs rely on the words, so each stands here once more.
TEST(PolicyFileRefusal, codes) {
   const std::map<std::string_view, const char*> rows = {
         {"UTF-16", "encoding"},
         {"stray Latin-1 byte", "encoding"},
         {"NUL byte", "character"},
         {"unclosed list", "syntax"},
         {"two documents", "syntax"},
         {"empty file", "syntax"},
         {"tag", "construct"},
         {"tag directive", "construct"},
         {"merge key", "construct"},
         {"alias as a key", "construct"},
         {"alias of nothing", "alias"},
         {"alias in what it stands for", "alias"},
         {"duplicate key", "duplicate-key"},
         {"nested too deep", "too-large"},
         {"no policies", "missing-key"},
         {"misspelt key", "unknown-key"},
         {"unknown toggle", "unknown-key"},
         {"policies is nothing", "wrong-value"},
         {"unknown action", "unknown-word"},
         {"unknown protocol", "unknown-word"},
         {"names that no definition explains", "unknown-definition"},
         {"name too long", "bad-name"},
         {"name with a line break", "bad-name"},
         {"no prefix", "bad-prefix"},
         {"IPv6 prefix in an IPv4 filter", "wrong-family"},
         {"ip-id in IPv6", "wrong-family"},
         {"port range reversed", "reversed-range"},
         {"duplicate policy name", "duplicate"},
         {"duplicate priority", "duplicate-priority"},
         {"sample data outside the mask", "outside-mask"},
         {"zero TCP-flag mask", "empty-mask"},
         {"rate that is no power of two", "bad-rate"},
         {"rate beside data and mask", "conflict"},
         {"key for both families and for one", "conflict"},
         {"interfaces without a family", "no-interfaces"},
         {"class of a family without interfaces", "no-interfaces"},
         {"several port entries while the toggle is off", "port-entries"},
         {"file that was cut", "unexpected"},
   };
   std::size_t found = 0;
   for (const Refused& row : refusedPolicies) {
      if (const auto expected = rows.find(row.name); expected != rows.end()) {
         EXPECT_EQ(codesOf(row), expected->second) << row.name;
         ++found;
      }
   }
   EXPECT_EQ(found, rows.size());
}

TEST(PolicyFileRefusal, codesHaveWordsOfTheirOwn) {
   std::set<std::string_view> names;
   for (const FindingCode code : allFindingCodes()) {
      EXPECT_TRUE(names.insert(codeName(code)).second) << codeName(code);
      EXPECT_EQ(codeName(code).find_first_not_of("abcdefghijklmnopqrstuvwxyz-"),
                std::string_view::npos);
   }
   EXPECT_EQ(codeName(FindingCode::unreadable), "unreadable");
   EXPECT_EQ(codeName(FindingCode::tooManyRules), "too-many-rules");
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
