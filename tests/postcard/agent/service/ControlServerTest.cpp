// The control socket under clients that do not keep to the rules. Relies on a real agent process.
#include "Pello/FileDescriptor.h"
#include "postcard/agent/service/AgentServerFixture.h"

#include <cstring>
#include <deque>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace Postcard::Agent::Service {
namespace {

// A client that sends and reads what the test says.
class RawClient {
 public:
   explicit RawClient(const std::string& path) : socket_{::socket(AF_UNIX, SOCK_STREAM, 0)} {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy(address.sun_path, path.c_str());
      connected_ = ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address),
                             sizeof address) == 0;
      const timeval patience{20, 0};
      ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
   }

   bool connected() const { return connected_; }
   // Returns whether all of it was taken.
   bool send(std::string_view text) const {
      while (!text.empty()) {
         const ssize_t sent = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL);
         if (sent <= 0) {
            return false;
         }
         text.remove_prefix(static_cast<std::size_t>(sent));
      }
      return true;
   }
   void endSending() const { ::shutdown(socket_.get(), SHUT_WR); }
   // All that comes until the agent closes; "never" when it does not.
   std::string receiveAll() const {
      std::string text;
      char buffer[65536];
      ssize_t size = 0;
      while ((size = ::read(socket_.get(), buffer, sizeof buffer)) > 0) {
         text.append(buffer, static_cast<std::size_t>(size));
      }
      return size < 0 && errno == EAGAIN ? "never" : text;
   }

 private:
   Pello::FileDescriptor socket_;
   bool connected_ = false;
};

class ControlServerTest : public AgentServerTest {
 protected:
   void startWith(const ControlLimits& limits, const std::string& text = policyText(sampleAll)) {
      write(text);
      start(5s, allGoesWell, [&](ServerOptions& options) { options.control = limits; });
      idle_ = openDescriptors(child());
   }
   // The agent holds no more than when it had no client.
   bool noClientIsLeft() const {
      return eventually([this] { return openDescriptors(child()) == idle_; });
   }
   // A policy whose show text does not fit into the buffers of a socket.
   static std::string largePolicy() {
      std::string ports;
      for (int i = 0; i < 1000; ++i) {
         ports += (i == 0 ? "" : ", ") + std::to_string(1 + 2 * i);
      }
      return policyText("{ name: all, actions: [sample-all], ipv4: { protocols: [{ protocol: udp, "
                        "ports: [{ source: [" +
                        ports + "] }] }] } }");
   }

 private:
   std::size_t idle_ = 0;
};

TEST_F(ControlServerTest, idleClientsAreLetGoAndKeepNobodyOut) {
   startWith({4, 300ms, 300ms});
   std::deque<RawClient> clients;
   for (int i = 0; i < 10; ++i) {
      clients.emplace_back(socket());
      ASSERT_TRUE(clients.back().connected());
   }
   EXPECT_EQ(ask("status").exitCode, 0);
   for (const RawClient& client : clients) {
      EXPECT_EQ(client.receiveAll(), "");
   }
   EXPECT_TRUE(noClientIsLeft());
}

TEST_F(ControlServerTest, noMoreThanTheLimitAreServedAtATime) {
   startWith({4, 10s, 10s});
   const std::size_t before = openDescriptors(child());
   std::deque<RawClient> clients;
   for (int i = 0; i < 10; ++i) {
      clients.emplace_back(socket());
   }
   ASSERT_TRUE(eventually([&] { return openDescriptors(child()) >= before + 4; }));
   EXPECT_LE(openDescriptors(child()), before + 5); // libuv keeps one that waits outside
   clients.clear();
   EXPECT_EQ(ask("status").exitCode, 0);
}

TEST_F(ControlServerTest, manyClientsAtOnceAreAllAnswered) {
   startWith({});
   std::deque<RawClient> clients;
   for (int i = 0; i < 90; ++i) {
      clients.emplace_back(socket());
      ASSERT_TRUE(clients.back().send("{\"command\": \"status\"}\n"));
   }
   for (const RawClient& client : clients) {
      EXPECT_EQ(client.receiveAll().substr(0, 11), "{\"exit\":0}\n");
   }
   EXPECT_TRUE(noClientIsLeft());
}

TEST_F(ControlServerTest, aClientThatDoesNotTakeItsAnswerIsLetGo) {
   startWith({32, 300ms, 300ms}, largePolicy());
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   ASSERT_GT(ask("show").text.size(), 300'000U);
   const RawClient client{socket()};
   ASSERT_TRUE(client.send("{\"command\": \"show\"}\n"));
   EXPECT_TRUE(noClientIsLeft());
   EXPECT_EQ(ask("status").exitCode, 0);
}

TEST_F(ControlServerTest, aClientThatLeavesBeforeItsAnswerHarmsNobody) {
   startWith({}, largePolicy());
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   for (int i = 0; i < 20; ++i) {
      const RawClient client{socket()};
      ASSERT_TRUE(client.send("{\"command\": \"show\"}\n"));
   }
   EXPECT_TRUE(noClientIsLeft());
   EXPECT_EQ(ask("status").exitCode, 0);
}

TEST_F(ControlServerTest, megabytesWithoutALineEndAreNoRequest) {
   startWith({});
   const RawClient client{socket()};
   EXPECT_FALSE(client.send(std::string(20'000'000, 'x')));
   EXPECT_EQ(client.receiveAll(), "{\"exit\":2}\na request is a JSON object with \"command\"\n");
   EXPECT_TRUE(noClientIsLeft());
   EXPECT_LT(residentKilobytes(child()), sanitized ? 1'000'000U : 60'000U);
}

TEST_F(ControlServerTest, halfARequest) {
   startWith({});
   { const RawClient leaves{socket()}; }
   {
      const RawClient leaves{socket()};
      ASSERT_TRUE(leaves.send("{\"command\""));
   }
   const RawClient ends{socket()};
   ASSERT_TRUE(ends.send("{\"command\""));
   ends.endSending();
   EXPECT_EQ(ends.receiveAll(), "{\"exit\":2}\na request is a JSON object with \"command\"\n");
   EXPECT_TRUE(noClientIsLeft());
}

// ---- Who may listen, and how long a client waits ----

// Listens at a path and accepts nobody.
class Deaf {
 public:
   explicit Deaf(const std::string& path) : socket_{::socket(AF_UNIX, SOCK_STREAM, 0)} {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy(address.sun_path, path.c_str());
      ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
      ::listen(socket_.get(), 0);
      while (true) { // until the queue is full
         const Pello::FileDescriptor client{::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)};
         if (::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
             0) {
            break;
         }
      }
   }

 private:
   Pello::FileDescriptor socket_;
};

std::string refusalOf(const std::string& path) {
   try {
      const SocketClaim claim{path};
      return "none";
   } catch (const ServerError& error) {
      return error.what();
   }
}

TEST_F(ControlServerTest, anAgentThatIsStoppedKeepsItsSocket) {
   const Deaf deaf{socket()};
   EXPECT_EQ(refusalOf(socket()), socket() + ": another agent is running");
   EXPECT_TRUE(std::filesystem::exists(socket()));
}

TEST_F(ControlServerTest, aSocketThatNobodyServesIsCleared) {
   { const Deaf deaf{socket()}; }
   ASSERT_TRUE(std::filesystem::exists(socket()));
   EXPECT_EQ(refusalOf(socket()), "none");
   EXPECT_FALSE(std::filesystem::exists(socket()));
}

TEST_F(ControlServerTest, ofTwoThatStartTogetherOneHasThePath) {
   const SocketClaim claim{socket()};
   EXPECT_EQ(refusalOf(socket()), socket() + ": another agent is running");
}

TEST_F(ControlServerTest, aFullTableOfDescriptorsIsNoReasonToTakeASocketAway) {
   const Deaf deaf{socket()};
   write(policyText(sampleAll));
   const pid_t process = ::fork();
   if (process == 0) {
      std::deque<Pello::FileDescriptor> all;
      rlimit limit{};
      ::getrlimit(RLIMIT_NOFILE, &limit);
      limit.rlim_cur = 64;
      ::setrlimit(RLIMIT_NOFILE, &limit);
      while (all.emplace_back(::dup(0)).get() >= 0) {
      }
      all.pop_front(); // enough for the lock alone
      ::_exit(refusalOf(socket()) == socket() + ": cannot tell whether another agent is running: "
                                                "Too many open files"
                    ? 0
                    : 1);
   }
   int status = 0;
   ::waitpid(process, &status, 0);
   EXPECT_EQ(status, 0);
   EXPECT_TRUE(std::filesystem::exists(socket()));
}

TEST_F(ControlServerTest, aClientWaitsNoLongerThanItsPatienceForADeafAgent) {
   const Deaf deaf{socket()};
   const auto begin = std::chrono::steady_clock::now();
   try {
      requestAgent(socket(), "{}", 200ms);
      FAIL();
   } catch (const ControlError& error) {
      EXPECT_EQ(std::string{error.what()}, socket() + ": the agent does not answer in time");
   }
   EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

// Some other program at the path of the socket: it answers one client with this text.
class Stranger {
 public:
   Stranger(const std::string& path, std::string answer)
      : socket_{::socket(AF_UNIX, SOCK_STREAM, 0)} {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy(address.sun_path, path.c_str());
      ::unlink(path.c_str());
      ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
      ::listen(socket_.get(), 1);
      thread_ = std::thread{[this, text = std::move(answer)] {
         const Pello::FileDescriptor client{::accept(socket_.get(), nullptr, nullptr)};
         ::send(client.get(), text.data(), text.size(), MSG_NOSIGNAL);
         ::shutdown(client.get(), SHUT_WR);
         char buffer[64];
         while (::read(client.get(), buffer, sizeof buffer) > 0) {
         }
      }};
   }
   ~Stranger() { thread_.join(); }
   Stranger(const Stranger&) = delete;
   Stranger& operator=(const Stranger&) = delete;

 private:
   Pello::FileDescriptor socket_;
   std::thread thread_;
};

TEST_F(ControlServerTest, anAnswerThatIsNotAnAgentsIsRefused) {
   for (const char* answer :
        {"", "HTTP/1.1 400 Bad Request\r\n\r\n", "{}\n", "[]\n", "{\"exit\": \"0\"}\n",
         "{\"exit\": 0}", "{\"exit\": -1}\n", "{\"exit\": 4}\n", "{\"exit\": 256}\n",
         "{\"exit\": 18446744073709551615}\n"}) {
      const Stranger stranger{socket(), answer};
      try {
         requestAgent(socket(), "{}", 10s);
         ADD_FAILURE() << answer;
      } catch (const ControlError& error) {
         EXPECT_EQ(std::string{error.what()}, socket() + ": the answer is not an agent's")
               << answer;
      }
   }
   const Stranger stranger{socket(), "{\"exit\": 3}\nwhy"};
   EXPECT_EQ(requestAgent(socket(), "{}", 10s).exitCode, 3);
}

TEST_F(ControlServerTest, theSocketOfAMachineIsWhereTheUnitPutsIt) {
   const char* const folder = std::getenv("XDG_RUNTIME_DIR");
   const std::string before = folder == nullptr ? "" : folder;
   ::unsetenv("XDG_RUNTIME_DIR");
   EXPECT_EQ(defaultSocketPath(), "/run/postcard/postcard.sock");
   std::ifstream unit{POSTCARD_SOURCE_DIR "/packaging/postcard-agent.service"};
   const std::string text{std::istreambuf_iterator<char>{unit}, {}};
   EXPECT_NE(text.find("\nRuntimeDirectory=postcard\n"), std::string::npos);
   EXPECT_NE(text.find(" --socket " + defaultSocketPath() + " "), std::string::npos);
   ::setenv("XDG_RUNTIME_DIR", "/run/user/1", 1);
   EXPECT_EQ(defaultSocketPath(), "/run/user/1/postcard.sock");
   before.empty() ? ::unsetenv("XDG_RUNTIME_DIR") : ::setenv("XDG_RUNTIME_DIR", before.c_str(), 1);
}

} // namespace
} // namespace Postcard::Agent::Service
