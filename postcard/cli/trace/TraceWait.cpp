#include "postcard/cli/trace/TraceWait.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace Postcard::Cli {

namespace {

volatile std::sig_atomic_t stopped = 0;

void stop(int /*signal*/) {
   stopped = 1;
}

// By its number: some versions of the C library declare the function so that C++ cannot link it.
int descriptorOf(U32 process) {
   return static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(process), 0));
}

// Without SA_RESTART: a signal ends what the command waits for.
void catchSignal(int signal) {
   struct sigaction action {};
   action.sa_handler = &stop;
   ::sigaction(signal, &action, nullptr);
}

} // namespace

TraceWait::TraceWait(std::size_t writers) : writers_(writers) {
   catchSignal(SIGINT);
   catchSignal(SIGTERM);
}

TraceWait::~TraceWait() {
   std::ranges::for_each(writers_, [this](Writer& writer) { forget(writer); });
}

void TraceWait::forget(Writer& writer) const {
   if (writer.descriptor >= 0) {
      ::close(writer.descriptor);
   }
   writer = {};
}

void TraceWait::writerIs(std::size_t number, U32 process) {
   Writer& writer = writers_[number];
   if (writer.process == process) {
      return;
   }
   forget(writer);
   writer = {process, descriptorOf(process)};
   // A number that no process can have is one of a process that is gone.
   if (writer.descriptor < 0 && errno != ESRCH && errno != EINVAL) {
      throw std::system_error{errno, std::generic_category(), "process " + std::to_string(process)};
   }
}

bool TraceWait::ended(std::size_t number) const {
   pollfd process{writers_[number].descriptor, POLLIN, 0};
   return process.fd < 0 || ::poll(&process, 1, 0) > 0;
}

bool TraceWait::allEnded() const {
   for (std::size_t number = 0; number < writers_.size(); ++number) {
      if (!ended(number)) {
         return false;
      }
   }
   return true;
}

bool TraceWait::next(std::chrono::milliseconds interval) const {
   // Of standard output nothing is asked but whether it is broken, which is always told.
   std::vector<pollfd> waited{{STDOUT_FILENO, 0, 0}};
   for (std::size_t number = 0; number < writers_.size(); ++number) {
      if (!ended(number)) { // an end that is known must not end the wait
         waited.push_back({writers_[number].descriptor, POLLIN, 0});
      }
   }
   if (stopped == 0) {
      ::poll(waited.data(), waited.size(), static_cast<int>(interval.count()));
   }
   return stopped == 0 && waited.front().revents == 0;
}

} // namespace Postcard::Cli
