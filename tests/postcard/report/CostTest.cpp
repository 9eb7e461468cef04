// Costs, refusals and totals of a compilation: their sums, text and JSON. That the numbers are
// those of real ACLs is shown by the tests of the command.
#include "postcard/report/Cost.h"

#include "postcard/report/Compilation.h"
#include "support/AclRecords.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using Postcard::Policy::Family;
using Postcard::Policy::SampleField;
using Postcard::Report::AclCost;
using Postcard::Report::Compilation;
using Postcard::Report::Cost;
using Postcard::Report::Refusal;
using RulesClientTest::AclRecords;
using Json = nlohmann::ordered_json;

Cost twoAcls() {
   Cost cost;
   cost.add({"web",
             Family::ipv4,
             {{"checkout", 12, {256, SampleField::checksum}}, {"rest", 2, {}}},
             14});
   cost.add({"web", Family::ipv6, {{"rest", 3, {1, {}}}}, 3});
   return cost;
}

TEST(Cost, theTableHasALinePerAclClassAndTotal) {
   EXPECT_EQ(text(twoAcls()), "web ipv4            14\n"
                              "   checkout         12  1 packet in 256, by checksum\n"
                              "   rest              2  not sampled\n"
                              "web ipv6             3\n"
                              "   rest              3  every packet\n"
                              "total               17\n");
   EXPECT_EQ(text(Cost{}), "total          0\n");
}

TEST(Cost, fitsWhenTheBudgetIsNotExceeded) {
   struct Row {
      std::optional<std::size_t> budget;
      bool fits;
      const char* line;
      Json json;
   };
   const Row rows[] = {{std::nullopt, true, "", nullptr},
                       {18,
                        true,
                        "fits into 18 entries, 1 left\n",
                        {{"entries", 18}, {"fits", true}, {"left", 1}, {"tooMany", 0}}},
                       {17,
                        true,
                        "fits into 17 entries, 0 left\n",
                        {{"entries", 17}, {"fits", true}, {"left", 0}, {"tooMany", 0}}},
                       {16,
                        false,
                        "does not fit into 16 entries, 1 too many\n",
                        {{"entries", 16}, {"fits", false}, {"left", 0}, {"tooMany", 1}}}};
   const std::size_t tableSize = text(twoAcls()).size();
   for (const Row& row : rows) {
      Cost cost = twoAcls();
      cost.budget = row.budget;
      EXPECT_EQ(cost.fits(), row.fits) << row.line;
      EXPECT_EQ(text(cost).substr(tableSize), row.line);
      EXPECT_EQ(json(cost)["budget"], row.json) << row.line;
   }
}

TEST(Cost, theDocumentHasRefusalsBesideAcls) {
   Cost cost = twoAcls();
   cost.acls.pop_back();
   cost.refused = {{"bad", Family::ipv6, "no"}};
   EXPECT_EQ(json(cost).dump(), Json::parse(R"({"schema": 1,
      "acls": [{"policy": "web", "family": "ipv4", "entries": 14,
                "classes": [{"class": "checkout", "entries": 12,
                             "rate": {"oneIn": 256, "field": "checksum",
                                      "text": "1 packet in 256, by checksum"}},
                            {"class": "rest", "entries": 2,
                             "rate": {"oneIn": 0, "field": null, "text": "not sampled"}}]}],
      "refused": [{"policy": "bad", "family": "ipv6", "message": "no", "classes": []}],
      "totals": {"entries": 17}, "budget": null})")
                                      .dump());
}

// A rule that stands at two indexes takes two entries; a class without rules costs nothing.
TEST(Cost, countsIndexesByClass) {
   Postcard::Policy::Policy policy;
   policy.name.text = "p";
   for (const char* name : {"a", "none"}) {
      policy.classes.emplace_back().name.text = name;
      policy.classes.back().priority = static_cast<std::uint32_t>(policy.classes.size());
      policy.classes.back().ipv4.emplace();
   }
   const AclRecords records{"p-ipv4"};
   const auto rule = records.data()->ruleByNameIs("a-ipv4-tcp");
   records.data()->ruleByIndexIs(0, rule);
   records.data()->ruleByIndexIs(1, rule);
   const AclCost cost = Postcard::Report::costOf(policy, Family::ipv4, *records);
   EXPECT_EQ(cost.policy, "p");
   EXPECT_EQ(cost.entries, 2U);
   ASSERT_EQ(cost.classes.size(), 2U);
   EXPECT_EQ(cost.classes[0].entries, 2U);
   EXPECT_EQ(cost.classes[1].entries, 0U);
}

TEST(Refusal, asTextAndAsJson) {
   EXPECT_EQ(text(Refusal{"p", Family::ipv4, "not possible"}), "p ipv4: not possible\n");
   EXPECT_EQ(json(std::vector<Refusal>{}).dump(), "[]");
   const Refusal placed{"p",
                        Family::ipv4,
                        "no",
                        "f.yaml",
                        {{"c", "actions/drop", {3, 7}}, {"d", "fragments", {5, 1}}}};
   EXPECT_EQ(text(placed), "p ipv4: no\n"
                           "   f.yaml:3:7: class 'c': actions/drop\n"
                           "   f.yaml:5:1: class 'd': fragments\n");
   EXPECT_EQ(json(std::vector{placed}).dump(), Json::parse(R"([{"policy": "p", "family": "ipv4",
      "message": "no", "classes": [
         {"class": "c", "key": "actions/drop", "file": "f.yaml", "line": 3, "column": 7},
         {"class": "d", "key": "fragments", "file": "f.yaml", "line": 5, "column": 1}]}])")
                                                     .dump());
}

TEST(Compilation, sumsUpAcls) {
   AclRecords one{"p-ipv4"};
   one.rules(3);
   one.data()->ruleByIndexIs(7, one.data()->ruleByName("r0"));
   Compilation compilation;
   compilation.add(*one);
   compilation.add(*AclRecords{"q-ipv4"}.data());
   compilation.refused = {{"bad", Family::ipv4, "no"}};
   EXPECT_EQ(text(compilation), "ACLs: 2, rules: 3, TCAM entries: 4\n");
   std::string document;
   Postcard::Report::CompilationWriter writer{[&](std::string_view piece) { document += piece; }};
   const Postcard::Policy::Policy empty;
   const AclRecords records{"q-ipv4"};
   writer.add({empty, Family::ipv4, true, *records.data()});
   writer.finish(compilation);
   Json parsed = Json::parse(document);
   EXPECT_EQ(parsed["acls"].size(), 1U);
   EXPECT_EQ(parsed["acls"][0]["aclConfigKey"], "q-ipv4");
   parsed.erase("acls");
   EXPECT_EQ(parsed.dump(), Json::parse(R"({"schema": 2,
      "refused": [{"policy": "bad", "family": "ipv4", "message": "no", "classes": []}],
      "totals": {"acls": 2, "rules": 3, "tcamEntries": 4}})")
                                  .dump());
}

} // namespace
