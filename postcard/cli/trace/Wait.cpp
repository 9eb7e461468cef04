#include "postcard/cli/trace/Wait.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace Postcard::Cli::Trace {

namespace {

volatile std::sig_atomic_t stopped = 0; // 1: SIGINT or SIGTERM has come

void stop(int /*signal*/) {
   stopped = 1;
}

// A descriptor of the process, or -1 and errno. Calls the kernel by number, because some versions
// of the C library declare `pidfd_open` without C linkage for C++, which does not link.
int descriptorOf(U32 process) {
   return static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(process), 0));
}

// Installs the handler without SA_RESTART, so that the signal ends a write or a wait of the
// command.
void catchSignal(int signal) {
   struct sigaction action {};
   action.sa_handler = &stop;
   ::sigaction(signal, &action, nullptr);
}

} // namespace

Wait::Wait(std::size_t writers) : writers_(writers) {
   catchSignal(SIGINT);
   catchSignal(SIGTERM);
}

Wait::~Wait() {
   std::ranges::for_each(writers_, [this](Writer& writer) { forget(writer); });
}

void Wait::forget(Writer& writer) const {
   if (writer.descriptor >= 0) {
      ::close(writer.descriptor);
   }
   writer = {};
}

void Wait::writerIs(std::size_t number, U32 process) {
   Writer& writer = writers_[number];
   if (writer.process == process) {
      return;
   }
   forget(writer);
   writer = {process, descriptorOf(process)};
   // ESRCH: the process has ended. EINVAL: a damaged ring names a number that no process can have.
   if (writer.descriptor < 0 && errno != ESRCH && errno != EINVAL) {
      throw std::system_error{errno, std::generic_category(), "process " + std::to_string(process)};
   }
}

// The descriptor of a process becomes readable when the process ends.
bool Wait::ended(std::size_t number) const {
   pollfd process{writers_[number].descriptor, POLLIN, 0};
   return process.fd < 0 || ::poll(&process, 1, 0) > 0;
}

bool Wait::allEnded() const {
   for (std::size_t number = 0; number < writers_.size(); ++number) {
      if (!ended(number)) {
         return false;
      }
   }
   return true;
}

bool Wait::next(std::chrono::milliseconds interval) const {
   // No events are asked for: `poll` reports errors of standard output without being asked.
   std::vector<pollfd> waited{{STDOUT_FILENO, 0, 0}};
   for (std::size_t number = 0; number < writers_.size(); ++number) {
      if (!ended(number)) { // the descriptor of an ended process would end every wait at once
         waited.push_back({writers_[number].descriptor, POLLIN, 0});
      }
   }
   if (stopped == 0) {
      ::poll(waited.data(), waited.size(), static_cast<int>(interval.count()));
   }
   return stopped == 0 && waited.front().revents == 0;
}

} // namespace Postcard::Cli::Trace
