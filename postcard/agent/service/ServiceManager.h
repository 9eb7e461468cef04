// `ServiceManager`: tells the service manager that started this process how it is doing, by the
// notification protocol that systemd documents in sd_notify(3). Does nothing when there is none.
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

   // Sends one assignment such as "READY=1" or "STATUS=…". Failures are ignored: the manager may
   // have gone, and the service goes on.
   void notify(std::string_view assignment) const;

   // How often "WATCHDOG=1" is due: half of the time after which the manager takes the process for
   // hung. None when the manager watches another process or none.
   std::optional<std::chrono::milliseconds> watchdogInterval() const { return watchdogInterval_; }

 private:
   std::string socket_; // empty: no service manager
   std::optional<std::chrono::milliseconds> watchdogInterval_;
};

} // namespace Postcard::Agent::Service
