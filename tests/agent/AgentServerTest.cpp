// The agent as a process around its event loop, with a rules client that goes wrong: in a child of
// its own, asked over its socket.
#include "agent/AgentServer.h"

#include "agent/ControlSocket.h"
#include "rules-client/SoftwareTcam.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Agent {
namespace {

using namespace std::chrono_literals;
using RulesClient::InjectedFailure;
using RulesClient::SoftwareTcam;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool sanitized = true; // memory is not given back for use, and everything is slower
#else
constexpr bool sanitized = false;
#endif

const std::string oneClass = "{ name: all, actions: [sample-all], ipv4: {} }";
const std::string twoClasses =
      "{ name: dns, actions: [sample-all], ipv4: { protocols: [{ protocol: udp }] } }, " + oneClass;

std::string policyText(const std::string& classes) {
   return "policies: [{ name: web, interfaces: { ipv4: [Ethernet1] }, classes: [" + classes +
          "] }]\n";
}

class AgentServerTest : public testing::Test {
 protected:
   using Inject = std::function<void(SoftwareTcam&, const AgentServer::Later&)>;

   AgentServerTest() {
      char path[] = "/tmp/postcard-server-XXXXXX";
      folder_ = ::mkdtemp(path);
      ::setenv("POSTCARD_MODULE", POSTCARD_MODULE_DIR "/OruPostcardTelemetryPolicyAclHelper.so", 1);
   }
   ~AgentServerTest() override {
      if (child_ > 0) {
         ::kill(child_, SIGTERM);
         int status = 0;
         ::waitpid(child_, &status, 0);
         EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
      }
      std::filesystem::remove_all(folder_);
   }

   std::string file() const { return folder_ + "/policy.yaml"; }
   std::string socket() const { return folder_ + "/agent.sock"; }
   void write(const std::string& text) const { std::ofstream{file()} << text; }

   // Runs an agent in a child; `inject` prepares its rules client.
   void start(std::chrono::milliseconds answerTime, const Inject& inject) {
      child_ = ::fork();
      if (child_ == 0) {
         std::freopen("/dev/null", "w", stderr);
         serve(answerTime, inject);
         ::_exit(0);
      }
      ASSERT_TRUE(eventually([this] {
         try {
            ask("status");
            return true;
         } catch (const ControlError&) {
            return false;
         }
      }));
   }
   void serve(std::chrono::milliseconds answerTime, const Inject& inject) const {
      ServerOptions options;
      options.policyFile = file();
      options.socketPath = socket();
      options.agent.answerTime = answerTime;
      AgentServer server{options, *loadPolicyFile(file()).policyFile,
                         [&](PolicyAgent& agent, const AgentServer::Later& later) {
                            auto tcam = std::make_shared<SoftwareTcam>(
                                  agent.requests(), agent.answers(),
                                  SoftwareTcam::Options{1000, later});
                            inject(*tcam, later);
                            return tcam;
                         }};
      server.run();
   }

   ControlAnswer ask(const std::string& command, const std::string& format = "text") const {
      const nlohmann::json request{{"command", command}, {"format", format}};
      return requestAgent(socket(), request.dump(), 10s);
   }
   nlohmann::json status() const {
      return nlohmann::json::parse(ask("status", "json").text)["policies"].at(0);
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

TEST_F(AgentServerTest, anAnswerThatNeverComesIsToldAndTheNextOneRepairsIt) {
   write(policyText(oneClass));
   start(50ms, [](SoftwareTcam& tcam, const auto&) { tcam.inject({InjectedFailure::never, {}}); });
   ASSERT_TRUE(eventually([this] { return status()["overdue"] == true; }));
   const auto waiting = status();
   EXPECT_EQ(waiting["state"], "waiting");
   EXPECT_EQ(waiting["policy"], "web");
   EXPECT_EQ(waiting["since"].get<std::string>().size(), 20U);
   EXPECT_NE(ask("status").text.find("overdue"), std::string::npos);
   EXPECT_EQ(ask("show").exitCode, 0);
   write(policyText(twoClasses));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_EQ(status()["overdue"], false);
}

// Lets the held answers go at `deadline`, from the event loop.
void releaseAt(std::chrono::steady_clock::time_point deadline, SoftwareTcam& tcam,
               const AgentServer::Later& later) {
   if (std::chrono::steady_clock::now() < deadline) {
      later([deadline, &tcam, later] { releaseAt(deadline, tcam, later); });
   } else {
      tcam.releaseAnswers();
   }
}

TEST_F(AgentServerTest, aLateAnswerIsTaken) {
   write(policyText(oneClass));
   start(50ms, [](SoftwareTcam& tcam, const AgentServer::Later& later) {
      tcam.inject({InjectedFailure::late, {}});
      releaseAt(std::chrono::steady_clock::now() + 1s, tcam, later);
   });
   ASSERT_TRUE(eventually([this] { return status()["overdue"] == true; }));
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_EQ(status()["overdue"], false);
   EXPECT_EQ(status()["generation"], 1);
   EXPECT_EQ(status()["history"].size(), 1U);
}

TEST_F(AgentServerTest, anAnswerThatComesTwiceIsTakenOnce) {
   write(policyText(oneClass));
   start(5s, [](SoftwareTcam& tcam, const auto&) { tcam.inject({InjectedFailure::twice, {}}); });
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_EQ(status()["history"].size(), 1U);
}

TEST_F(AgentServerTest, anAnswerToAnotherRequestIsNotTaken) {
   write(policyText(oneClass));
   start(5s, [](SoftwareTcam& tcam, const auto&) {
      tcam.inject({InjectedFailure::gone, "stale"});
   });
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_EQ(status()["history"], nlohmann::json::parse(R"([""])"));
}

TEST_F(AgentServerTest, aRefusalIsShown) {
   write(policyText(oneClass));
   start(5s, [](SoftwareTcam& tcam, const auto&) {
      tcam.inject({InjectedFailure::refuse, "no power"});
   });
   ASSERT_TRUE(eventually([this] { return status()["state"] == "failed"; }));
   EXPECT_EQ(status()["text"], "no power");
}

std::size_t residentKilobytes(pid_t process) {
   std::ifstream status{"/proc/" + std::to_string(process) + "/status"};
   for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmRSS:")) {
         return std::stoul(line.substr(6));
      }
   }
   return 0;
}

std::size_t openDescriptors(pid_t process) {
   const std::filesystem::directory_iterator folder{"/proc/" + std::to_string(process) + "/fd"};
   return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

TEST_F(AgentServerTest, tenThousandReloadsUnderLoadLeaveNothingBehind) {
   write(policyText(oneClass));
   start(5s, [](SoftwareTcam&, const auto&) {});
   const auto reloadOften = [this](int times) {
      for (int i = 0; i < times; ++i) {
         write(policyText(i % 2 == 0 ? twoClasses : oneClass));
         ASSERT_EQ(ask("reload").exitCode, 0);
         if (i % 10 == 0) {
            ASSERT_EQ(ask("show", i % 20 == 0 ? "json" : "text").exitCode, 0);
         }
      }
   };
   constexpr int half = sanitized ? 250 : 5000;
   reloadOften(half); // the history and the allocators' pools fill up
   const std::size_t memory = residentKilobytes(child());
   const std::size_t descriptors = openDescriptors(child());
   reloadOften(half);
   if (!sanitized) {
      EXPECT_LE(residentKilobytes(child()), memory + 512);
   }
   EXPECT_EQ(openDescriptors(child()), descriptors);
   RecordProperty("residentKilobytes", static_cast<int>(residentKilobytes(child())));
}

} // namespace
} // namespace Agent
