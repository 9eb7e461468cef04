#include "postcard/agent/service/ServiceManager.h"

#include "Pello/FileDescriptor.h"

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace Postcard::Agent::Service {

namespace {

// The number that `text` is as a whole; absent for any other text, and for null.
std::optional<long> numberOf(const char* text) {
   if (text == nullptr) {
      return std::nullopt;
   }
   long number = 0;
   const char* last = text + std::strlen(text);
   const auto [end, error] = std::from_chars(text, last, number);
   return error == std::errc{} && end == last ? std::optional{number} : std::nullopt;
}

} // namespace

ServiceManager::ServiceManager() {
   if (const char* socket = std::getenv("NOTIFY_SOCKET")) {
      socket_ = socket;
   }
   // A child inherits the environment of a watched process; WATCHDOG_PID says whether it is meant.
   const auto process = numberOf(std::getenv("WATCHDOG_PID"));
   const auto microseconds = numberOf(std::getenv("WATCHDOG_USEC"));
   if (microseconds && *microseconds >= 2000 && (!process || *process == ::getpid())) {
      watchdogInterval_ = std::chrono::milliseconds{*microseconds / 2000};
   }
}

void ServiceManager::notify(std::string_view assignment) const {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if (socket_.empty() || socket_.size() >= sizeof address.sun_path) {
      return;
   }
   std::memcpy(address.sun_path, socket_.data(), socket_.size());
   if (address.sun_path[0] == '@') {
      address.sun_path[0] = '\0'; // an abstract name
   }
   const Pello::FileDescriptor socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
   // Exactly the name: trailing null bytes would belong to an abstract name.
   const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
   // A manager that does not read must not stop the agent. A sign of life is dropped when it cannot
   // be sent at once, other messages after a second.
   const timeval patience{1, 0};
   ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
   const int flags = MSG_NOSIGNAL | (assignment == "WATCHDOG=1" ? MSG_DONTWAIT : 0);
   const ssize_t sent = ::sendto(socket.get(), assignment.data(), assignment.size(), flags,
                                 reinterpret_cast<const sockaddr*>(&address), length);
   static_cast<void>(sent); // failures are ignored, as the header says
}

} // namespace Postcard::Agent::Service
