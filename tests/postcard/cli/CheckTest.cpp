// `postcard check`, the real program with the real module: the costs are those of the compiled
// ACLs, class by class, and the budget is kept to the entry.
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>

namespace {

using Json = nlohmann::json;
using TestSupport::examples;
using TestSupport::program;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

class Check : public testing::Test {
 protected:
   std::string policy(const std::string& text) const { return folder_.write("policy.yaml", text); }
   static ProgramResult run(const char* subcommand, std::vector<std::string> arguments,
                            std::vector<std::string> environment = {}) {
      arguments.insert(arguments.begin(), {program, subcommand});
      return runProgram(std::move(arguments), std::move(environment));
   }
   static ProgramResult check(std::vector<std::string> arguments) {
      return run("check", std::move(arguments));
   }
   static Json json(const char* subcommand, const std::string& file) {
      return Json::parse(run(subcommand, {"--format", "json", file}).out);
   }

 private:
   TestSupport::TemporaryFolder folder_;
};

const std::string header = "policies:\n"
                           "  - name: p\n"
                           "    interfaces: { ipv4: [Ethernet1], ipv6: [Ethernet1] }\n"
                           "    classes:\n";

// Names that are the beginning of each other, or look like the name of a rule; a priority against
// the order; a class without rules.
const std::vector<std::string> classes = {
      "      - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp, ports: "
      "[{ source: [1-10], destination: [80, 443] }] }] }, ipv6: {} }\n",
      "      - { name: a-ipv4-tcp, priority: 5, actions: [sample-all], ipv4: {} }\n",
      "      - { name: a-ipv4, actions: [], ipv4: { protocols: [{ protocol: tcp, tcp-flags: "
      "[{ flags: [syn], mask: [syn] }, { flags: [fin], mask: [fin] }] }, { protocol: udp }] } }\n",
      "      - { name: nothing, actions: [sample], ipv4: { protocols: [{ protocol: udp, ports: "
      "[{ }] }] } }\n",
      "      - { name: -ipv6-, actions: [sample], ipv6: { protocols: [{ protocol: udp, ports: "
      "[{ source: [2, 2-3] }, { source: [2] }] }] } }\n"};

std::string allClasses() {
   std::string text = header;
   for (const std::string& each : classes) {
      text += each;
   }
   return text;
}

TEST_F(Check, everyPolicyFamilyAndClassInTheOrderOfMatching) {
   const std::string file = policy(allClasses());
   const auto result = check({file});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.err, "");
   EXPECT_EQ(
         result.out,
         "p ipv4                15\n"
         "   a-ipv4-tcp          2  every packet\n"
         "   a                  10  every packet\n"
         "   a-ipv4              3  not sampled\n"
         "   nothing             0  every packet\n"
         "p ipv6                 5\n"
         "   a                   2  every packet\n"
         "   -ipv6-              3  every packet\n"
         "total                 20\n" +
               file +
               ":5:17: shadowed: p ipv4: class 'a': can never match: all its packets are taken "
               "before, class 'a-ipv4-tcp' (line 6): tcp 0.0.0.0:1 > 0.0.0.0:80\n" +
               file +
               ":7:17: overlap: p ipv4: class 'a-ipv4': not sampled, but an earlier class samples "
               "some of its packets, class 'a-ipv4-tcp' (line 6): tcp 0.0.0.0:0 > 0.0.0.0:0 "
               "flags=syn\n" +
               file +
               ":7:17: shadowed: p ipv4: class 'a-ipv4': can never match: all its packets are "
               "taken before, class 'a-ipv4-tcp' (line 6): tcp 0.0.0.0:0 > 0.0.0.0:0 flags=fin\n" +
               file +
               ":8:45: empty: p ipv4: class 'nothing': makes no rule, because its port entries "
               "have no ranges\n" +
               file +
               ":9:17: shadowed: p ipv6: class '-ipv6-': can never match: all its packets are "
               "taken before, class 'a' (line 5): udp [::]:2 > [::]:0\n" +
               file +
               ":5:17: saves 10: p ipv4: class 'a': can never match: all its packets are taken "
               "before\n" +
               file +
               ":7:17: saves 3: p ipv4: class 'a-ipv4': can never match: all its packets are taken "
               "before\n" +
               file +
               ":9:17: saves 3: p ipv6: class '-ipv6-': can never match: all its packets are taken "
               "before\n" +
               file +
               ":9:100: saves 1: p ipv6: class '-ipv6-': source ports 2, 2-3 can be written as "
               "2-3\n" +
               file +
               ":9:111: saves 1: p ipv6: class '-ipv6-': port entries of the lines 9, 9 differ in "
               "source ports only: together 2-3\n");
}

// What is warned about, `explain` confirms: the packet goes to the class that is to blame.
TEST_F(Check, explainConfirmsEveryWitness) {
   const std::string file = policy(allClasses());
   std::size_t confirmed = 0;
   const Json document = json("check", file);
   for (const Json& warning : document.at("warnings")) {
      if (warning.at("witness").is_null()) {
         continue;
      }
      const auto explained = run("explain", {file, "--packet", warning.at("witness")}).out;
      const std::string blamed = warning.at("blamed").at(0).at("what");
      EXPECT_NE(explained.find(blamed.substr(7, blamed.size() - 8) + "-" +
                               warning.at("family").get<std::string>()),
                std::string::npos)
            << explained;
      ++confirmed;
   }
   EXPECT_EQ(confirmed, 4U);
}

TEST_F(Check, strictFailsForAWarning) {
   const std::string file = policy(allClasses());
   EXPECT_EQ(check({"--strict", file}).exitCode, 1);
   const std::string fine =
         policy(header + "      - { name: c, actions: [sample], ipv4: {}, ipv6: {} }\n");
   EXPECT_EQ(check({"--strict", fine}).exitCode, 0);
}

TEST_F(Check, aProofListsWhatDepartsByDesign) {
   const std::string file =
         policy(header + "      - { name: c, actions: [sample], ipv4: {}, ipv6: {} }\n");
   const auto result = check({"--prove", file});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(
         result.out,
         "p ipv4          2\n"
         "   c            2  every packet\n"
         "p ipv6          2\n"
         "   c            2  every packet\n"
         "total           4\n"
         "p ipv4: 2 rules, proven: the rules do for every packet what the filters mean\n" +
               file +
               ":5:17: by design: class 'c': without protocols the class takes TCP and UDP only: "
               "icmp 0.0.0.0 > 0.0.0.0\n"
               "p ipv6: 2 rules, proven: the rules do for every packet what the filters mean\n" +
               file +
               ":5:17: by design: class 'c': without protocols the class takes TCP and UDP only: "
               "icmpv6 [::] > [::]\n");
   for (const char* name : {"web-tier", "flags-and-ranges", "large-datacenter"}) {
      const Json document =
            Json::parse(check({"--prove", "--format", "json", examples + name + ".yaml"}).out);
      EXPECT_FALSE(document.at("proofs").empty()) << name;
      for (const Json& proof : document.at("proofs")) {
         EXPECT_EQ(proof.at("verdict"), "proven") << name;
      }
   }
}

TEST_F(Check, aClassCostsWhatItCostsAlone) {
   std::map<std::pair<std::string, std::string>, std::size_t> alone;
   for (const std::string& each : classes) {
      const Json compiled = json("compile", policy(header + each));
      for (const Json& acl : compiled.at("acls")) {
         const std::size_t begin = each.find("name: ") + 6;
         alone[{acl.at("aclType"), each.substr(begin, each.find(',') - begin)}] =
               acl.at("ruleByIndex").size();
      }
   }
   const Json together = json("check", policy(allClasses()));
   std::size_t compared = 0;
   for (const Json& acl : together.at("acls")) {
      for (const Json& each : acl.at("classes")) {
         const auto key =
               std::pair{acl.at("family").get<std::string>(), each.at("class").get<std::string>()};
         EXPECT_EQ(each.at("entries"), alone.at(key)) << key.first << ' ' << key.second;
         ++compared;
      }
   }
   EXPECT_EQ(compared, 6U);
}

TEST_F(Check, theCostsAreTheEntriesOfTheCompiledAcls) {
   for (const char* name : {"web-tier", "flags-and-ranges", "large-datacenter", "all-features"}) {
      const std::string file = examples + name + ".yaml";
      const Json compiled = json("compile", file);
      const Json costs = json("check", file);
      ASSERT_EQ(costs.at("acls").size(), compiled.at("acls").size()) << name;
      EXPECT_EQ(costs.at("totals").at("entries"), compiled.at("totals").at("tcamEntries")) << name;
      EXPECT_EQ(costs.at("refused"), compiled.at("refused")) << name;
      for (std::size_t i = 0; i < costs.at("acls").size(); ++i) {
         const Json& cost = costs.at("acls").at(i);
         std::size_t sum = 0;
         for (const Json& each : cost.at("classes")) {
            sum += each.at("entries").get<std::size_t>();
         }
         EXPECT_EQ(cost.at("entries"), compiled.at("acls").at(i).at("ruleByIndex").size()) << name;
         EXPECT_EQ(cost.at("entries"), sum) << name;
      }
   }
}

TEST_F(Check, aBudgetIsKeptToTheEntry) {
   const std::string file = policy(allClasses());
   const std::vector<std::tuple<std::string, int, std::string>> table = {
         {"20", 0, "fits into 20 entries, 0 left\n"},
         {"21", 0, "fits into 21 entries, 1 left\n"},
         {"19", 1, "does not fit into 19 entries, 1 too many\n"},
         {"0", 1, "does not fit into 0 entries, 20 too many\n"}};
   for (const auto& [budget, exitCode, line] : table) {
      const auto result = check({file, "--budget", budget});
      EXPECT_EQ(result.exitCode, exitCode) << budget;
      EXPECT_NE(result.out.find("20\n" + line), std::string::npos) << result.out;
   }
   EXPECT_EQ(check({file, "--budget", "15", "--family", "ipv4"}).exitCode, 0);
   EXPECT_EQ(check({file, "--budget", "14", "--family", "ipv4"}).exitCode, 1);
}

TEST_F(Check, jsonSaysTheSame) {
   const auto result =
         check({"--format", "json", "--budget", "4", "--family", "ipv6", policy(allClasses())});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_EQ(Json::parse(result.out), Json::parse(R"({
      "schema": 1,
      "acls": [{"policy": "p", "family": "ipv6", "entries": 5,
                "classes": [{"class": "a", "entries": 2,
                             "rate": {"oneIn": 1, "field": null, "text": "every packet"}},
                            {"class": "-ipv6-", "entries": 3,
                             "rate": {"oneIn": 1, "field": null, "text": "every packet"}}]}],
      "refused": [],
      "totals": {"entries": 5},
      "budget": {"entries": 4, "fits": false, "left": 0, "tooMany": 1},
      "warnings": [{"code": "shadowed", "policy": "p", "family": "ipv6", "class": "-ipv6-",
                    "line": 9, "column": 17,
                    "text": "can never match: all its packets are taken before",
                    "blamed": [{"what": "class 'a'", "line": 5, "column": 17}],
                    "witness": "udp [::]:2 > [::]:0"}],
      "moreOverlaps": false, "notDecided": [], "advice": [
         {"kind": "remove", "policy": "p", "family": "ipv6", "class": "-ipv6-", "line": 9,
          "column": 17, "text": "can never match: all its packets are taken before", "saves": 3},
         {"kind": "merge", "policy": "p", "family": "ipv6", "class": "-ipv6-", "line": 9,
          "column": 100, "text": "source ports 2, 2-3 can be written as 2-3", "saves": 1},
         {"kind": "merge", "policy": "p", "family": "ipv6", "class": "-ipv6-", "line": 9,
          "column": 111, "saves": 1,
          "text": "port entries of the lines 9, 9 differ in source ports only: together 2-3"}],
      "proofs": null
   })"));
   EXPECT_EQ(json("check", policy(allClasses())).at("budget"), Json(nullptr));
}

TEST_F(Check, aRefusedPolicyIsReportedAsCompileDoes) {
   const std::string file =
         policy(header + "      - { name: c, actions: [drop], ipv4: {} }\n"
                         "  - name: q\n"
                         "    interfaces: { ipv4: [Ethernet1] }\n"
                         "    classes: [{ name: c, actions: [sample], ipv4: {} }]\n");
   const auto result = check({file, "--budget", "100"});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_EQ(result.out, "p ipv6          0\n"
                         "q ipv4          2\n"
                         "   c            2  every packet\n"
                         "total           2\n"
                         "fits into 100 entries, 98 left\n" +
                               file + ":2:11: empty: p ipv6: no class takes part in the family\n");
   EXPECT_EQ(result.err, "p ipv4: Unsupported action(s): 'drop', in configuration\n   " + file +
                               ":5:30: class 'c': actions/drop\n");
   EXPECT_EQ(check({file, "--policy", "q"}).exitCode, 0);
}

TEST_F(Check, badUsageAndFiles) {
   const std::string file = policy(allClasses());
   EXPECT_EQ(check({}).exitCode, 2);
   EXPECT_EQ(check({file, "--budget", "many"}).exitCode, 2);
   EXPECT_EQ(check({file, "--budget", "-1"}).exitCode, 2);
   EXPECT_EQ(check({file, "--format", "xml"}).exitCode, 2);
   const auto unknown = check({file, "--policy", "q"});
   EXPECT_EQ(unknown.exitCode, 2);
   EXPECT_EQ(unknown.err, file + ": there is no policy 'q'\n");
   const auto wrong = check({policy("policies:\n  - nam: web\n")});
   EXPECT_EQ(wrong.exitCode, 2);
   EXPECT_EQ(wrong.err.substr(0, file.size() + 6), file + ":2:5: ");
   EXPECT_EQ(run("check", {policy(allClasses())}, {"POSTCARD_MODULE=/nonexistent.so"}).exitCode, 3);
   EXPECT_NE(check({"--help"}).out.find("--budget"), std::string::npos);
}

} // namespace
