#include "postcard/agent/service/ControlSocket.h"

#include "Pello/FileDescriptor.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace Postcard::Agent::Service {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
   throw ControlError{path + ": " + reason};
}

constexpr const char* tooSlow = "the agent does not answer in time";

// A connection to an agent. Connecting, sending and receiving share one deadline, so that an agent
// that sends a byte now and then cannot hold its client for ever. Every function throws
// ControlError.
class Connection {
 public:
   Connection(const std::string& path, Clock::time_point deadline)
      : path_{path},
        deadline_{deadline},
        socket_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::memcpy(address.sun_path, path.data(), path.size()); // fits: see `checkSocketPath`
      limitSending(); // the limit also holds for `connect` while the agent's queue is full
      if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
          0) {
         fail(path, errno == EAGAIN
                          ? tooSlow
                          : std::string{"no agent answers here: "} + std::strerror(errno));
      }
   }

   // Sends `text` and closes the writing side, which tells the agent that the line is whole.
   void send(std::string_view text) {
      while (!text.empty()) {
         limitSending();
         // Without the flag, an agent that has disconnected would end this process with SIGPIPE.
         const ssize_t sent = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL);
         if (sent < 0) {
            fail(path_,
                 errno == EAGAIN ? tooSlow : std::string{"cannot send: "} + std::strerror(errno));
         }
         text.remove_prefix(static_cast<std::size_t>(sent));
      }
      ::shutdown(socket_.get(), SHUT_WR);
   }

   // The next part of what the agent sends; empty when it has closed the connection. Valid until
   // the next call.
   std::string_view receive() {
      pollfd poll{socket_.get(), POLLIN, 0};
      if (::poll(&poll, 1, static_cast<int>(left().count())) <= 0) {
         fail(path_, tooSlow);
      }
      const ssize_t size = ::read(socket_.get(), buffer_, sizeof buffer_);
      if (size < 0) {
         fail(path_, std::string{"cannot receive: "} + std::strerror(errno));
      }
      return {buffer_, static_cast<std::size_t>(size)};
   }

   // Begins to wait anew.
   void extend(Clock::time_point deadline) { deadline_ = deadline; }

 private:
   // The time to the deadline, never 0: for SO_SNDTIMEO a time of 0 means no limit.
   std::chrono::milliseconds left() const {
      const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
      if (left.count() <= 0) {
         fail(path_, tooSlow);
      }
      return left;
   }

   // Limits connecting and sending to the time that is left.
   void limitSending() const {
      const auto milliseconds = left().count();
      const timeval time{milliseconds / 1000, milliseconds % 1000 * 1000};
      ::setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
   }

   std::string path_;
   Clock::time_point deadline_;
   Pello::FileDescriptor socket_;
   char buffer_[65536];
};

// The first line of an answer.
struct Header {
   int exitCode;
   bool marked; // a mark stands behind the text
};

// Some other program may listen at the path, so the format is checked.
Header headerOf(const std::string& path, const std::string& line) {
   const auto header = nlohmann::json::parse(line, nullptr, false);
   if (!header.is_object() || !header.contains("exit") || !header["exit"].is_number_integer() ||
       header["exit"] < 0 || header["exit"] > 3) {
      fail(path, "the answer is not an agent's");
   }
   return {header["exit"].get<int>(), header.value("marked", nlohmann::json(false)) == true};
}

// Sends `line` and hands the answer on. `patience` is for all of it or, with `perPart`, for each
// part that comes.
int converse(const std::string& path, const std::string& line, std::chrono::milliseconds patience,
             bool perPart, const TakeAnswer& take) {
   checkSocketPath(path);
   Connection connection{path, Clock::now() + patience};
   connection.send(line + "\n");
   std::string head;
   while (head.find('\n') == std::string::npos) {
      const std::string_view part = connection.receive();
      head += part;
      if (part.empty() || head.size() > 2 * sizeof(connection)) {
         break;
      }
   }
   const std::size_t end = std::min(head.find('\n'), head.size());
   const Header header = headerOf(path, end < head.size() ? head.substr(0, end) : "");
   bool isWhole = !header.marked;
   std::string_view part = std::string_view{head}.substr(end + 1);
   do {
      if (header.marked && part.ends_with(endMark)) {
         isWhole = true;
         part.remove_suffix(1);
      }
      take(header.exitCode, part);
      if (perPart) {
         connection.extend(Clock::now() + patience);
      }
      part = connection.receive();
   } while (!part.empty());
   if (!isWhole) {
      fail(path, "the answer is cut: the agent has ended, or its child process for the answer");
   }
   return header.exitCode;
}

} // namespace

std::string defaultSocketPath() {
   const char* folder = std::getenv("XDG_RUNTIME_DIR");
   const bool ofUser = folder != nullptr && *folder != '\0';
   return std::string{ofUser ? folder : "/run/postcard"} + "/postcard.sock";
}

void checkSocketPath(const std::string& path) {
   constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
   if (path.empty() || path.size() > longest) {
      fail(path, "a socket path has 1 to " + std::to_string(longest) + " bytes");
   }
}

ControlAnswer requestAgent(const std::string& path, const std::string& line,
                           std::chrono::milliseconds patience) {
   ControlAnswer answer;
   answer.exitCode = converse(path, line, patience, false,
                              [&](int, std::string_view part) { answer.text += part; });
   return answer;
}

int requestAgent(const std::string& path, const std::string& line,
                 std::chrono::milliseconds patience, const TakeAnswer& take) {
   return converse(path, line, patience, true, take);
}

} // namespace Postcard::Agent::Service
