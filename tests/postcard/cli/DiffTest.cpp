// `postcard diff`, the real program with the real module: versions that are the same, versions that
// differ, the witness of every difference asked about with `explain`, and every exit status.
#include "support/RunProgram.h"
#include "support/Sanitized.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;
using TestSupport::examples;
using TestSupport::program;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

class Diff : public testing::Test {
 protected:
   std::string write(const std::string& name, const std::string& text) const {
      return folder_.write(name, text);
   }
   static ProgramResult diff(std::vector<std::string> arguments) {
      arguments.insert(arguments.begin(), {program, "diff"});
      return runProgram(std::move(arguments));
   }
   ProgramResult diffOf(const std::string& before, const std::string& after,
                        const std::string& format = "text") const {
      return diff({"--format", format, write("old.yaml", before), write("new.yaml", after)});
   }
   // The result, with the names of the files without their folder.
   std::string textOf(const std::string& before, const std::string& after) const {
      std::string text = diffOf(before, after).out;
      const std::string path = write("x", "");
      const std::string folder = path.substr(0, path.size() - 1);
      for (std::size_t at = 0; (at = text.find(folder)) != std::string::npos;) {
         text.erase(at, folder.size());
      }
      return text;
   }
   static std::string classOf(const std::string& file, const std::string& family,
                              const std::string& witness) {
      const auto result = runProgram({program, "explain", file, "--family", family, "--format",
                                      "json", "--packet", witness});
      const Json acl = Json::parse(result.out).at("packets").at(0).at("acls").at(0);
      return acl.at("class").is_null() ? "" : acl.at("class").get<std::string>();
   }

 private:
   TestSupport::TemporaryFolder folder_;
};

const std::string head = "policies:\n"
                         "  - name: p\n"
                         "    interfaces: { ipv4: [Ethernet1] }\n"
                         "    classes:\n";
const std::string web = "      - { name: web, actions: [sample], ipv4: { sample: { data: 1, mask: "
                        "0xff }, protocols: [{ protocol: tcp, ports: [{ destination: [80, 443] }] "
                        "}] } }\n";
const std::string dns = "      - { name: dns, actions: [], ipv4: { protocols: [{ protocol: udp, "
                        "ports: [{ destination: [53] }] }] } }\n";

TEST_F(Diff, aFileWithItself) {
   for (const char* name :
        {"web-tier", "flags-and-ranges", "all-features", "large-datacenter", "twenty-services"}) {
      const std::string file = examples + name + ".yaml";
      const auto result = diff({file, file});
      EXPECT_EQ(result.out, "no difference\n") << name;
      EXPECT_EQ(result.exitCode, 0) << name;
   }
}

struct Same {
   const char* name;
   std::string before;
   std::string after;
};

const std::vector<Same> sames = {
      {"re-ordered definitions and members",
       "definitions: { ports: { a: [80], b: [443] }, prefixes: { n: 10.0.0.0/8, m: 10.1.0.0/16 } "
       "}\n" +
             head +
             "      - { name: c, actions: [sample], ipv4: { source: [m], protocols: [{ protocol: "
             "tcp, ports: [{ destination: [a, b] }] }] } }\n",
       "definitions: { prefixes: { m: 10.1.0.0/16, n: 10.0.0.0/8 }, ports: { b: [443], a: [80] } "
       "}\n" +
             head +
             "      - { actions: [sample], name: c, ipv4: { protocols: [{ ports: [{ destination: "
             "[b, a] }], protocol: tcp }], source: [m] } }\n"},
      {"an alias expanded",
       head + "      - { name: a, actions: [sample], ipv4: &f { source: [10.0.0.0/8] } }\n"
              "      - { name: b, actions: [], ipv4: *f }\n",
       head + "      - { name: a, actions: [sample], ipv4: { source: [10.0.0.0/8] } }\n"
              "      - { name: b, actions: [], ipv4: { source: [10.0.0.0/8] } }\n"},
      {"a rate instead of a mask",
       head + "      - { name: c, actions: [sample], ipv4: { sample: { data: 1, mask: 0xff } } }\n",
       head + "      - { name: c, actions: [sample], ipv4: { sample: { rate: 256 } } }\n"},
      {"other places and comments", head + web + dns, "# moved\n\n" + head + web + "\n" + dns},
};

TEST_F(Diff, whatMeansTheSameIsTheSame) {
   for (const Same& same : sames) {
      const auto result = diffOf(same.before, same.after);
      EXPECT_EQ(result.out, "no difference\n") << same.name;
      EXPECT_EQ(result.err, "") << same.name;
      EXPECT_EQ(result.exitCode, 0) << same.name;
   }
}

TEST_F(Diff, classesThatDoNotMeetChangePlaces) {
   EXPECT_EQ(textOf(head + web + dns, head + dns + web),
             "new.yaml:2:11: policy 'p' changed\n"
             "p ipv4\n"
             "   entries: 0 added, 0 removed, 1 moved, 2 kept\n"
             "   agent: makes the rules anew; request 1 of 1, and the old rules stay until it is "
             "answered\n"
             "agent: takes over the new file with 1 request\n");
   const Json document = Json::parse(diffOf(head + web + dns, head + dns + web, "json").out);
   EXPECT_EQ(document["same"], false);
   EXPECT_EQ(document["acls"][0]["packets"], Json::array());
}

TEST_F(Diff, oneBitOfOneMask) {
   std::string before = head + web;
   before.replace(before.find("data: 1"), 7, "data: 2");
   std::string after = before;
   after.replace(after.find("0xff"), 4, "0xfe");
   EXPECT_EQ(diffOf(before, after).exitCode, 1);
   EXPECT_EQ(textOf(before, after),
             "new.yaml:2:11: policy 'p' changed\n"
             "p ipv4\n"
             "   rate: class 'web', 1 packet in 256, by checksum -> class 'web', 1 packet in 128, "
             "by checksum\n"
             "      all: tcp any > any dport 80,443 checksum 0x2/0xff\n"
             "      such as: tcp 0.0.0.0:0 > 0.0.0.0:80 checksum=0x0002\n"
             "   sampling: no class, not sampled -> class 'web', 1 packet in 128, by checksum\n"
             "      all: tcp any > any dport 80,443 checksum 0x3/0xff\n"
             "      such as: tcp 0.0.0.0:0 > 0.0.0.0:80 checksum=0x0003\n"
             "   entries: 2 added, 2 removed, 0 moved, 0 kept\n"
             "      - tcp any > any dport 80 checksum 0x2/0xff  sample\n"
             "      - tcp any > any dport 443 checksum 0x2/0xff  sample\n"
             "      + tcp any > any dport 80 checksum 0x2/0xfe  sample\n"
             "      + tcp any > any dport 443 checksum 0x2/0xfe  sample\n"
             "   agent: makes the rules anew; request 1 of 1, and the old rules stay until it is "
             "answered\n"
             "agent: takes over the new file with 1 request\n");
}

TEST_F(Diff, policiesAndInterfacesComeAndGo) {
   const std::string before = "policies:\n"
                              "  - { name: gone, interfaces: { ipv4: [E1] }, classes: [{ name: c, "
                              "actions: [sample], ipv4: {} }] }\n"
                              "  - { name: stays, interfaces: { ipv4: [E1, E2] }, classes: [{ "
                              "name: c, actions: [], ipv4: {} }] }\n"
                              "  - { name: same, interfaces: { ipv4: [E1] }, classes: [{ name: c, "
                              "actions: [], ipv4: {} }] }\n";
   const std::string after = "policies:\n"
                             "  - { name: same, interfaces: { ipv4: [E1] }, classes: [{ name: c, "
                             "actions: [], ipv4: {} }] }\n"
                             "  - { name: stays, interfaces: { ipv4: [E2, E3, E4] }, classes: [{ "
                             "name: c, actions: [], ipv4: {} }] }\n"
                             "  - { name: new, interfaces: { ipv6: [E1] }, classes: [{ name: c, "
                             "actions: [sample], ipv6: { protocols: [{ protocol: tcp }] } }] }\n";
   EXPECT_EQ(textOf(before, after),
             "old.yaml:2:13: policy 'gone' removed\n"
             "new.yaml:3:13: policy 'stays' changed\n"
             "new.yaml:4:13: policy 'new' added\n"
             "gone ipv4\n"
             "   interfaces removed: E1\n"
             "   sampling: class 'c', every packet -> no class, not sampled\n"
             "      all: tcp,udp any > any\n"
             "      such as: tcp 0.0.0.0:0 > 0.0.0.0:0\n"
             "   entries: 0 added, 2 removed, 0 moved, 0 kept\n"
             "      - tcp any > any  sample\n"
             "      - udp any > any  sample\n"
             "   agent: removes the policy; request 1 of 5, and the old rules stay until it is "
             "answered\n"
             "stays ipv4\n"
             "   interfaces added: E3, E4\n"
             "   interfaces removed: E1\n"
             "   agent: changes interfaces, and the rules stay; requests 2-4 of 5\n"
             "new ipv6\n"
             "   interfaces added: E1\n"
             "   sampling: no class, not sampled -> class 'c', every packet\n"
             "      all: tcp any > any\n"
             "      such as: tcp [::]:0 > [::]:0\n"
             "   entries: 1 added, 0 removed, 0 moved, 0 kept\n"
             "      + tcp any > any  sample\n"
             "   agent: creates the policy; request 5 of 5\n"
             "agent: takes over the new file with 5 requests\n");
}

TEST_F(Diff, explainConfirmsEveryWitness) {
   std::string after = head + dns + web;
   after.replace(after.find("0xff"), 4, "0x7f");
   after.replace(after.find("443"), 3, "8443");
   after += "      - { name: rest, actions: [sample-all], ipv4: { source: [10.0.0.0/8] } }\n";
   const std::string before = head + web + dns;
   const Json document = Json::parse(diffOf(before, after, "json").out);
   const std::string old = write("old.yaml", before);
   const std::string wanted = write("new.yaml", after);
   std::set<std::string> kinds;
   for (const Json& each : document["acls"][0]["packets"]) {
      const auto name = [](const Json& treatment) {
         return treatment.is_null() ? std::string{} : treatment["class"].get<std::string>();
      };
      EXPECT_EQ(classOf(old, "ipv4", each["witness"]), name(each["old"])) << each;
      EXPECT_EQ(classOf(wanted, "ipv4", each["witness"]), name(each["new"])) << each;
      kinds.insert(each["difference"]);
   }
   EXPECT_EQ(kinds, (std::set<std::string>{"rate", "sampling"}));
}

TEST_F(Diff, jsonHasEverything) {
   const Json document = Json::parse(diffOf(head + dns, head + web, "json").out);
   EXPECT_EQ(document["schema"], 1);
   EXPECT_EQ(document["same"], false);
   EXPECT_EQ(document["policies"], Json::parse(R"([{"policy": "p", "change": "changed",
      "old": {"line": 2, "column": 11}, "new": {"line": 2, "column": 11}}])"));
   EXPECT_EQ(document["samePolicies"], 0);
   EXPECT_EQ(document["featureToggles"], Json::array());
   const Json& acl = document["acls"][0];
   EXPECT_EQ(acl["policy"], "p");
   EXPECT_EQ(acl["family"], "ipv4");
   EXPECT_EQ(acl["interfaces"], Json::parse(R"({"added": [], "removed": []})"));
   EXPECT_EQ(acl["notDecided"], Json::array());
   EXPECT_EQ(acl["entries"]["added"].size(), 2U);
   EXPECT_EQ(acl["entries"]["removed"], Json::parse(R"(["udp any > any dport 53  none"])"));
   EXPECT_EQ(acl["agent"], Json::parse(R"({"action": "re-create", "requests": 1,
      "firstRequest": 1, "oldRulesUntilRequest": 1})"));
   EXPECT_EQ(document["agent"], Json::parse(R"({"accepts": true, "reasons": [], "requests": 1})"));
   EXPECT_EQ(document["refused"], Json::parse(R"({"old": [], "new": []})"));
}

TEST_F(Diff, aRefusedPolicyHasNoAcl) {
   const std::string bad = head + "      - { name: c, actions: [drop], ipv4: {} }\n";
   const auto result = diffOf(head + dns, bad);
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_NE(result.err.find("new.yaml: p ipv4: Unsupported action(s): 'drop', in configuration\n"),
             std::string::npos)
         << result.err;
   EXPECT_NE(result.out.find("agent: refuses the new file and keeps all rules: the plug-in refuses "
                             "policy 'p' in ipv4\n"),
             std::string::npos)
         << result.out;
   EXPECT_EQ(diffOf(bad, bad).out, "no difference\n");
}

TEST_F(Diff, otherFeatureTogglesNeedARestart) {
   const std::string off = "feature-toggles: { FeaturePostcardTelemetryTcpControl: false }\n";
   const std::string two = head + "      - { name: c, actions: [], ipv4: { protocols: [{ protocol: "
                                  "udp, ports: [{ source: [1] }, { source: [2] }] }] } }\n";
   const std::string text = textOf(off + head + dns, two);
   EXPECT_EQ(text.substr(0, text.find('\n') + 1),
             "feature toggle FeaturePostcardTelemetryTcpControl differs\n");
   EXPECT_NE(text.find("agent: refuses the new file and keeps all rules: the feature toggles "
                       "differ, and an agent reads them once: restart it\n"),
             std::string::npos)
         << text;
   EXPECT_EQ(diffOf(off + head + dns, head + dns).exitCode, 1);
}

// Every one of them may be kept for every one: 144 million pairs, which would take a gigabyte.
TEST_F(Diff, veryManyEqualEntriesTakeLittleMemory) {
   if (TestSupport::sanitized) {
      GTEST_SKIP() << "the sanitizer's own memory counts";
   }
   const auto equals = [](int count) {
      std::string ports = "{ destination: [80] }";
      for (int i = 1; i < count; ++i) {
         ports += ", { destination: [80] }";
      }
      return head +
             "      - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp, ports: [" +
             ports + "] }] } }\n";
   };
   const auto result = diffOf(equals(12'000), equals(12'001));
   EXPECT_EQ(result.exitCode, 1) << result.err;
   EXPECT_NE(result.out.find("   entries: 1 added, 0 removed, 0 moved, 12000 kept\n"),
             std::string::npos)
         << result.out;
   EXPECT_LT(result.peakKibibytes, 300 * 1024);
}

TEST_F(Diff, wrongInput) {
   const auto result = diffOf("policies:\n  - nam: web\n", "policy: []\n", "json");
   EXPECT_EQ(result.exitCode, 2);
   const Json document = Json::parse(result.out);
   std::set<std::string> files;
   for (const Json& finding : document["findings"]) {
      const std::string file = finding["file"];
      files.insert(file.substr(file.rfind('/') + 1));
   }
   EXPECT_EQ(files, (std::set<std::string>{"old.yaml", "new.yaml"}));
   EXPECT_EQ(diff({write("a.yaml", head + dns)}).exitCode, 2);
   EXPECT_EQ(diff({write("a.yaml", head + dns), "/nonexistent.yaml"}).exitCode, 2);
   const auto both = diff({"-", "/dev/stdin"});
   EXPECT_EQ(both.exitCode, 2);
   EXPECT_EQ(both.err, "postcard diff: only one of OLD and NEW can be standard input\n");
}

TEST_F(Diff, aMissingModuleIsTheEnvironment) {
   const std::string file = write("a.yaml", head + dns);
   EXPECT_EQ(
         runProgram({program, "diff", file, file}, {"POSTCARD_MODULE=/nonexistent.so"}).exitCode,
         3);
}

} // namespace
