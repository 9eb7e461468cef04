// `ServiceManager`: tells the service manager that started this process about its state, by the
// notification protocol of sd_notify(3) and sd_watchdog_enabled(3). Does nothing when no service
// manager waits for notifications. Relies on Linux sockets.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace Postcard::Agent::Service {

class ServiceManager {
 public:
   // Reads NOTIFY_SOCKET, WATCHDOG_PID and WATCHDOG_USEC from the environment.
   ServiceManager();

   // Sends one assignment such as "READY=1". Takes at most a second, and no time for "WATCHDOG=1".
   // Failures are ignored: the service goes on even when the manager has gone.
   void notify(std::string_view assignment) const;

   // How often "WATCHDOG=1" is due: half of the time after which the manager takes the process for
   // hung. Absent when the manager watches another process or none, or when half of the time is
   // less than a millisecond.
   std::optional<std::chrono::milliseconds> watchdogInterval() const { return watchdogInterval_; }

 private:
   std::string socket_; // a path, or "@" and an abstract name; empty: no service manager
   std::optional<std::chrono::milliseconds> watchdogInterval_;
};

} // namespace Postcard::Agent::Service
