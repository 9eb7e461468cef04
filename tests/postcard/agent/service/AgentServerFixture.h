// The agent as a process around its event loop, with a rules client that goes wrong: in a child of
// its own, asked over its socket. `AgentServerTest`.
#pragma once

#include "postcard/agent/service/AgentServer.h"
#include "postcard/agent/service/ControlSocket.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/rules-client/software/SoftwareTcam.h"
#include "support/FaultyLine.h"
#include "support/Sanitized.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Postcard::Agent::Service {

using namespace std::chrono_literals;

using TestSupport::sanitized;

inline const std::string sampleAll = "{ name: all, actions: [sample-all], ipv4: {} }";
inline const std::string dnsThenAll =
      "{ name: dns, actions: [sample-all], ipv4: { protocols: [{ protocol: udp }] } }, " +
      sampleAll;

// A policy file; `policies` are flow mappings.
inline std::string fileText(const std::string& policies) {
   return "policies: [" + policies + "]\n";
}

inline std::string namedPolicy(const std::string& name, const std::string& classes) {
   return "{ name: " + name + ", interfaces: { ipv4: [Ethernet1] }, classes: [" + classes + "] }";
}

inline std::string policyText(const std::string& classes) {
   return fileText(namedPolicy("web", classes));
}

// What a process holds.
inline std::size_t openDescriptors(pid_t process) {
   const std::filesystem::directory_iterator folder{"/proc/" + std::to_string(process) + "/fd"};
   return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

inline std::size_t residentKilobytes(pid_t process) {
   std::ifstream status{"/proc/" + std::to_string(process) + "/status"};
   for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmRSS:")) {
         return std::stoul(line.substr(6));
      }
   }
   return 0;
}

class AgentServerTest : public testing::Test {
 protected:
   using Inject =
         std::function<void(TestSupport::FaultyLine&, const AgentServer::Later&, PolicyAgent&)>;

   using Tweak = std::function<void(ServerOptions&)>;

   AgentServerTest() {
      char path[] = "/tmp/postcard-server-XXXXXX";
      folder_ = ::mkdtemp(path);
      ::setenv("POSTCARD_MODULE", POSTCARD_MODULE_DIR "/OruPostcardTelemetryPolicyAclHelper.so", 1);
   }
   ~AgentServerTest() override {
      if (child_ > 0) {
         EXPECT_EQ(end(SIGTERM), 0) << said();
      }
      std::filesystem::remove_all(folder_);
   }

   std::string file() const { return folder_ + "/policy.yaml"; }
   std::string socket() const { return folder_ + "/agent.sock"; }
   void write(const std::string& text) const { std::ofstream{file()} << text; }

   // Runs an agent in a child; `inject` prepares its rules client. What it says goes to `said`.
   void start(
         std::chrono::milliseconds answerTime, const Inject& inject,
         const Tweak& tweak = [](ServerOptions&) {}) {
      child_ = ::fork();
      if (child_ == 0) {
         ::dup2(::open((folder_ + "/said").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
                STDERR_FILENO);
         ::_exit(serve(answerTime, inject, tweak));
      }
      ASSERT_TRUE(eventually([this] {
         try {
            ask("status");
            return true;
         } catch (const ControlError&) {
            return false;
         }
      })) << said();
   }
   // Returns the exit code that `postcard agent` would.
   int serve(std::chrono::milliseconds answerTime, const Inject& inject, const Tweak& tweak) const {
      ServerOptions options;
      options.policyFile = file();
      options.socketPath = socket();
      options.agent.answerTime = answerTime;
      tweak(options);
      try {
         AgentServer server{options, *Policy::File::loadPolicyFile(file()).policyFile,
                            [&](PolicyAgent& agent, const AgentServer::Later& later) {
                               auto line = std::make_shared<TestSupport::FaultyLine>(
                                     agent.requests(), agent.answers(),
                                     std::make_shared<RulesClient::SoftwareTcam>(100'000), later);
                               inject(*line, later, agent);
                               return line;
                            }};
         return server.run() ? 0 : 3;
      } catch (const std::exception& error) {
         std::fprintf(stderr, "%s\n", error.what());
         return 4;
      }
   }
   void signal(int number) const { ::kill(child_, number); }
   // Sends the signal and waits for the end; returns the exit code, or minus the signal.
   int end(int number) {
      signal(number);
      return end();
   }
   int end() {
      int status = 0;
      ::waitpid(std::exchange(child_, 0), &status, 0);
      return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
   }
   std::string said() const {
      std::ifstream file{folder_ + "/said"};
      return {std::istreambuf_iterator<char>{file}, {}};
   }

   ControlAnswer ask(const std::string& command, const std::string& format = "text") const {
      const nlohmann::json request{{"command", command}, {"format", format}};
      return requestAgent(socket(), request.dump(), 10s);
   }
   nlohmann::json statuses() const {
      return nlohmann::json::parse(ask("status", "json").text)["policies"];
   }
   // Of the policy at `index`.
   nlohmann::json status(std::size_t index = 0) const { return statuses().at(index); }
   bool allAre(const std::string& state) const {
      const auto all = statuses();
      return std::ranges::all_of(all, [&](const auto& one) { return one["state"] == state; });
   }
   static bool eventually(const std::function<bool()>& holds) {
      const auto deadline = std::chrono::steady_clock::now() + 20s;
      while (!holds()) {
         if (std::chrono::steady_clock::now() > deadline) {
            return false;
         }
         std::this_thread::sleep_for(5ms);
      }
      return true;
   }
   pid_t child() const { return child_; }

 private:
   std::string folder_;
   pid_t child_ = 0;
};

inline void allGoesWell(TestSupport::FaultyLine&, const AgentServer::Later&, PolicyAgent&) {}

} // namespace Postcard::Agent::Service
