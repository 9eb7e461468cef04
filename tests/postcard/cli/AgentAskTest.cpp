// What is asked about a running agent's policies: `reload --dry-run`, `explain --socket`, and where
// the rules of `show` come from.
#include "postcard/cli/AgentProgram.h"

namespace {

using namespace CliTest;
using Json = nlohmann::json;

class AgentAsk : public AgentProgram {
 protected:
   ProgramResult explain(std::vector<std::string> options) const {
      options.insert(options.begin(), {program, "explain"});
      return runProgram(std::move(options));
   }
   // What a socket that answers every request with `text` makes of `postcard explain --socket`.
   ProgramResult explainAt(const std::string& text) const {
      const std::string path = file() + ".strange";
      const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_un address{AF_UNIX, {}};
      std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
      EXPECT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
      EXPECT_EQ(::listen(listener, 1), 0);
      std::thread stranger{[&] {
         const int client = ::accept(listener, nullptr, nullptr);
         char request[4096];
         while (::read(client, request, sizeof request) > 0) {
         }
         EXPECT_EQ(::write(client, text.data(), text.size()), static_cast<ssize_t>(text.size()));
         ::close(client);
      }};
      ProgramResult result = explain({"--socket", path, "--packet", "tcp 1.2.3.4:1 > 5.6.7.8:2"});
      stranger.join();
      ::close(listener);
      ::unlink(path.c_str());
      return result;
   }
};

const std::string udpOnly = "{ name: dns, actions: [sample-all], ipv4: { protocols: "
                            "[{ protocol: udp }] } }";

TEST_F(AgentAsk, aReloadThatIsTriedSaysWhatItWouldChangeAndChangesNothing) {
   write(policyText("Ethernet1", oneClass));
   start();
   EXPECT_TRUE(eventually([this] { return allProgrammed(); }));
   const ProgramResult none = ask("reload", {"--dry-run"});
   EXPECT_EQ(none.exitCode, 0) << none.err;
   EXPECT_EQ(none.out, "no difference\n");
   const Json before = statuses();
   write(policyText("Ethernet1, Ethernet2", udpOnly));
   const ProgramResult result = ask("reload", {"--dry-run", "--format", "json"});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_EQ(result.err, "");
   const Json document = Json::parse(result.out);
   EXPECT_EQ(document["old"], file() + " (running)");
   EXPECT_EQ(document["new"], file());
   EXPECT_EQ(document["acls"][0]["interfaces"]["added"], Json({"Ethernet2"}));
   EXPECT_EQ(statuses(), before);
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_EQ(ask("reload", {"--dry-run"}).out, "no difference\n");
}

TEST_F(AgentAsk, aFileThatCannotBeUsedIsReportedByTheTrial) {
   write(policyText("Ethernet1", oneClass));
   start();
   write("policies: 7\n");
   const ProgramResult result = ask("reload", {"--dry-run"});
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_EQ(result.out, "");
   EXPECT_TRUE(result.err.starts_with(file() + ":1:11: ")) << result.err;
}

TEST_F(AgentAsk, aPolicyThatIsNotInForceIsNamed) {
   write(policyText("Ethernet1", oneClass));
   start({"--capacity", "1"});
   EXPECT_TRUE(eventually([this] { return states() == std::vector<std::string>{"failed"}; }));
   const ProgramResult result = ask("reload", {"--dry-run"});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.err, "not in force as the file says: web ipv4: failed, full: web-ipv4 needs 2 "
                         "entries, 1 of 1 are free\n");
}

TEST_F(AgentAsk, aPacketIsExplainedInThePoliciesThatTheAgentHas) {
   write(policyText("Ethernet1", oneClass));
   start();
   EXPECT_TRUE(eventually([this] { return allProgrammed(); }));
   write(policyText("Ethernet1", udpOnly)); // which the agent has not read
   const std::string packet = "tcp 1.2.3.4:1 > 5.6.7.8:2 flags=syn checksum=1 id=1 dscp=0";
   const ProgramResult running = explain({"--socket", socket(), "--packet", packet});
   EXPECT_EQ(running.exitCode, 0) << running.err;
   EXPECT_NE(running.out.find("class all: yes, rule 0 all-ipv4-tcp from 1:"), std::string::npos)
         << running.out;
   const ProgramResult onDisk = explain({"--packet", packet, file()});
   EXPECT_NE(onDisk.out.find("not sampled"), std::string::npos) << onDisk.out;
}

TEST_F(AgentAsk, eitherAFileOrASocketIsNamed) {
   const std::string packet = "tcp 1.2.3.4:1 > 5.6.7.8:2";
   for (const std::vector<std::string>& options :
        {std::vector<std::string>{"--packet", packet},
         std::vector<std::string>{"--packet", packet, file(), "--socket", socket()}}) {
      const ProgramResult result = explain(options);
      EXPECT_EQ(result.exitCode, 2);
      EXPECT_NE(result.err.find("FILE"), std::string::npos) << result.err;
      EXPECT_NE(result.err.find("--socket"), std::string::npos) << result.err;
   }
   const ProgramResult nobody = explain({"--socket", socket(), "--packet", packet});
   EXPECT_EQ(nobody.exitCode, 3);
   EXPECT_NE(nobody.err.find(socket()), std::string::npos) << nobody.err;
   EXPECT_EQ(ask("reload", {"--dry-run"}).exitCode, 3);
}

TEST_F(AgentAsk, answersThatAreNoPoliciesAreNotTakenForSome) {
   struct Row {
      std::string answer;
      std::string reason;
   };
   const Row rows[] = {
         {"{\"exit\":2}\nunknown command 'file'\n",
          "the agent does not tell its policies: unknown command 'file'"},
         {"{\"exit\":0}\nno header\n", "the agent's answer has another form"},
         {"{\"exit\":0}\n{\"path\":\"/p\"}\npolicies: []\n", "the agent's answer has another form"},
         {"{\"exit\":0}\n{\"path\":7,\"unsettled\":[]}\n", "the agent's answer has another form"},
   };
   for (const auto& [answer, reason] : rows) {
      const ProgramResult result = explainAt(answer);
      EXPECT_EQ(result.exitCode, 3) << reason;
      EXPECT_EQ(result.err, file() + ".strange: " + reason + "\n");
   }
}

// The rules of `show` in JSON.
Json rulesOf(const ProgramResult& show) {
   return Json::parse(show.out)["acls"][0]["ruleByName"];
}

TEST_F(AgentAsk, rulesThatAreShownSayWhereTheyComeFrom) {
   write("policies:\n- name: web\n  interfaces: { ipv4: [Ethernet1] }\n  classes:\n"
         "  - name: a\n    actions: [sample]\n    ipv4:\n      protocols:\n"
         "      - protocol: tcp\n        ports: [{ destination: [80-81] }]\n");
   start();
   EXPECT_TRUE(eventually([this] { return allProgrammed(); }));
   const Json rules = rulesOf(ask("show", {"--format", "json"}));
   ASSERT_EQ(rules.size(), 1U);
   EXPECT_EQ(rules.begin().value()["origin"],
             Json::parse(R"({"line": 10, "column": 17, "protocol": "tcp", "portEntry": 1,
                             "sourcePorts": null, "destinationPorts": "80-81",
                             "tcpFlags": null})"));
}

// The helper has nothing of a version that it refuses, nor of the one before.
TEST_F(AgentAsk, aPolicyThatIsRefusedNowHasNoRules) {
   write(policyText("Ethernet1", oneClass));
   start();
   EXPECT_TRUE(eventually([this] { return allProgrammed(); }));
   EXPECT_EQ(rulesOf(ask("show", {"--format", "json"})).size(), 2U);
   write(policyText("Ethernet1", "{ name: all, actions: [sample-all, police], ipv4: {} }"));
   EXPECT_EQ(ask("reload", {"--partial"}).exitCode, 0);
   EXPECT_EQ(states(), std::vector<std::string>{"unsupported"});
   const Json document = Json::parse(ask("show", {"--format", "json"}).out);
   for (const auto& acl : document["acls"]) {
      EXPECT_TRUE(acl["ruleByName"].empty()) << acl;
   }
}

} // namespace
