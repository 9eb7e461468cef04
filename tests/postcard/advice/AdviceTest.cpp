// What would make a policy cheaper: every merge is carried out, and the helper then makes as many
// rules less as were promised, for the same packets.
#include "postcard/advice/Advice.h"

#include "postcard/policy/RuleCount.h"
#include "postcard/policy/file/PolicyFile.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

namespace Advice = Postcard::Advice;
namespace Analysis = Postcard::Analysis;
namespace Policy = Postcard::Policy;
using Policy::Family;

Policy::PolicyFile fileOf(const std::string& classes) {
   auto loaded = Policy::File::parsePolicyText("policies:\n"
                                               "- name: p\n"
                                               "  interfaces: { ipv4: [Ethernet1] }\n"
                                               "  classes:\n" +
                                                     classes,
                                               "f");
   EXPECT_EQ(formatFindings(loaded), "");
   return loaded.policyFile.value_or(Policy::PolicyFile{});
}

std::string ofPorts(const std::string& ports, const std::string& more = "") {
   return "  - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp" + more +
          ", ports: [" + ports + "] }] } }\n";
}

U64 rulesOf(const Policy::PolicyFile& file) {
   return ruleCount(*file.policies.at(0).classes.at(0).ipv4, true);
}

struct Row {
   const char* ports;
   const char* instead; // the ports as the advice has them
   const char* text;    // without file and place; empty: nothing is to be said
};

const Row rows[] = {
      {"{ destination: [80, 443] }", "", ""},
      {"{ destination: [1-2, 4] }", "", ""},
      // Blocks of 80-99 and 100-119: 80-95, 96-99 and 100-103, 104-111, 112-119.
      {"{ destination: [80-99, 100-119] }", "{ destination: [80-119] }",
       "destination ports 80-99, 100-119 can be written as 80-119"},
      {"{ source: [10-20, 15-31] }", "{ source: [10-31] }",
       "source ports 10-20, 15-31 can be written as 10-31"},
      {"{ source: [65535, 0-65534] }", "{ source: [0-65535] }",
       "source ports 65535, 0-65534 can be written as 0-65535"},
      {"{ destination: [80] }, { destination: [81] }", "{ destination: [80, 81] }",
       "port entries of the lines 5, 5 differ in destination ports only: together 80-81"},
      {"{ source: [7], destination: [80] }, { source: [7], destination: [80] }",
       "{ source: [7], destination: [80] }",
       "port entries of the lines 5, 5 differ in source ports only: together 7"},
      {"{ source: [1], destination: [80] }, { source: [2], destination: [81] }", "", ""},
      {"{ source: [1] }, { destination: [80] }", "", ""},
      {"{}, {}", "", ""},
};

TEST(Advice, mergesSaveWhatTheyPromise) {
   for (const Row& row : rows) {
      const auto before = fileOf(ofPorts(row.ports));
      const auto advice = Advice::mergesOf(before.policies.at(0), Family::ipv4, true);
      if (*row.text == '\0') {
         EXPECT_TRUE(advice.empty()) << row.ports << ": " << Advice::text(advice, "f", 9);
         continue;
      }
      ASSERT_FALSE(advice.empty()) << row.ports;
      EXPECT_EQ(advice.front().text, row.text) << row.ports;
      EXPECT_EQ(advice.front().kind, Advice::Kind::merge);
      if (std::string_view{row.text}.starts_with("port entries")) {
         const auto after = fileOf(ofPorts(row.instead));
         // Written together, the ports are merged as well.
         EXPECT_GE(rulesOf(before), advice.front().saves) << row.ports;
         EXPECT_LE(rulesOf(before) - advice.front().saves, rulesOf(after)) << row.ports;
      } else {
         const auto after = fileOf(ofPorts(row.instead));
         EXPECT_EQ(rulesOf(before) - advice.front().saves, rulesOf(after)) << row.ports;
      }
   }
}

TEST(Advice, flagMatchesMultiplyWhereTheHardwareHasThem) {
   const auto file = fileOf(ofPorts("{ destination: [80-81, 82-83] }",
                                    ", tcp-flags: [{ flags: [syn], mask: [syn] }, "
                                    "{ flags: [fin], mask: [fin] }]"));
   EXPECT_EQ(Advice::mergesOf(file.policies[0], Family::ipv4, true).at(0).saves, 2U);
   EXPECT_EQ(Advice::mergesOf(file.policies[0], Family::ipv4, false).at(0).saves, 1U);
   EXPECT_TRUE(Advice::mergesOf(file.policies[0], Family::ipv6, true).empty());
}

// A warning with all that advice takes from it.
Analysis::Warning warning(Analysis::WarningCode code, U64 saves, const char* text) {
   return {.code = code,
           .policy = "p",
           .family = Family::ipv4,
           .className = "a",
           .location = {7, 3},
           .blamed = {},
           .witness = {},
           .text = text,
           .saves = saves};
}

TEST(Advice, isRankedByWhatItSaves) {
   const std::vector<Advice::Advice> merges = {
         {Advice::Kind::merge, "p", Family::ipv4, "a", {5, 9}, "some ranges are one", 4}};
   Analysis::Warnings warnings;
   warnings.found = {warning(Analysis::WarningCode::shadowed, 4, "can never match"),
                     warning(Analysis::WarningCode::overlap, 0, "not sampled"),
                     warning(Analysis::WarningCode::cost, 90, "a range")};
   const auto advice = Advice::adviceOf(merges, warnings);
   EXPECT_EQ(Advice::text(advice, "f", 9),
             "f:7:3: saves 90: p ipv4: class 'a': a range\n"
             "f:5:9: saves 4: p ipv4: class 'a': some ranges are one\n"
             "f:7:3: saves 4: p ipv4: class 'a': can never match\n");
   EXPECT_EQ(Advice::text(advice, "f", 1), "f:7:3: saves 90: p ipv4: class 'a': a range\n"
                                           "f: and 2 more that save less\n");
   EXPECT_EQ(Advice::json(advice)[2],
             nlohmann::ordered_json::parse(R"({"kind": "remove", "policy": "p",
      "family": "ipv4", "class": "a", "line": 7, "column": 3, "text": "can never match",
      "saves": 4})"));
   EXPECT_EQ(Advice::json(advice)[0]["kind"], "neighbour");
   EXPECT_EQ(Advice::json(advice)[1]["kind"], "merge");
}

// Whoever leaves out a part that never matches saves the entries that are promised.
TEST(Advice, partsThatNeverMatchKnowTheirEntries) {
   struct Dead {
      std::string classes;
      U64 saves;
   };
   const std::string all = "  - { name: all, actions: [sample], ipv4: {} }\n";
   const Dead table[] = {
         {all + "  - { name: b, actions: [sample], ipv4: {} }\n", 2},
         {all + ofPorts("{ source: [1-2], destination: [1-6] }"), 2 * 4},
         {ofPorts("{ source: [1-7] }, { source: [2-3], destination: [5, 9] }"), 2},
         {ofPorts("{ source: [1-7, 2-3], destination: [5, 9] }"), 2},
         {"  - { name: t, actions: [sample], ipv4: { protocols: [{ protocol: tcp }] } }\n"
          "  - { name: b, actions: [sample], ipv4: { protocols: [{ protocol: udp }, { protocol: "
          "tcp, ports: [{ source: [4-5, 7] }] }] } }\n",
          2},
   };
   for (const auto& [classes, saves] : table) {
      const auto file = fileOf(classes);
      Analysis::PacketSpace space{{.firstNodes = 20'000, .mostNodes = 1U << 20, .seconds = 600}};
      const auto advice =
            Advice::adviceOf({}, warningsOf(space, file.policies.at(0), {Family::ipv4, true}));
      ASSERT_EQ(advice.size(), 1U) << classes;
      EXPECT_EQ(advice.front().kind, Advice::Kind::remove);
      EXPECT_EQ(advice.front().saves, saves) << classes;
   }
}

} // namespace
