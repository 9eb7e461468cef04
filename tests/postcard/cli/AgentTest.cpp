// `postcard agent` and what asks it, end to end: programming, edits of the file, the socket.
#include "postcard/cli/AgentProgram.h"
#include "support/Examples.h"

#include <map>
#include <sstream>

namespace CliTest {
namespace {

TEST_F(AgentProgram, programsShowsAndEnds) {
   write(policyText("Ethernet1", oneClass));
   start();
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   const ProgramResult show = ask("show");
   EXPECT_EQ(show.exitCode, 0);
   for (const char* line :
        {"Policy Name:           web-ipv4\n", "Programmed Policy:     true\n",
         "Rules Client Updated:  true\n", "Rule Name:             all-ipv4-udp\n"}) {
      EXPECT_NE(show.out.find(line), std::string::npos) << line;
   }
   const auto document = nlohmann::json::parse(ask("show", {"--format", "json"}).out);
   EXPECT_EQ(document["acls"][0]["ruleByIndex"].size(), 2U);
   // What a rule was made for, as `compile` says it.
   const auto rule = document["acls"][0]["ruleByName"]["all-ipv4-udp"];
   EXPECT_EQ(rule["policy"], "web");
   EXPECT_EQ(rule["family"], "ipv4");
   EXPECT_EQ(rule["class"], "all");
   EXPECT_NE(ask("status").out.find("web                      ipv4   programmed"),
             std::string::npos);
   const std::string said = err();
   EXPECT_EQ(kill(SIGTERM), 0);
   EXPECT_FALSE(std::filesystem::exists(socket()));
   EXPECT_EQ(err(), said) << "hardware is left as it is";
}

// The file with `web` as given and a second policy, in both families, that no edit touches.
std::string besidesDns(const std::string& web) {
   return "policies:\n" + web +
          "  - name: dns\n"
          "    interfaces: { ipv4: [Ethernet1], ipv6: [Ethernet7] }\n"
          "    classes: [{ name: dns, actions: [sample-all], ipv4: {}, ipv6: {} }]\n";
}

std::string web(const std::string& interfaces, const std::string& classes) {
   return "  - { name: web, interfaces: { ipv4: [" + interfaces + "] }, classes: [" + classes +
          "] }\n";
}

class EditedFile : public AgentProgram {
 protected:
   EditedFile() {
      write(besidesDns(web("Ethernet1, Ethernet2", oneClass)));
      start();
      EXPECT_TRUE(eventually([this] { return allProgrammed(); }));
      others_ = others();
      EXPECT_EQ(others_["status"].size(), 2U);
      EXPECT_EQ(others_["acls"].size(), 2U);
   }
   // Whatever was done to `web`, the rest has not been touched.
   ~EditedFile() override { EXPECT_EQ(others(), others_); }

   // Waits until the rules client has answered about `web`.
   bool webIs(const std::string& state) const {
      return eventually([&] {
         const auto all = statuses();
         return std::ranges::any_of(all, [&](const auto& one) {
            return one["policy"] == "web" && one["state"] == state;
         });
      });
   }

 private:
   // All that is told of other policies than `web`.
   nlohmann::json others() const {
      nlohmann::json others;
      for (const auto& one : statuses()) {
         if (one["policy"] != "web") {
            others["status"].push_back(one);
         }
      }
      const std::string text = ask("show").out;
      const std::string head = "Policy Name:";
      for (std::size_t at = text.find(head); at != std::string::npos;) {
         const std::size_t next = text.find(head, at + 1);
         const std::string acl = text.substr(at, next - at);
         if (acl.find("dns-ipv") < acl.find('\n')) {
            others["acls"].push_back(acl);
         }
         at = next;
      }
      std::sort(others["acls"].begin(), others["acls"].end());
      return others;
   }

   nlohmann::json others_;
};

TEST_F(EditedFile, aClassAdded) {
   write(besidesDns(web("Ethernet1, Ethernet2", twoClasses)));
   EXPECT_EQ(ask("reload").out, "1 operation\n");
   ASSERT_TRUE(webIs("programmed"));
   EXPECT_NE(ask("show").out.find("dns-ipv4-udp"), std::string::npos);
}

TEST_F(EditedFile, anInterfaceRemoved) {
   write(besidesDns(web("Ethernet1", oneClass)));
   EXPECT_EQ(ask("reload").out, "1 operation\n");
   ASSERT_TRUE(webIs("programmed"));
   EXPECT_EQ(ask("show").out.find("Ethernet2"), std::string::npos);
}

TEST_F(EditedFile, thePolicyRemoved) {
   write(besidesDns(""));
   EXPECT_EQ(ask("reload").out, "1 operation\n");
   ASSERT_TRUE(webIs("removed"));
   EXPECT_EQ(ask("show").out.find("web"), std::string::npos);
}

TEST_F(EditedFile, aSyntaxErrorChangesNothing) {
   const std::string before = ask("show").out;
   const auto statusBefore = statuses();
   write("policies: [{ name: web");
   const ProgramResult syntax = ask("reload");
   EXPECT_EQ(syntax.exitCode, 2);
   EXPECT_EQ(syntax.err.substr(0, file().size() + 1), file() + ":");
   EXPECT_EQ(ask("show").out, before);
   EXPECT_EQ(statuses(), statusBefore);
}

TEST_F(EditedFile, anUnsupportedMatchChangesNothing) {
   const std::string before = ask("show").out;
   const auto statusBefore = statuses();
   write(besidesDns(
         web("Ethernet2", "{ name: all, actions: [sample-all], ipv4: { fragments: true } }")));
   const ProgramResult unsupported = ask("reload");
   EXPECT_EQ(unsupported.exitCode, 1);
   EXPECT_EQ(unsupported.err, "web ipv4: Unsupported match(es): 'Fragments', in configuration\n"
                              "   " +
                                    file() + ":2:118: class 'all': fragments\n");
   EXPECT_EQ(ask("show").out, before);
   EXPECT_EQ(statuses(), statusBefore);
}

TEST_F(EditedFile, oneAfterTheOther) {
   write(besidesDns(web("Ethernet1, Ethernet2", twoClasses)));
   EXPECT_EQ(ask("reload").exitCode, 0);
   write(besidesDns(web("Ethernet2", twoClasses)));
   EXPECT_EQ(ask("reload").exitCode, 0);
   write("policies: 1\n");
   EXPECT_EQ(ask("reload").exitCode, 2);
   write(besidesDns(""));
   EXPECT_EQ(ask("reload").exitCode, 0);
   ASSERT_TRUE(webIs("removed"));
   write(besidesDns(web("Ethernet2", oneClass)));
   EXPECT_EQ(ask("reload").exitCode, 0);
   ASSERT_TRUE(webIs("programmed"));
}

// The rules of a show text, in no particular order of the ACLs.
std::vector<std::string> rulesIn(const std::string& show) {
   std::vector<std::string> rules;
   std::istringstream lines{show};
   for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("Rule Name:")) {
         rules.push_back(line);
      }
   }
   std::ranges::sort(rules);
   return rules;
}

TEST_F(AgentProgram, programsTheExamples) {
   const std::map<std::string, std::vector<std::string>> others = {
         {"all-features.yaml",
          {"programmed", "programmed", "empty", "unsupported", "unsupported"}}};
   std::size_t examples = 0;
   for (const auto& example : TestSupport::examplePolicies()) {
      ++examples;
      startFile(example, {"--capacity", "100000", "--answer-time", "100", "--partial"});
      const auto found = others.find(example.filename());
      EXPECT_TRUE(eventually([&] {
         return found == others.end() ? allProgrammed() : states() == found->second;
      })) << example
          << err();
      if (found == others.end()) {
         const ProgramResult compiled = runProgram({program, "compile", example});
         EXPECT_FALSE(rulesIn(compiled.out).empty());
         EXPECT_EQ(rulesIn(ask("show").out), rulesIn(compiled.out)) << example;
      }
      EXPECT_EQ(kill(SIGTERM), 0);
   }
   EXPECT_GE(examples, 4U);
}

// Without what differs from run to run.
nlohmann::json withoutTimes(nlohmann::json document) {
   for (auto& policy : document["policies"]) {
      EXPECT_EQ(policy["since"].get<std::string>().size(), 20U);
      policy.erase("since");
      for (auto& answer : policy["answers"]) {
         EXPECT_EQ(answer["time"].get<std::string>().size(), 20U);
         answer.erase("time");
      }
   }
   return document;
}

TEST_F(AgentProgram, theStatusForPrograms) {
   write(policyText("Ethernet1", oneClass));
   start({"--capacity", "1"});
   ASSERT_TRUE(eventually([this] { return status()["state"] == "failed"; }));
   const auto document = nlohmann::json::parse(ask("status", {"--format", "json"}).out);
   EXPECT_EQ(withoutTimes(document), nlohmann::json::parse(R"({
      "schema": 1,
      "policies": [{
         "policy": "web", "family": "ipv4", "state": "failed",
         "text": "full: web-ipv4 needs 2 entries, 1 of 1 are free",
         "generation": 1, "entries": 2, "overdue": false,
         "history": ["full: web-ipv4 needs 2 entries, 1 of 1 are free"],
         "answers": [{"generation": 1, "succeeded": false,
                      "text": "full: web-ipv4 needs 2 entries, 1 of 1 are free"}],
         "classes": []
      }],
      "capacity": {"total": 1, "used": 0, "free": 1},
      "refusedReload": null
   })"));
}

TEST_F(AgentProgram, theOutcomeOfAReloadForPrograms) {
   write(policyText("Ethernet1", oneClass));
   start();
   write(policyText("Ethernet2", oneClass));
   const ProgramResult accepted = ask("reload", {"--format", "json"});
   EXPECT_EQ(accepted.exitCode, 0);
   EXPECT_EQ(nlohmann::json::parse(accepted.out), nlohmann::json::parse(R"({
      "schema": 2, "accepted": true, "operations": 2, "findings": [], "omitted": 0
   })"));
   write("policies: 1\nhardwear: 2\n");
   const ProgramResult refused = ask("reload", {"--format", "json"});
   EXPECT_EQ(refused.exitCode, 2);
   EXPECT_EQ(refused.err, "");
   const auto document = nlohmann::json::parse(refused.out);
   EXPECT_EQ(document["accepted"], false);
   EXPECT_EQ(document["operations"], 0);
   ASSERT_EQ(document["findings"].size(), 2U);
   const auto& first = document["findings"][0];
   EXPECT_EQ(first["file"], file());
   EXPECT_EQ(first["line"], 1);
   EXPECT_EQ(first["column"], 11);
   EXPECT_NE(first["code"], "");
   EXPECT_NE(first["text"], "");
   write(policyText("Ethernet1", "{ name: all, actions: [drop], ipv4: {} }"));
   const auto unsupported = nlohmann::json::parse(ask("reload", {"--format", "json"}).out);
   EXPECT_EQ(unsupported["findings"], nlohmann::json::parse(R"([{
      "file": ")" + file() + R"(", "line": 1, "column": 20, "policy": "web", "family": "ipv4",
      "code": "unsupported", "text": "Unsupported action(s): 'drop', in configuration",
      "classes": [{"class": "all", "key": "actions/drop",
                   "file": ")" + file() + R"(", "line": 1, "column": 93}]
   }])"));
}

TEST_F(AgentProgram, aFileWithAnotherToggleCannotBeUsedByThisProcess) {
   write(policyText("Ethernet1", oneClass));
   start();
   write("feature-toggles: { FeaturePostcardTelemetryTcpControl: false }\n" +
         policyText("Ethernet1", oneClass));
   const ProgramResult refused = ask("reload");
   EXPECT_EQ(refused.exitCode, 2);
   EXPECT_EQ(refused.err, "feature toggles are read once: restart the agent to change them\n");
}

TEST_F(AgentProgram, hangUpReadsTheFileAgain) {
   write(policyText("Ethernet1", oneClass));
   start();
   write(policyText("Ethernet1", twoClasses));
   ::kill(child(), SIGHUP);
   EXPECT_TRUE(eventually([this] { return status()["history"].size() == 2; }));
}

TEST_F(AgentProgram, aPolicyThatDoesNotFitFails) {
   write(policyText("Ethernet1", oneClass));
   start({"--capacity", "1"});
   ASSERT_TRUE(eventually([this] { return status()["state"] == "failed"; }));
   EXPECT_EQ(status()["text"].get<std::string>().substr(0, 6), "full: ");
   write(policyText(
         "Ethernet1",
         "{ name: all, actions: [sample-all], ipv4: { protocols: [{ protocol: udp }] } }"));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
}

std::string named(const std::string& name, const std::string& classes = oneClass) {
   return "  - { name: " + name + ", interfaces: { ipv4: [Ethernet1] }, classes: [" + classes +
          "] }\n";
}

// What a helper refuses for other reasons than an unsupported match.
TEST_F(AgentProgram, aPolicyThatTheHelperRefusesIsInvalid) {
   const Environment module{"POSTCARD_MODULE", POSTCARD_MODULE_DIR "/Choosy.so"};
   write("policies:\n" + named("early") + named("good") + named("half") + named("late") +
         named("nothing"));
   start({"--partial"});
   using States = std::vector<std::string>;
   ASSERT_TRUE(eventually([this] {
      return states() == States{"invalid", "programmed", "invalid", "invalid", "invalid"};
   })) << err();
   EXPECT_EQ(status(0)["text"], "No label is left");
   EXPECT_EQ(status(2)["text"], "No port is left");
   EXPECT_EQ(status(3)["text"], "No meter is left");
   EXPECT_EQ(status(4)["text"], "the helper made no ACL configuration");
   const ProgramResult refused = ask("reload"); // of the same file
   EXPECT_EQ(refused.exitCode, 1);
   EXPECT_EQ(refused.err, "early ipv4: No label is left\nhalf ipv4: No port is left\n"
                          "late ipv4: No meter is left\n");
   write("policies:\n" + named("good"));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
}

// Hardware still holds the earlier version, and that is not forgotten.
TEST_F(AgentProgram, aPolicyThatTheHelperForgetsIsTakenBackAllTheSame) {
   const Environment module{"POSTCARD_MODULE", POSTCARD_MODULE_DIR "/Choosy.so"};
   write("policies:\n" + named("fickle"));
   start({"--delete-on-exit"});
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   write("policies:\n" + named("fickle", twoClasses));
   EXPECT_EQ(ask("reload").exitCode, 0); // a scratch helper makes it well
   ASSERT_TRUE(eventually([this] { return status()["state"] == "invalid"; }));
   EXPECT_EQ(status()["generation"], 1);
   EXPECT_EQ(kill(SIGTERM), 0);
   EXPECT_NE(err().find("fickle ipv4: waiting\nfickle ipv4: removed\n"), std::string::npos)
         << err();
}

TEST_F(AgentProgram, optionsThatMakeNoSense) {
   write(policyText("Ethernet1", oneClass));
   for (const std::vector<std::string>& options : {std::vector<std::string>{"--capacity", "-1"},
                                                   {"--capacity", "many"},
                                                   {"--answer-time", "nan"},
                                                   {"--answer-time", "0"},
                                                   {"--answer-time", "86401"}}) {
      std::vector<std::string> arguments{program, "agent", "--socket", socket(), file()};
      arguments.insert(arguments.end(), options.begin(), options.end());
      const ProgramResult result = runProgram(arguments);
      EXPECT_EQ(result.exitCode, 2) << options[0] << options[1];
      EXPECT_NE(result.err.find(options[0] + ": "), std::string::npos) << result.err;
   }
   start();
   const ProgramResult levels = runProgram({program, "trace-levels", "--socket", socket(), "\xff"});
   EXPECT_EQ(levels.exitCode, 2);
   EXPECT_EQ(levels.err, "what is asked for is no UTF-8 text\n");
}

TEST_F(AgentProgram, deleteOnExitTakesThePoliciesBack) {
   write(policyText("Ethernet1", oneClass));
   start({"--delete-on-exit"});
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_EQ(kill(SIGTERM), 0);
   EXPECT_NE(err().find("web ipv4: removed\n"), std::string::npos) << err();
}

TEST_F(AgentProgram, comesUpAfterBeingKilled) {
   write(policyText("Ethernet1", oneClass));
   start();
   EXPECT_EQ(kill(SIGKILL), -SIGKILL);
   EXPECT_TRUE(std::filesystem::exists(socket()));
   start();
   EXPECT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
}

TEST_F(AgentProgram, aSecondAgentAtTheSameSocketGivesWay) {
   write(policyText("Ethernet1", oneClass));
   start();
   const auto second = runProgram({program, "agent", "--socket", socket(), file()});
   EXPECT_EQ(second.exitCode, 3);
   EXPECT_EQ(second.err, socket() + ": another agent is running\n");
   EXPECT_EQ(ask("status").exitCode, 0);
}

TEST_F(AgentProgram, wrongRequestsGetAnAnswer) {
   write(policyText("Ethernet1", oneClass));
   start();
   for (const std::string request :
        {"\n", "nonsense\n", "[]\n", "{\"command\": 3}\n", "{\"command\": \"fly\"}\n"}) {
      const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy(address.sun_path, socket().c_str());
      ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
      ASSERT_EQ(::write(fd, request.data(), request.size()), static_cast<ssize_t>(request.size()));
      char answer[256] = {};
      EXPECT_GT(::read(fd, answer, sizeof answer - 1), 0);
      EXPECT_EQ(std::string{answer}.substr(0, 11), "{\"exit\":2}\n") << request;
      ::close(fd);
   }
   EXPECT_EQ(ask("status").exitCode, 0);
}

TEST_F(AgentProgram, nobodyAnswers) {
   const auto result = ask("status");
   EXPECT_EQ(result.exitCode, 3);
   EXPECT_EQ(result.err, socket() + ": no agent answers here: No such file or directory\n");
}

} // namespace
} // namespace CliTest
