// `AgentProgram`: `postcard agent` as a process, and what asks it: the real program, module, socket
// and signals.
#pragma once

#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <utility>

namespace CliTest {

using TestSupport::CapturedStream;
using TestSupport::program;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

// One policy; `interfaces` and `classes` are flow lists without brackets.
inline std::string policyText(const std::string& interfaces, const std::string& classes) {
   return "policies: [{ name: web, interfaces: { ipv4: [" + interfaces + "] }, classes: [" +
          classes + "] }]\n";
}

inline const std::string oneClass = "{ name: all, actions: [sample-all], ipv4: {} }";
inline const std::string twoClasses =
      "{ name: dns, actions: [sample-all], ipv4: { protocols: [{ protocol: udp }] } }, " + oneClass;

// A variable of the environment while the object lives.
class Environment {
 public:
   Environment(const char* name, const std::string& value) : name_{name} {
      ::setenv(name, value.c_str(), 1);
   }
   Environment(const Environment&) = delete;
   Environment& operator=(const Environment&) = delete;
   ~Environment() { ::unsetenv(name_); }

 private:
   const char* name_;
};

// An agent process that ends with the test.
class AgentProgram : public testing::Test {
 protected:
   AgentProgram() {
      char path[] = "/tmp/postcard-agent-XXXXXX";
      folder_ = ::mkdtemp(path);
   }
   ~AgentProgram() override {
      if (child_ > 0) {
         EXPECT_EQ(kill(SIGTERM), 0) << err();
      }
      std::filesystem::remove_all(folder_);
   }

   std::string file() const { return folder_ + "/policy.yaml"; }
   std::string socket() const { return folder_ + "/agent.sock"; }
   void write(const std::string& text) const { std::ofstream{file()} << text; }

   // Starts an agent and waits until it answers.
   void start(std::vector<std::string> options = {}) { startFile(file(), std::move(options)); }
   // Its standard error is `err` when that is a descriptor, else what `err()` returns.
   void startFile(const std::string& path, std::vector<std::string> options = {}, int err = -1) {
      std::vector<std::string> arguments{program, "agent", "--socket", socket(), path};
      arguments.insert(arguments.end(), options.begin(), options.end());
      std::vector<char*> argv;
      for (std::string& argument : arguments) {
         argv.push_back(argument.data());
      }
      argv.push_back(nullptr);
      posix_spawn_file_actions_t actions;
      ::posix_spawn_file_actions_init(&actions);
      ::posix_spawn_file_actions_adddup2(&actions, err < 0 ? err_.fd() : err, STDERR_FILENO);
      ASSERT_EQ(::posix_spawn(&child_, program.c_str(), &actions, nullptr, argv.data(), environ),
                0);
      ::posix_spawn_file_actions_destroy(&actions);
      ASSERT_TRUE(eventually([this] { return ask("status").exitCode == 0; })) << err_.text();
   }
   ProgramResult ask(const std::string& command, std::vector<std::string> options = {}) const {
      options.insert(options.begin(), {program, command, "--socket", socket()});
      return runProgram(std::move(options));
   }
   nlohmann::json statuses() const {
      return nlohmann::json::parse(ask("status", {"--format", "json"}).out)["policies"];
   }
   // The status of the only policy, or of the one at `index`.
   nlohmann::json status(std::size_t index = 0) const { return statuses().at(index); }
   std::vector<std::string> states() const {
      std::vector<std::string> states;
      for (const auto& one : statuses()) {
         states.push_back(one["state"]);
      }
      return states;
   }
   bool allProgrammed() const {
      return std::ranges::all_of(states(), [](const auto& state) { return state == "programmed"; });
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

} // namespace CliTest
