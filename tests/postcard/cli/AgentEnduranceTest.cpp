// What must not stop, lock out or mislead anybody who uses an agent: many policies, large answers,
// readers and clients that do nothing, a folder that is missing, descriptors that are lacking.
#include "Pello/FileDescriptor.h"
#include "postcard/cli/AgentProgram.h"
#include "support/BackgroundProgram.h"
#include "support/Sanitized.h"

#include <atomic>
#include <deque>
#include <fcntl.h>
#include <sstream>

namespace CliTest {
namespace {

using Pello::FileDescriptor;

// A client that sends and reads what the test says.
class Client {
 public:
   explicit Client(const std::string& path) : socket_{::socket(AF_UNIX, SOCK_STREAM, 0)} {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy(address.sun_path, path.c_str());
      EXPECT_EQ(
            ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
   }

   void send(const std::string& line) const {
      EXPECT_EQ(::write(socket_.get(), line.data(), line.size()),
                static_cast<ssize_t>(line.size()));
   }
   std::string receive() const {
      char buffer[65536];
      const ssize_t size = ::read(socket_.get(), buffer, sizeof buffer);
      return {buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
   }
   std::string receiveAll() const {
      std::string all;
      for (std::string part = receive(); !part.empty(); part = receive()) {
         all += part;
      }
      return all;
   }

 private:
   FileDescriptor socket_;
};

// A class with `sources` times 50 rules.
std::string manyRules(int sources) {
   const auto odd = [](int count) {
      std::string ports;
      for (int i = 0; i < count; ++i) {
         ports += (i == 0 ? "" : ", ") + std::to_string(1 + 2 * i);
      }
      return ports;
   };
   return "{ name: all, actions: [sample-all], ipv4: { protocols: [{ protocol: udp, ports: [{ "
          "source: [" +
          odd(sources) + "], destination: [" + odd(50) + "] }] }] } }";
}

std::string manyPolicies(int count) {
   std::string text = "policies:\n";
   for (int i = 0; i < count; ++i) {
      text += "  - { name: p" + std::to_string(i) +
              ", interfaces: { ipv4: [Ethernet1] }, classes: [" + oneClass + "] }\n";
   }
   return text;
}

class AgentEndurance : public AgentProgram {
 protected:
   // Processor time of the agent so far, in clock ticks.
   long ticks() const {
      std::ifstream stat{"/proc/" + std::to_string(child()) + "/stat"};
      std::string word;
      long user = 0;
      long system = 0;
      for (int i = 0; i < 13; ++i) {
         stat >> word;
      }
      stat >> user >> system;
      return user + system;
   }
   std::string children() const {
      const std::string process = std::to_string(child());
      std::ifstream file{"/proc/" + process + "/task/" + process + "/children"};
      std::string list;
      std::getline(file, list);
      return list;
   }
   long ticksToProgram(int count) {
      write(manyPolicies(count));
      start({"--capacity", "1000000"});
      const std::string last = "p" + std::to_string(count - 1) + " ipv4: programmed";
      EXPECT_TRUE(eventually([&] { return err().find(last) != std::string::npos; }));
      const long used = ticks();
      EXPECT_EQ(kill(SIGTERM), 0);
      return used;
   }
};

// Eight times the policies took 64 times the work. Some 16 are allowed, because processor time
// varies; the exact count is in PolicyAgentScaleTest.cpp.
TEST_F(AgentEndurance, theWorkGrowsWithThePoliciesAndNotFaster) {
   const long few = ticksToProgram(250);
   const long many = ticksToProgram(2000);
   EXPECT_LE(many, 16 * std::max(few, 5L)) << few << " ticks for 250 policies";
}

TEST_F(AgentEndurance, aStandardErrorThatNobodyReadsStopsNothing) {
   int ends[2];
   ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
   const FileDescriptor reader{ends[0]};
   const FileDescriptor writer{ends[1]};
   write(policyText("Ethernet1", manyRules(100)));
   const Environment traces{"FMTRACE", "OruPostcardTelemetry*/0-9"};
   startFile(file(), {"--capacity", "10000"}, writer.get());
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   write(policyText("Ethernet1", oneClass));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_TRUE(eventually([this] { return allProgrammed(); }));
   std::string said; // what was kept, and then how much was not
   std::thread reading{[&] {
      char buffer[65536];
      while (said.find("lines are missing here") == std::string::npos) {
         const ssize_t size = ::read(reader.get(), buffer, sizeof buffer);
         if (size <= 0) {
            break;
         }
         said.append(buffer, static_cast<std::size_t>(size));
      }
   }};
   reading.join();
   EXPECT_NE(said.find(" lines are missing here: nobody read standard error\n"), std::string::npos);
   EXPECT_GT(said.size(), 1'000'000U);
   EXPECT_EQ(::fcntl(writer.get(), F_GETFL) & O_NONBLOCK, 0) << "the pipe is others' as well";
}

TEST_F(AgentEndurance, aShownAclIsTheOneOfTheMomentAndHoldsNobodyUp) {
   write(policyText("Ethernet1", manyRules(200)));
   start({"--capacity", "20000"});
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   const Client slow{socket()};
   slow.send("{\"command\": \"show\"}\n");
   std::string shown = slow.receive(); // it has begun, and waits for this client to read on
   write(policyText("Ethernet2", oneClass));
   EXPECT_EQ(ask("reload").exitCode, 0);
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   EXPECT_NE(ask("show").out.find("Ethernet2"), std::string::npos);
   shown += slow.receiveAll();
   EXPECT_TRUE(shown.starts_with("{\"exit\":0,\"marked\":true}\n"));
   EXPECT_EQ(shown.back(), '\0') << "it is whole";
   std::size_t rules = 0;
   for (std::size_t at = shown.find("Rule Name:"); at != std::string::npos;
        at = shown.find("Rule Name:", at + 1)) {
      ++rules;
   }
   EXPECT_EQ(rules, 10'000U);
   EXPECT_NE(shown.find("    Ethernet1\n"), std::string::npos);
   EXPECT_EQ(shown.find("Ethernet2"), std::string::npos);
   EXPECT_TRUE(eventually([this] { return children().empty(); }));
}

TEST_F(AgentEndurance, aClientThatLeavesEndsTheWorkForIt) {
   write(policyText("Ethernet1", manyRules(200)));
   start({"--capacity", "20000"});
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   {
      const Client leaves{socket()};
      leaves.send("{\"command\": \"show\"}\n");
      leaves.receive();
      EXPECT_FALSE(children().empty());
   }
   EXPECT_TRUE(eventually([this] { return children().empty(); }));
   std::deque<Client> several; // more than the agent has children for
   for (int i = 0; i < 10; ++i) {
      several.emplace_back(socket()).send("{\"command\": \"show\"}\n");
   }
   const std::string first = several.front().receiveAll();
   EXPECT_GT(first.size(), 2'000'000U);
   several.pop_front();
   for (const Client& client : several) {
      EXPECT_EQ(client.receiveAll(), first);
   }
   EXPECT_TRUE(eventually([this] { return children().empty(); }));
}

TEST_F(AgentEndurance, noChildOutlivesTheAgent) {
   write(policyText("Ethernet1", manyRules(200)));
   start({"--capacity", "20000"});
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   const Client slow{socket()};
   slow.send("{\"command\": \"show\"}\n");
   slow.receive();
   const std::string process = "/proc/" + std::to_string(std::stol(children()));
   EXPECT_EQ(kill(SIGKILL), -SIGKILL);
   EXPECT_TRUE(eventually([&] {
      std::ifstream stat{process + "/stat"};
      std::string text;
      std::getline(stat, text);
      return text.empty() || text.find(") Z ") != std::string::npos;
   }));
   start({"--capacity", "20000"});
}

TEST_F(AgentEndurance, silentClientsLockNobodyOut) {
   write(policyText("Ethernet1", oneClass));
   start();
   std::deque<Client> silent;
   for (int i = 0; i < 40; ++i) {
      silent.emplace_back(socket());
   }
   const auto begin = std::chrono::steady_clock::now();
   EXPECT_EQ(ask("status").exitCode, 0);
   EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{8})
         << "a client has 10 seconds for its line";
}

// Somebody has removed the socket and the lock of the first agent.
TEST_F(AgentEndurance, theSocketOfASecondAgentStaysWhenTheFirstEnds) {
   write(policyText("Ethernet1", oneClass));
   start();
   const pid_t first = child();
   std::filesystem::remove(socket());
   std::filesystem::remove(socket() + ".lock");
   start();
   ASSERT_NE(first, child());
   ::kill(first, SIGTERM);
   int status = 0;
   ::waitpid(first, &status, 0);
   EXPECT_EQ(status, 0);
   EXPECT_EQ(ask("status").exitCode, 0);
}

TEST_F(AgentEndurance, aMissingFolderForTheSocketIsNamedWithAdvice) {
   write(policyText("Ethernet1", oneClass));
   const std::string folder = socket() + ".missing";
   const ProgramResult result =
         runProgram({program, "agent", file()}, {"XDG_RUNTIME_DIR=" + folder});
   EXPECT_EQ(result.exitCode, 3);
   EXPECT_EQ(result.err, folder +
                               "/postcard.sock.lock: No such file or directory; make the folder "
                               "(mkdir -m 0750 " +
                               folder + "), or choose another socket with --socket PATH\n");
}

TEST_F(AgentEndurance, tooFewDescriptorsAreAMessage) {
   if (TestSupport::sanitized) {
      GTEST_SKIP()
            << "the sanitizer looks at memory through a pipe, for which it needs descriptors";
   }
   write(policyText("Ethernet1", oneClass));
   int refused = 0;
   for (int most = 4; most <= 20; ++most) {
      const TestSupport::BackgroundProgram agent{{"/bin/sh", "-c",
                                                  "ulimit -n " + std::to_string(most) + "; exec " +
                                                        program + " agent --socket " + socket() +
                                                        " " + file()}};
      const auto hasEnded = [&] {
         siginfo_t info{};
         ::waitid(P_PID, static_cast<id_t>(agent.process()), &info, WEXITED | WNOHANG | WNOWAIT);
         return info.si_pid != 0;
      };
      ASSERT_TRUE(TestSupport::eventually([&] {
         return hasEnded() || agent.err().find("listening at") != std::string::npos;
      })) << most
          << agent.err();
      if (!hasEnded()) {
         continue;
      }
      ++refused;
      siginfo_t info{};
      ::waitid(P_PID, static_cast<id_t>(agent.process()), &info, WEXITED | WNOWAIT);
      EXPECT_EQ(info.si_code, CLD_EXITED) << most << agent.err();
      EXPECT_TRUE(info.si_status == 3 || info.si_status == 2 || info.si_status == 127)
            << most << " " << info.si_status;
      EXPECT_NE(agent.err(), "") << most;
   }
   EXPECT_GT(refused, 0);
}

// ---- Reloads that are refused ----

const std::string refusedClass = "{ name: all, actions: [drop], ipv4: {} }";

TEST_F(AgentEndurance, aRefusedReloadIsSeenUntilAFileIsAccepted) {
   write(policyText("Ethernet1", oneClass));
   start();
   const auto refused = [this] {
      return nlohmann::json::parse(ask("status", {"--format", "json"}).out)["refusedReload"];
   };
   EXPECT_TRUE(refused().is_null());
   EXPECT_EQ(ask("status").out.find("reload refused"), std::string::npos);
   write(policyText("Ethernet1", refusedClass));
   ::kill(child(), SIGHUP);
   ASSERT_TRUE(eventually([&] { return !refused().is_null(); }));
   EXPECT_EQ(refused()["time"].get<std::string>().size(), 20U);
   EXPECT_EQ(refused()["findings"][0]["code"], "unsupported");
   const std::string status = ask("status").out;
   EXPECT_NE(status.find("\nreload refused at "), std::string::npos) << status;
   EXPECT_NE(status.find("\n  web ipv4: Unsupported action(s): 'drop', in configuration\n     " +
                         file() + ":1:93: class 'all': actions/drop\n"),
             std::string::npos)
         << status;
   EXPECT_EQ(refused()["findings"][0]["classes"], nlohmann::json::parse(
                                                        R"([{"class": "all", "key": "actions/drop",
                "file": ")" + file() + R"(", "line": 1, "column": 93}])"));
   write("policies: [");
   EXPECT_EQ(ask("reload").exitCode, 2);
   EXPECT_EQ(refused()["findings"][0]["file"], file());
   write(policyText("Ethernet2", oneClass));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_TRUE(refused().is_null());
}

TEST_F(AgentEndurance, aStartBehavesAsAReload) {
   const std::string good =
         "  - { name: good, interfaces: { ipv4: [Ethernet1] }, classes: [" + oneClass + "] }\n";
   const std::string bad =
         "  - { name: bad, interfaces: { ipv4: [Ethernet1] }, classes: [" + refusedClass + "] }\n";
   const std::string message = "bad ipv4: Unsupported action(s): 'drop', in configuration\n";
   const std::string place = file() + ":2:86: class 'all': actions/drop\n";
   const std::string reason = message + "   " + place;
   write("policies:\n" + bad + good);
   const ProgramResult whole = runProgram({program, "agent", "--socket", socket(), file()});
   EXPECT_EQ(whole.exitCode, 1);
   EXPECT_EQ(whole.err, reason + "Nothing is programmed. --partial programs the other policies.\n");
   EXPECT_FALSE(std::filesystem::exists(socket()));
   start({"--partial"});
   using States = std::vector<std::string>;
   ASSERT_TRUE(eventually([this] { return states() == States{"unsupported", "programmed"}; }));
   EXPECT_NE(err().find("agent: left out: " + reason), std::string::npos) << err();
   EXPECT_NE(ask("status").out.find(message.substr(std::strlen("bad ipv4: ")) + "      " + place),
             std::string::npos)
         << ask("status").out;
   EXPECT_EQ(status()["classes"][0]["line"], 2);
   EXPECT_EQ(status(1)["classes"], nlohmann::json::array());
   const ProgramResult refused = ask("reload");
   EXPECT_EQ(refused.exitCode, 1);
   EXPECT_EQ(refused.err, reason);
   write("policies:\n" + good + bad);
   const ProgramResult partly = ask("reload", {"--partial"});
   EXPECT_EQ(partly.exitCode, 0);
   // The helper is asked about the refused policy once more.
   EXPECT_EQ(partly.out, "left out: " + message + "   " + file() +
                               ":3:86: class 'all': actions/drop\n1 operation\n");
   EXPECT_EQ(states(), (States{"programmed", "unsupported"}));
}

// Every class concerned, with everything in it, wherever a refusal is told.
TEST_F(AgentEndurance, aRefusalNamesEveryClassAtItsPlace) {
   write(policyText("Ethernet1", oneClass));
   start();
   write("policies:\n"
         "  - name: web\n"
         "    interfaces: { ipv4: [Ethernet1] }\n"
         "    classes:\n"
         "      - { name: first, actions: [drop, log], ipv4: {} }\n"
         "      - { name: fine, actions: [sample], ipv4: {} }\n"
         "      - { name: second, actions: [sample], ipv4: { ip-options: true } }\n");
   const auto lines = [this](const std::string& indent) {
      std::string text;
      for (const char* key :
           {":5:34: class 'first': actions/drop\n", ":5:40: class 'first': actions/log\n",
            ":7:64: class 'second': ip-options\n"}) {
         text += indent + file() + key;
      }
      return text;
   };
   const std::string message = "web ipv4: Unsupported action(s): 'drop', 'log', in configuration\n";
   EXPECT_EQ(ask("reload").err, message + lines("   "));
   EXPECT_NE(err().find("agent: reload refused, nothing changed\n" + message + lines("   ")),
             std::string::npos)
         << err();
   EXPECT_TRUE(ask("status").out.ends_with("  " + message + lines("     ")));
   const auto findings = nlohmann::json::parse(ask("reload", {"--format", "json"}).out)["findings"];
   ASSERT_EQ(findings.size(), 1U);
   EXPECT_EQ(findings[0]["code"], "unsupported");
   EXPECT_EQ(findings[0]["line"], 2);
   ASSERT_EQ(findings[0]["classes"].size(), 3U);
   EXPECT_EQ(findings[0]["classes"][2], nlohmann::json::parse(
                                              R"({"class": "second", "key": "ip-options",
                "file": ")" + file() + R"(", "line": 7, "column": 64})"));
}

TEST_F(AgentEndurance, aFileWithoutPoliciesNeedsTwoConsents) {
   write(policyText("Ethernet1", oneClass));
   start();
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   write("policies: []\n");
   const ProgramResult refused = ask("reload");
   EXPECT_EQ(refused.exitCode, 2);
   EXPECT_EQ(refused.err, file() + ": the file has no policies, so every policy would be removed; "
                                   "--allow-empty allows that\n");
   EXPECT_TRUE(allProgrammed());
   EXPECT_EQ(ask("reload", {"--allow-empty"}).out, "1 operation\n");
   EXPECT_TRUE(eventually([this] { return states() == std::vector<std::string>{"removed"}; }));
   EXPECT_EQ(ask("reload").exitCode, 0) << "there is nothing left to lose";
}

// Writes a file line by line, slowly, while the object lives. Each part of it is a valid file.
class SlowWriter {
 public:
   SlowWriter(const std::string& path, const std::string& head, const std::string& rest)
      : file_{path}, rest_{rest} {
      file_ << head << std::flush;
      thread_ = std::thread{[this] { write(); }};
   }
   SlowWriter(const SlowWriter&) = delete;
   SlowWriter& operator=(const SlowWriter&) = delete;
   ~SlowWriter() { longestPause(); }

   // Waits for the end. The longest time between two lines.
   std::chrono::steady_clock::duration longestPause() {
      if (thread_.joinable()) {
         thread_.join();
      }
      return longest_;
   }

 private:
   void write() {
      auto last = std::chrono::steady_clock::now();
      for (std::string line; std::getline(rest_, line);) {
         file_ << line << std::endl;
         std::this_thread::sleep_for(std::chrono::milliseconds{20});
         const auto now = std::chrono::steady_clock::now();
         longest_ = std::max(longest_, now - last);
         last = now;
      }
   }

   std::ofstream file_;
   std::istringstream rest_;
   std::chrono::steady_clock::duration longest_{};
   std::thread thread_;
};

TEST_F(AgentEndurance, aFileIsReadWhenItHasStoodStill) {
   write(manyPolicies(1));
   start();
   const std::string head = "policies:\n";
   for (int attempt = 1;; ++attempt) {
      SlowWriter writer{file(), head, manyPolicies(20).substr(head.size())};
      const ProgramResult reload = ask("reload");
      // On a busy machine, the file may have stood still for the 100 ms that the agent waits for.
      if (writer.longestPause() > std::chrono::milliseconds{60} && attempt < 20) {
         continue;
      }
      EXPECT_EQ(reload.exitCode, 0) << reload.err;
      EXPECT_EQ(statuses().size(), 20U);
      return;
   }
}

// Changes a file every few milliseconds while the object lives.
class RestlessFile {
 public:
   explicit RestlessFile(std::string path) : path_{std::move(path)} {}
   RestlessFile(const RestlessFile&) = delete;
   RestlessFile& operator=(const RestlessFile&) = delete;
   ~RestlessFile() { longestPause(); }

   // Stops writing. The longest time in which nothing was written: on a busy machine, the file may
   // have stood still.
   std::chrono::steady_clock::duration longestPause() {
      over_ = true;
      if (thread_.joinable()) {
         thread_.join();
      }
      return longest_;
   }

 private:
   void write() {
      auto last = std::chrono::steady_clock::now();
      while (!over_) {
         std::ofstream{path_, std::ios::app} << "# more\n";
         std::this_thread::sleep_for(std::chrono::milliseconds{5});
         const auto now = std::chrono::steady_clock::now();
         longest_ = std::max(longest_, now - last);
         last = now;
      }
   }

   std::string path_;
   std::atomic<bool> over_ = false;
   std::chrono::steady_clock::duration longest_{};
   std::thread thread_{[this] { write(); }};
};

TEST_F(AgentEndurance, aFileThatNeverStandsStillIsNotRead) {
   write(manyPolicies(1));
   start();
   for (int attempt = 1;; ++attempt) {
      RestlessFile restless{file()};
      const ProgramResult reload = ask("reload");
      // The agent reads a file that has stood still for 100 ms.
      if (restless.longestPause() > std::chrono::milliseconds{50} && attempt < 20) {
         continue;
      }
      EXPECT_EQ(reload.exitCode, 2);
      EXPECT_EQ(reload.err,
                file() + ": the file is still being written; write it aside and rename it\n");
      return;
   }
}

// ---- What a status says ----

TEST_F(AgentEndurance, aStatusHasAHeaderTheRoomAndTheHistory) {
   write(policyText("Ethernet1", oneClass));
   start({"--capacity", "10"});
   EXPECT_EQ(ask("status", {"--wait"}).exitCode, 0);
   const std::string status = ask("status", {"--history"}).out;
   EXPECT_TRUE(status.starts_with(
         "POLICY                   FAMILY STATE         REQUEST  ENTRIES  SINCE\n"
         "web                      ipv4   programmed          1        2  2"))
         << status;
   EXPECT_NE(status.find("Z  programmed\n"), std::string::npos) << status;
   EXPECT_TRUE(status.ends_with("\n2 of 10 entries used, 8 free\n")) << status;
}

TEST_F(AgentEndurance, waitingEndsWhenAllAreProgrammedOrOneFails) {
   write(policyText("Ethernet1", oneClass));
   start({"--capacity", "2"});
   EXPECT_EQ(ask("status", {"--wait"}).exitCode, 0);
   write(policyText("Ethernet1", twoClasses));
   EXPECT_EQ(ask("reload").exitCode, 0);
   const ProgramResult failed = ask("status", {"--wait"});
   EXPECT_EQ(failed.exitCode, 1);
   EXPECT_NE(failed.out.find(" failed "), std::string::npos) << failed.out << failed.err;
   EXPECT_EQ(ask("status", {"--timeout", "1"}).exitCode, 2) << "without --wait";
}

TEST_F(AgentEndurance, whatAClientSendsIsShownWithoutItsControlCharacters) {
   write(policyText("Ethernet1", oneClass));
   start();
   const Client client{socket()};
   client.send("{\"command\": \"a\\u001b[31m\\u202e\"}\n");
   EXPECT_EQ(client.receiveAll(), "{\"exit\":2}\nunknown command 'a\\u001b[31m\\u202e'\n");
   const ProgramResult levels = ask("trace-levels", {"*/1\u202e"});
   EXPECT_EQ(levels.exitCode, 2);
   EXPECT_NE(levels.err.find("*/1\\u202e"), std::string::npos) << levels.err;
}

} // namespace
} // namespace CliTest
