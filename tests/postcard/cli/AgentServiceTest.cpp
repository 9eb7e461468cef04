// `postcard agent` under a service manager, and how it ends when it cannot begin.
#include "postcard/cli/AgentProgram.h"

#include <cstddef>

namespace CliTest {
namespace {

// The service manager's end of the notification socket. A path that begins with @ is an abstract
// name.
class Manager {
 public:
   explicit Manager(const std::string& path) : fd_{::socket(AF_UNIX, SOCK_DGRAM, 0)} {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strcpy(address.sun_path, path.c_str());
      if (path[0] == '@') {
         address.sun_path[0] = '\0';
      }
      const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
      EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&address), length), 0);
      const timeval patience{20, 0};
      ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
      ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
   }
   Manager(const Manager&) = delete;
   Manager& operator=(const Manager&) = delete;
   ~Manager() {
      ::close(fd_);
      ::unsetenv("NOTIFY_SOCKET");
      ::unsetenv("WATCHDOG_USEC");
      ::unsetenv("WATCHDOG_PID");
   }

   // The next message, empty when none comes.
   std::string next() const {
      char message[64] = {};
      const ssize_t size = ::recv(fd_, message, sizeof message, 0);
      return {message, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
   }
   // The next one that is not about the watchdog; `watchdogs` counts those that are.
   std::string nextEvent(int& watchdogs) const {
      std::string message = next();
      for (; message == "WATCHDOG=1"; message = next()) {
         ++watchdogs;
      }
      return message;
   }

 private:
   int fd_;
};

TEST_F(AgentProgram, tellsTheServiceManagerHowItIsDoing) {
   const Manager manager{socket() + ".notify"};
   ::setenv("WATCHDOG_USEC", "20000", 1);
   write(policyText("Ethernet1", oneClass));
   start();
   EXPECT_EQ(manager.next(), "READY=1");
   for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(manager.next(), "WATCHDOG=1");
   }
   ::kill(child(), SIGTERM);
   int watchdogs = 0;
   EXPECT_EQ(manager.nextEvent(watchdogs), "STOPPING=1");
   EXPECT_EQ(kill(0), 0) << "no further signal is needed";
}

TEST_F(AgentProgram, aManagerThatDoesNotReadDoesNotStopIt) {
   const Manager manager{socket() + ".notify"};
   ::setenv("WATCHDOG_USEC", "4000", 1);
   write(policyText("Ethernet1", oneClass));
   start();
   std::this_thread::sleep_for(std::chrono::milliseconds{300}); // more signs than a socket keeps
   EXPECT_EQ(ask("status").exitCode, 0);
   EXPECT_EQ(manager.next(), "READY=1");
   EXPECT_EQ(kill(SIGTERM), 0);
}

TEST_F(AgentProgram, tellsAManagerWithAnAbstractName) {
   const Manager manager{"@postcard-test-" + std::to_string(::getpid())};
   write(policyText("Ethernet1", oneClass));
   start();
   EXPECT_EQ(manager.next(), "READY=1");
   EXPECT_EQ(kill(SIGTERM), 0);
   EXPECT_EQ(manager.next(), "STOPPING=1"); // and no watchdog in between, for none was asked for
}

TEST_F(AgentProgram, theWatchdogOfAnotherProcessIsNotFed) {
   const Manager manager{socket() + ".notify"};
   ::setenv("WATCHDOG_USEC", "2000", 1);
   ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
   write(policyText("Ethernet1", oneClass));
   start();
   EXPECT_EQ(manager.next(), "READY=1");
   std::this_thread::sleep_for(std::chrono::milliseconds{100});
   EXPECT_EQ(kill(SIGTERM), 0);
   EXPECT_EQ(manager.next(), "STOPPING=1");
}

// ---- What keeps an agent from beginning ----

TEST_F(AgentProgram, aFileThatIsRefusedEndsItWithTheFindings) {
   write("policies: 1\n");
   const ProgramResult result = runProgram({program, "agent", "--socket", socket(), file()});
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_EQ(result.err.substr(0, file().size() + 6), file() + ":1:11:");
   EXPECT_EQ(result.out, "");
}

TEST_F(AgentProgram, withoutTheModuleItCannotBegin) {
   write(policyText("Ethernet1", oneClass));
   const ProgramResult result = runProgram({program, "agent", "--socket", socket(), file()},
                                           {"POSTCARD_MODULE=/no/such/module.so"});
   EXPECT_EQ(result.exitCode, 3);
   EXPECT_EQ(result.err.substr(0, 38), "helper module cannot be loaded: /no/su");
   EXPECT_FALSE(std::filesystem::exists(socket()));
}

TEST_F(AgentProgram, socketsThatCannotBe) {
   write(policyText("Ethernet1", oneClass));
   const std::string longPath = "/tmp/" + std::string(200, 'x');
   const std::pair<std::string, std::string> cases[] = {
         {longPath, longPath + ": a socket path has 1 to 107 bytes\n"},
         {"/no/such/folder/s",
          "/no/such/folder/s.lock: No such file or directory; make the folder (mkdir -m 0750 "
          "/no/such/folder), or choose another socket with --socket PATH\n"},
         {"/proc/s", "/proc/s.lock: No such file or directory\n"},
         {file(), file() + ": there is a file that is not a socket\n"},
   };
   for (const auto& [path, message] : cases) {
      const ProgramResult result = runProgram({program, "agent", "--socket", path, file()});
      EXPECT_EQ(result.exitCode, 3) << path;
      EXPECT_EQ(result.err, message);
   }
   EXPECT_TRUE(std::filesystem::exists(file()));
}

} // namespace
} // namespace CliTest
