// `postcard compile`, the real program with the real module: what it prints, where, and how it
// ends.
#include "Kiv/PlatformVersion.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using TestSupport::program;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

const std::string source = POSTCARD_SOURCE_DIR;

std::string readFile(const std::string& path) {
   std::ifstream file{path};
   EXPECT_TRUE(file) << path;
   std::ostringstream text;
   text << file.rdbuf();
   return text.str();
}

void expectGolden(const std::string& text, const std::string& name) {
   EXPECT_EQ(text, readFile(source + "/tests/golden/compile/" + name + ".txt")) << name;
}

// A policy file that lives as long as the test.
class Compile : public testing::Test {
 protected:
   std::string policy(const std::string& text) const { return folder_.write("policy.yaml", text); }
   static ProgramResult compile(std::vector<std::string> arguments,
                                std::vector<std::string> environment = {}) {
      arguments.insert(arguments.begin(), {program, "compile"});
      return runProgram(std::move(arguments), std::move(environment));
   }

 private:
   TestSupport::TemporaryFolder folder_;
};

constexpr const char* twoPolicies = R"(policies:
  - name: web
    interfaces: { ipv4: [Ethernet1], ipv6: [Ethernet2] }
    classes:
      - name: all
        actions: [sample]
        ipv4: {}
        ipv6: {}
  - name: bad
    interfaces: { ipv4: [Ethernet1] }
    classes:
      - name: dropped
        actions: [drop]
        ipv4: {}
)";

TEST_F(Compile, printsTheExamplesAsTheShowCommandDoes) {
   for (const char* name : {"web-tier", "flags-and-ranges"}) {
      const auto result = compile({source + "/examples/" + name + ".yaml"});
      EXPECT_EQ(result.exitCode, 0) << result.err;
      expectGolden(result.out, name);
   }
}

// The line that ends the first thing a newcomer sees.
TEST_F(Compile, endsTheFirstExampleWithItsTotals) {
   EXPECT_EQ(compile({source + "/examples/web-tier.yaml"}).err,
             "ACLs: 2, rules: 28, TCAM entries: 28\n");
}

// One of its policies is refused in both families, and says so after the others.
TEST_F(Compile, printsTheExampleOfEveryKey) {
   const auto result = compile({source + "/examples/all-features.yaml"});
   EXPECT_EQ(result.exitCode, 1);
   expectGolden(result.out, "all-features");
   // The golden file does not know where the sources are.
   std::string err = result.err;
   const std::string folder = source + "/examples/";
   for (std::size_t at = err.find(folder); at != std::string::npos; at = err.find(folder)) {
      err.erase(at, folder.size());
   }
   expectGolden(err, "all-features.err");
}

// Flags and ports for hardware that matches no flags: the ports are expanded, the flags are not,
// and no line tells of them.
TEST_F(Compile, printsPoliciesForHardwareWithoutTcpFlags) {
   const auto result = compile({source + "/tests/golden/compile/no-tcp-flags.yaml"});
   EXPECT_EQ(result.exitCode, 0);
   expectGolden(result.out, "no-tcp-flags");
   EXPECT_EQ(result.err, "ACLs: 1, rules: 6, TCAM entries: 6\n");
}

TEST_F(Compile, endsWithTheTotalsOnStandardError) {
   const auto result = compile({"--policy", "web", policy(twoPolicies)});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.err, "ACLs: 2, rules: 4, TCAM entries: 4\n");
}

TEST_F(Compile, aBlockThatOccursTwiceIsOneRuleAndTwoEntries) {
   const auto result = compile({policy(R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
      - name: c
        actions: [sample]
        ipv4: { protocols: [{ protocol: tcp, ports: [{ source: [2, 2-3] }, { source: [2] }] }] }
)")});
   EXPECT_EQ(result.err, "ACLs: 1, rules: 2, TCAM entries: 3\n");
}

TEST_F(Compile, aRefusedPolicyIsReportedAndTheOthersArePrinted) {
   const std::string path = policy(twoPolicies);
   const auto result = compile({path});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_EQ(result.err, "bad ipv4: Unsupported action(s): 'drop', in configuration\n   " + path +
                               ":13:19: class 'dropped': actions/drop\n"
                               "ACLs: 2, rules: 4, TCAM entries: 4\n");
   EXPECT_NE(result.out.find("Policy Name:           web-ipv4\n"), std::string::npos);
   EXPECT_NE(result.out.find("Policy Name:           web-ipv6\n"), std::string::npos);
   EXPECT_EQ(result.out.find("bad-ipv4"), std::string::npos);
}

TEST_F(Compile, oneFamilyOnly) {
   const auto result = compile({"--family", "ipv6", policy(twoPolicies)});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.err, "ACLs: 1, rules: 2, TCAM entries: 2\n");
   EXPECT_EQ(result.out.find("web-ipv4"), std::string::npos);
}

TEST_F(Compile, aPolicyThatIsNotInTheFile) {
   const std::string path = policy(twoPolicies);
   const auto result = compile({"--policy", "wbe", "--policy", "web", path});
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_EQ(result.err, path + ": there is no policy 'wbe'\n");
   EXPECT_EQ(result.out, "");
}

TEST_F(Compile, aWrongFileIsReportedWithItsPlaceAndNothingIsPrinted) {
   const std::string path = policy("policies:\n  - nam: web\n");
   const auto result = compile({path});
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_EQ(result.err.substr(0, path.size() + 6), path + ":2:5: ");
   EXPECT_EQ(result.out, "");
}

TEST_F(Compile, aPolicyWithoutClassesHasAnEmptyAcl) {
   const auto result = compile(
         {policy("policies: [{ name: p, interfaces: { ipv4: [Ethernet1] }, classes: [] }]\n")});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.out, "---------------------------------------------------------\n"
                         "Policy Name:           p-ipv4\n"
                         "Policy Type:           ipv4\n"
                         "\nPolicy Interfaces:\n"
                         "    Ethernet1\n"
                         "Programmed Policy:     false\n"
                         "Rules Client Updated:  false\n"
                         "Policy Event Status:\n"
                         "---------------------------------------------------------\n");
}

TEST_F(Compile, theSameFilePrintsTheSameTextEveryTime) {
   const std::string path = policy(
         "policies: [{ name: p, interfaces: { ipv4: [a, b, c, d, e, f, g, h] }, classes: [] }]\n");
   EXPECT_EQ(compile({path}).out, compile({path}).out);
}

TEST_F(Compile, jsonHasEveryPartOfARule) {
   const auto result = compile({"--format", "json", policy(R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
      - name: c
        actions: [sample, { set-dscp: 46 }]
        ipv4:
          source: [10.0.0.0/8]
          sample: { data: 3, mask: 0xff, field: ip-id }
          protocols:
            - { protocol: tcp, ports: [{ destination: [443] }], tcp-flags: [{ flags: [syn], mask: [syn, ack] }] }
)")});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   const auto expected = nlohmann::json::parse(R"({
      "schema": 2,
      "acls": [{
         "aclConfigKey": "p-ipv4", "aclType": "ipv4",
         "ruleByName": {
            "c-ipv4-tcp-DportData-443-DportMask-65535-tcpFlag-2-tcpFlagMask-18": {
               "policy": "p", "family": "ipv4", "class": "c",
               "origin": {"line": 11, "column": 40, "protocol": "tcp", "portEntry": 1,
                          "sourcePorts": null, "destinationPorts": "443-443",
                          "tcpFlags": {"flags": 2, "mask": 18}},
               "name": "c-ipv4-tcp-DportData-443-DportMask-65535-tcpFlag-2-tcpFlagMask-18",
               "ruleFilter": {
                  "source": "10.0.0.0/8", "destination": "0.0.0.0/0",
                  "sportDataMaskValid": false,
                  "sportDataMask": {"l4PortData": 0, "l4PortMask": 0},
                  "dportDataMaskValid": true,
                  "dportDataMask": {"l4PortData": 443, "l4PortMask": 65535},
                  "proto": 6,
                  "sampleDataAndMask": {
                     "name": "sampleDataAndMask", "data": 3, "mask": 255, "version": 4
                  },
                  "tcpFlagAndMask": {"tcpFlag": 2, "tcpFlagMask": 18}
               },
               "ruleAction": {
                  "dscpDataAndMask": {"dscpData": 0, "dscpMask": 0},
                  "action": ["sampleAction", "setDscpAction"]
               }
            }
         },
         "ruleByIndex": {
            "0": "c-ipv4-tcp-DportData-443-DportMask-65535-tcpFlag-2-tcpFlagMask-18"
         },
         "policyIntf": ["Ethernet1"],
         "programmedPolicy": false, "rulesClientUpdated": false,
         "aclConfigStatus": {"statusInOrder": {}, "currentIndex": 0}
      }],
      "refused": [],
      "totals": {"acls": 1, "rules": 1, "tcamEntries": 1}
   })");
   EXPECT_EQ(nlohmann::json::parse(result.out), expected);
   EXPECT_EQ(result.err, "");
}

TEST_F(Compile, jsonNamesWhatWasRefused) {
   const std::string path = policy(twoPolicies);
   const auto result = compile({"--format", "json", path});
   EXPECT_EQ(result.exitCode, 1);
   const auto document = nlohmann::json::parse(result.out);
   EXPECT_EQ(document["refused"], nlohmann::json::parse(
                                        R"([{"policy": "bad", "family": "ipv4",
                     "message": "Unsupported action(s): 'drop', in configuration",
                     "classes": [{"class": "dropped", "key": "actions/drop", "line": 13,
                                  "column": 19, "file": ")" +
                                        path + R"("}]}])"));
   EXPECT_EQ(result.err, "bad ipv4: Unsupported action(s): 'drop', in configuration\n   " + path +
                               ":13:19: class 'dropped': actions/drop\n");
}

TEST_F(Compile, withoutTcpFlagsInHardwareTheyAreNotShown) {
   const std::string text = R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes: [{ name: c, actions: [sample-all], ipv4: {} }]
)";
   EXPECT_NE(compile({policy("hardware: { tcp-flags: true }\n" + text)}).out.find("Tcp Flag"),
             std::string::npos);
   EXPECT_EQ(compile({policy("hardware: { tcp-flags: false }\n" + text)}).out.find("Tcp Flag"),
             std::string::npos);
}

TEST_F(Compile, badUsage) {
   EXPECT_EQ(runProgram({program}).exitCode, 2);
   EXPECT_EQ(runProgram({program, "kompile"}).exitCode, 2);
   EXPECT_EQ(compile({}).exitCode, 2);
   EXPECT_EQ(compile({"--format", "xml", policy(twoPolicies)}).exitCode, 2);
   EXPECT_EQ(compile({"--family", "mac", policy(twoPolicies)}).exitCode, 2);
}

TEST_F(Compile, helpAndVersion) {
   EXPECT_EQ(runProgram({program, "--help"}).exitCode, 0);
   EXPECT_NE(runProgram({program, "--help"}).out.find("compile"), std::string::npos);
   const auto help = compile({"--help"});
   EXPECT_EQ(help.exitCode, 0);
   for (const char* option : {"FILE", "--policy", "--family", "--format", "Exit status"}) {
      EXPECT_NE(help.out.find(option), std::string::npos) << option;
   }
   EXPECT_EQ(runProgram({program, "--version"}).exitCode, 0);
}

TEST_F(Compile, aModuleThatCannotBeUsed) {
   const std::string path = policy(twoPolicies);
   const auto missing = compile({path}, {"POSTCARD_MODULE=/nonexistent.so"});
   EXPECT_EQ(missing.exitCode, 3);
   EXPECT_NE(missing.err.find("helper module cannot be loaded: /nonexistent.so"), std::string::npos)
         << missing.err;
   const std::string other = std::string{POSTCARD_LIB_DIR} + "/libOruPostcardPlatform.so";
   const auto wrong = compile({path}, {"POSTCARD_MODULE=" + other});
   EXPECT_EQ(wrong.exitCode, 3);
   EXPECT_EQ(wrong.err,
             other + ": not a helper module: it has no symbol oruPostcardPlatformVersion\n");
   const std::string foreign = std::string{POSTCARD_MODULE_DIR} + "/AnotherPlatform.so";
   const auto version = compile({path}, {"POSTCARD_MODULE=" + foreign});
   EXPECT_EQ(version.exitCode, 3);
   EXPECT_EQ(version.err, fmt::format("{}: built for platform version {}, but this is platform "
                                      "version {}\n",
                                      foreign, Kiv::platformVersion + 1, Kiv::platformVersion));
   EXPECT_EQ(version.out, "");
}

// What a toggle file declares holds for the check of the policy file as well: or else the helper
// would meet a policy for which it is not made.
TEST_F(Compile, aToggleThatIsDeclaredOff) {
   const TestSupport::TemporaryFolder libraries;
   const std::string platform = "libOruPostcardPlatform.so.0"; // as the loader looks for it
   std::filesystem::copy(POSTCARD_LIB_DIR "/" + platform, libraries.path(platform));
   libraries.write("PostcardTelemetryCommon.json",
                   R"({"toggles": {"FeaturePostcardTelemetryTcpControl": {"default": false}}})");
   const std::string environment = "LD_LIBRARY_PATH=" + libraries.path("");
   const std::string policies = R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
      - name: c
        ipv4:
          protocols: [{ protocol: tcp, ports: [{ source: [1] }, { source: [2] }] }]
)";
   const std::string path = policy(policies);
   for (const char* command : {"compile", "check", "agent"}) {
      const auto refused = runProgram({program, command, path}, {environment});
      EXPECT_EQ(refused.exitCode, 2) << command << refused.err;
      EXPECT_EQ(refused.err,
                path + ":7:47: 2 port entries while the toggle "
                       "FeaturePostcardTelemetryTcpControl is off (expected at most 1)\n");
   }
   const std::string setting = "feature-toggles: { FeaturePostcardTelemetryTcpControl: true }\n";
   const auto overridden = compile({policy(setting + policies)}, {environment});
   EXPECT_EQ(overridden.exitCode, 0);
   EXPECT_EQ(overridden.err, "ACLs: 1, rules: 2, TCAM entries: 2\n");
}

TEST_F(Compile, outputThatCannotBeWrittenIsAnError) {
   const std::string path = policy(twoPolicies);
   for (const std::string& command :
        {"compile --policy web " + path, "compile --policy web --format json " + path,
         "check --policy web " + path, std::string{"types"}}) {
      const auto full = runProgram({"/bin/sh", "-c", program + " " + command + " >/dev/full"});
      EXPECT_EQ(full.exitCode, 3) << command;
      EXPECT_NE(full.err.find("postcard: standard output: "), std::string::npos) << full.err;
   }
   // Without standard streams, what a program opens takes their numbers.
   const auto closed = runProgram({"/bin/sh", "-c", program + " compile " + path + " <&- >&-"});
   EXPECT_EQ(closed.exitCode, 3);
   EXPECT_EQ(closed.err, "postcard: standard output: Bad file descriptor\n");
}

TEST_F(Compile, listHasALineForEachEntry) {
   const std::string path = policy(R"(hardware: { tcp-flags: true }
policies:
  - name: p
    interfaces: { ipv4: [Ethernet1], ipv6: [Ethernet1] }
    classes:
      - name: c
        actions: [sample]
        ipv4:
          source: [10.0.0.0/8]
          sample: { data: 1, mask: 0xff, field: ip-id }
          protocols:
            - { protocol: tcp, ports: [{ source: [1024-2047], destination: [80] }],
                tcp-flags: [{ flags: [syn], mask: [syn, ack] }] }
            - { protocol: udp, ports: [{ destination: [2, 2-3] }] }
      - { name: all, actions: [sample-all, { set-dscp: 46 }], ipv4: {} }
      - { name: none, actions: [], ipv6: { sample: { data: 0, mask: 1 } } }
)");
   const auto result = compile({"--format", "list", path});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   EXPECT_EQ(result.err, "ACLs: 2, rules: 7, TCAM entries: 7\n");
   EXPECT_EQ(result.out, R"(p-ipv4
  0  c-ipv4-tcp-SportData-1024-SportMask-64512-DportData-80-DportMask-65535-tcpFlag-2-tcpFlagMask-18  tcp 10.0.0.0/8 > any sport 1024-2047 dport 80 flags 0x2/0x12 ip-id 0x1/0xff  sample            from 12:40 entry 1 sport 1024-2047 dport 80 flags 0x2/0x12
  1  c-ipv4-udp-DportData-2-DportMask-65535                                                           udp 10.0.0.0/8 > any dport 2 ip-id 0x1/0xff                                  sample            from 14:40 entry 1 dport 2
  2  c-ipv4-udp-DportData-2-DportMask-65534                                                           udp 10.0.0.0/8 > any dport 2-3 ip-id 0x1/0xff                                sample            from 14:40 entry 1 dport 2-3
  3  all-ipv4-tcp                                                                                     tcp any > any                                                                sample, set-dscp  from 15:17
  4  all-ipv4-udp                                                                                     udp any > any                                                                sample, set-dscp  from 15:17
p-ipv6
  0  none-ipv6-tcp  tcp any > any  none  from 16:17
  1  none-ipv6-udp  udp any > any  none  from 16:17
)");
}

TEST_F(Compile, listLinesHaveNoTrailingBlanksAndCountAsTheTotals) {
   for (const char* name : {"web-tier", "flags-and-ranges", "all-features", "large-datacenter"}) {
      const auto result = compile({"--format", "list", source + "/examples/" + name + ".yaml"});
      std::istringstream lines{result.out};
      std::string line;
      std::size_t acls = 0;
      std::size_t entries = 0;
      while (std::getline(lines, line)) {
         EXPECT_FALSE(line.ends_with(' ')) << line;
         (line.starts_with("  ") ? entries : acls) += 1;
      }
      EXPECT_TRUE(result.err.find(fmt::format("ACLs: {}, ", acls)) != std::string::npos &&
                  result.err.ends_with(fmt::format("TCAM entries: {}\n", entries)))
            << result.err;
   }
}

// Rules say what they were made for, also when names contain what separates the parts of names.
TEST_F(Compile, jsonRulesCarryPolicyFamilyAndClass) {
   const auto result = compile({"--format", "json", policy(R"(policies:
  - name: p-ipv4-q
    interfaces: { ipv4: [Ethernet1], ipv6: [Ethernet1] }
    classes:
      - { name: c-ipv6-d, actions: [sample], ipv4: {}, ipv6: {} }
)")});
   const auto document = nlohmann::json::parse(result.out);
   ASSERT_EQ(document["acls"].size(), 2U);
   for (const auto& acl : document["acls"]) {
      EXPECT_EQ(acl["ruleByName"].size(), 2U);
      for (const auto& rule : acl["ruleByName"]) {
         EXPECT_EQ(rule["policy"], "p-ipv4-q");
         EXPECT_EQ(rule["family"], acl["aclType"]);
         EXPECT_EQ(rule["class"], "c-ipv6-d");
      }
   }
}

TEST_F(Compile, jsonRulesCarryTheirOrigin) {
   const auto result = compile({"--format", "json", policy(R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
      - name: web
        actions: [sample]
        ipv4:
          protocols:
            - { protocol: tcp, ports: [{ source: [9] }, { source: [2-4], destination: [80] }],
                tcp-flags: [{ flags: [syn], mask: [syn, ack] }] }
      - { name: rest, actions: [], ipv4: { protocols: [{ protocol: udp }] } }
)")});
   const auto rules = nlohmann::json::parse(result.out)["acls"][0]["ruleByName"];
   EXPECT_EQ(rules["web-ipv4-tcp-SportData-4-SportMask-65535-DportData-80-DportMask-65535-tcpFlag-"
                   "2-tcpFlagMask-18"]["origin"],
             nlohmann::json::parse(R"({"line": 9, "column": 57, "protocol": "tcp", "portEntry": 2,
                "sourcePorts": "2-4", "destinationPorts": "80-80",
                "tcpFlags": {"flags": 2, "mask": 18}})"));
   EXPECT_EQ(rules["rest-ipv4-udp"]["origin"],
             nlohmann::json::parse(R"({"line": 11, "column": 68, "protocol": "udp",
                "portEntry": null, "sourcePorts": null, "destinationPorts": null,
                "tcpFlags": null})"));
}

TEST_F(Compile, jsonFindings) {
   const std::string path = policy("policies:\n  - nam: web\n");
   for (const char* command : {"compile", "check", "explain"}) {
      std::vector<std::string> arguments{program, command, "--format", "json", path};
      if (command == std::string_view{"explain"}) {
         arguments.insert(arguments.end(), {"--packet", "tcp 10.0.0.1:1 > 10.0.0.2:2"});
      }
      const auto result = runProgram(arguments);
      EXPECT_EQ(result.exitCode, 2);
      const auto document = nlohmann::json::parse(result.out);
      EXPECT_EQ(document["schema"], 1);
      EXPECT_EQ(document["omitted"], 0);
      std::string text; // as standard error has it
      std::set<std::string> codes;
      for (const auto& finding : document["findings"]) {
         codes.insert(finding["code"].get<std::string>());
         text += fmt::format("{}:{}:{}: {}\n", finding["file"].get<std::string>(),
                             finding["line"].get<int>(), finding["column"].get<int>(),
                             finding["text"].get<std::string>());
      }
      EXPECT_EQ(codes, (std::set<std::string>{"missing-key", "unknown-key"}));
      EXPECT_EQ(text, result.err);
      EXPECT_NE(text, "");
   }
}

TEST_F(Compile, jsonFindingsWithoutAPlace) {
   const auto unreadable = compile({"--format", "json", "/nonexistent.yaml"});
   const auto finding = nlohmann::json::parse(unreadable.out)["findings"][0];
   EXPECT_EQ(finding["file"], "/nonexistent.yaml");
   EXPECT_EQ(finding["line"], nullptr);
   EXPECT_EQ(finding["column"], nullptr);
   EXPECT_EQ(finding["code"], "unreadable");
   EXPECT_EQ(finding["text"], "cannot open: No such file or directory");
   const std::string path = policy(twoPolicies);
   const auto missing = compile({"--format", "json", "--policy", "wbe", path});
   EXPECT_EQ(nlohmann::json::parse(missing.out),
             nlohmann::json::parse(R"({"schema": 1, "omitted": 0, "findings": [{"file": ")" + path +
                                   R"(", "line": null, "column": null, "code": "unknown-policy",
                                   "text": "there is no policy 'wbe'"}]})"));
}

// The plug-in's message is about the first class only.
TEST_F(Compile, aRefusalNamesEveryClassConcernedAtItsPlace) {
   const std::string path = policy(R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
      - name: one
        actions: [sample]
        ipv4: { fragments: true, ip-ttl: 3 }
      - { name: good, actions: [sample], ipv4: {} }
      - name: two
        actions: [drop, sample]
        ipv4: {}
)");
   const std::string places = "   " + path + ":7:28: class 'one': fragments\n   " + path +
                              ":7:42: class 'one': ip-ttl\n   " + path +
                              ":10:19: class 'two': actions/drop\n";
   for (const char* command : {"compile", "check"}) {
      const auto result = runProgram({program, command, path});
      EXPECT_EQ(result.exitCode, 1);
      EXPECT_EQ(result.err.substr(0, result.err.find("ACLs: ")),
                "p ipv4: Unsupported match(es): 'Fragments', 'IP TTL', in configuration\n" +
                      places);
      const auto json = runProgram({program, command, "--format", "json", path});
      const auto document = nlohmann::json::parse(json.out);
      std::string text;
      for (const auto& each : document["refused"][0]["classes"]) {
         text += fmt::format("   {}:{}:{}: class '{}': {}\n", each["file"].get<std::string>(),
                             each["line"].get<int>(), each["column"].get<int>(),
                             each["class"].get<std::string>(), each["key"].get<std::string>());
      }
      EXPECT_EQ(text, places);
   }
}

} // namespace
