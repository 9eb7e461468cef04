// `postcard agent` and what asks it, end to end: the real program, module, socket and signals.
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace {

using TestSupport::CapturedStream;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

const std::string program = std::string{POSTCARD_BIN_DIR} + "/postcard";

// One policy; `interfaces` and `classes` are flow lists without brackets.
std::string policyText(const std::string& interfaces, const std::string& classes) {
   return "policies: [{ name: web, interfaces: { ipv4: [" + interfaces + "] }, classes: [" +
          classes + "] }]\n";
}

const std::string oneClass = "{ name: all, actions: [sample-all], ipv4: {} }";
const std::string twoClasses =
      "{ name: dns, actions: [sample-all], ipv4: { protocols: [{ protocol: udp }] } }, " + oneClass;

// An agent process that ends with the test.
class AgentProgram : public testing::Test {
 protected:
   AgentProgram() {
      char path[] = "/tmp/postcard-agent-XXXXXX";
      folder_ = ::mkdtemp(path);
   }
   ~AgentProgram() override {
      if (child_ > 0) {
         kill(SIGKILL);
      }
      std::filesystem::remove_all(folder_);
   }

   std::string file() const { return folder_ + "/policy.yaml"; }
   std::string socket() const { return folder_ + "/agent.sock"; }
   void write(const std::string& text) const { std::ofstream{file()} << text; }

   // Starts an agent and waits until it answers.
   void start(std::vector<std::string> options = {}) {
      std::vector<std::string> arguments{program, "agent", "--socket", socket(), file()};
      arguments.insert(arguments.end(), options.begin(), options.end());
      std::vector<char*> argv;
      for (std::string& argument : arguments) {
         argv.push_back(argument.data());
      }
      argv.push_back(nullptr);
      posix_spawn_file_actions_t actions;
      ::posix_spawn_file_actions_init(&actions);
      ::posix_spawn_file_actions_adddup2(&actions, err_.fd(), STDERR_FILENO);
      ASSERT_EQ(::posix_spawn(&child_, program.c_str(), &actions, nullptr, argv.data(), environ),
                0);
      ::posix_spawn_file_actions_destroy(&actions);
      ASSERT_TRUE(eventually([this] { return ask("status").exitCode == 0; })) << err_.text();
   }
   ProgramResult ask(const std::string& command, std::vector<std::string> options = {}) const {
      options.insert(options.begin(), {program, command, "--socket", socket()});
      return runProgram(std::move(options));
   }
   // The status of the only policy, or of the one at `index`.
   nlohmann::json status(std::size_t index = 0) const {
      const auto document = nlohmann::json::parse(ask("status", {"--format", "json"}).out);
      return document["policies"].at(index);
   }
   static bool eventually(const std::function<bool()>& holds) {
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{20};
      while (!holds()) {
         if (std::chrono::steady_clock::now() > deadline) {
            return false;
         }
         std::this_thread::sleep_for(std::chrono::milliseconds{10});
      }
      return true;
   }
   // Sends the signal and waits for the end; returns the exit code, or minus the signal.
   int kill(int signal) {
      ::kill(child_, signal);
      int status = 0;
      ::waitpid(child_, &status, 0);
      child_ = 0;
      return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
   }
   std::string err() const { return err_.text(); }
   pid_t child() const { return child_; }

 private:
   std::string folder_;
   CapturedStream err_;
   pid_t child_ = 0;
};

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
   EXPECT_NE(ask("status").out.find("web                      ipv4   programmed"),
             std::string::npos);
   EXPECT_EQ(kill(SIGTERM), 0);
   EXPECT_FALSE(std::filesystem::exists(socket()));
}

TEST_F(AgentProgram, followsEveryEditOfTheFile) {
   write(policyText("Ethernet1, Ethernet2", oneClass));
   start();
   ASSERT_TRUE(eventually([this] { return status()["generation"] == 1; }));

   write(policyText("Ethernet1, Ethernet2", twoClasses)); // a class added
   EXPECT_EQ(ask("reload").exitCode, 0);
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_NE(ask("show").out.find("dns-ipv4-udp"), std::string::npos);

   write(policyText("Ethernet2", twoClasses)); // an interface removed
   EXPECT_EQ(ask("reload").out, "1 operation\n");
   EXPECT_EQ(ask("show").out.find("Ethernet1\n"), std::string::npos);

   const std::string before = ask("show").out;
   write("policies: [{ name: web"); // a syntax error
   const ProgramResult syntax = ask("reload");
   EXPECT_EQ(syntax.exitCode, 1);
   EXPECT_EQ(syntax.err.substr(0, file().size() + 1), file() + ":");
   EXPECT_EQ(ask("show").out, before);

   write(policyText("Ethernet2", // an unsupported match
                    "{ name: all, actions: [sample-all], ipv4: { fragments: true } }"));
   const ProgramResult unsupported = ask("reload");
   EXPECT_EQ(unsupported.exitCode, 1);
   EXPECT_EQ(unsupported.err, "web ipv4: Unsupported match(es): 'Fragments', in configuration\n");
   EXPECT_EQ(ask("show").out, before);

   write("policies: []\n"); // the policy removed
   EXPECT_EQ(ask("reload").exitCode, 0);
   ASSERT_TRUE(eventually([this] { return status()["state"] == "removed"; }));
   EXPECT_EQ(ask("show").out, "");
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

TEST_F(AgentProgram, aFileThatIsNotASocketStays) {
   write(policyText("Ethernet1", oneClass));
   const auto result = runProgram({program, "agent", "--socket", file(), file()});
   EXPECT_EQ(result.exitCode, 3);
   EXPECT_EQ(result.err, file() + ": there is a file that is not a socket\n");
   EXPECT_TRUE(std::filesystem::exists(file()));
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

TEST_F(AgentProgram, tellsTheServiceManagerWhenItIsReady) {
   const std::string path = socket() + ".notify";
   const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::strcpy(address.sun_path, path.c_str());
   ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
   ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
   ::setenv("WATCHDOG_USEC", "20000", 1);
   write(policyText("Ethernet1", oneClass));
   start();
   ::unsetenv("NOTIFY_SOCKET");
   ::unsetenv("WATCHDOG_USEC");
   char message[64] = {};
   EXPECT_EQ(::recv(fd, message, sizeof message, 0), 7);
   EXPECT_EQ(std::string{message}, "READY=1");
   EXPECT_EQ(::recv(fd, message, sizeof message, 0), 10);
   EXPECT_EQ((std::string{message, 10}), "WATCHDOG=1");
   ::close(fd);
}

} // namespace
