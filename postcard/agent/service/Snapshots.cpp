#include "postcard/agent/service/Snapshots.h"

#include "Pello/FileDescriptor.h"
#include "Pello/TextTrace.h"
#include "postcard/agent/service/ControlSocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Postcard::Agent::Service {

namespace {

// ---- In the child. It ends by `_exit`, which runs no destructor of the agent's objects. ----

// Sends all of `text`. Ends the process when the client has gone or has no patience left.
void sendAll(int client, std::string_view text, std::chrono::milliseconds patience) {
   while (!text.empty()) {
      pollfd poll{client, POLLOUT, 0};
      if (::poll(&poll, 1, static_cast<int>(patience.count())) <= 0) {
         ::_exit(1);
      }
      const ssize_t size = ::send(client, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      if (size < 0 && errno != EAGAIN) {
         ::_exit(1);
      }
      text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
   }
}

// Sends what comes from the pipe `from` until its other end is closed. The helper writes the show
// text line by line, and ignores errors; this thread makes large pieces of the lines, and ends the
// process, and so the helper's work, when an error shows that nobody wants it.
void passOn(int from, int client, std::chrono::milliseconds patience) {
   std::array<char, std::size_t{256} * 1024> buffer;
   while (true) {
      const ssize_t size = ::read(from, buffer.data(), buffer.size());
      if (size <= 0) {
         return;
      }
      sendAll(client, {buffer.data(), static_cast<std::size_t>(size)}, patience);
      // Lines gather in the pipe meanwhile. Otherwise this thread would wake for each of them.
      std::this_thread::sleep_for(std::chrono::milliseconds{1});
   }
}

// Cuts the child loose from everything of the agent but standard error and the client.
void leaveAgent(int client) {
   // The handlers of libuv would write into a pipe that the agent reads.
   for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGCHLD}) {
      std::signal(number, SIG_DFL);
   }
   sigset_t none;
   ::sigemptyset(&none);
   ::sigprocmask(SIG_SETMASK, &none, nullptr);
   ::prctl(PR_SET_PDEATHSIG, SIGKILL); // when the agent is killed, its locks and memory go at once
   Pello::traceLevelsIs("");
   // Where the agent and its child want the same processor, the agent comes first. A sandbox may
   // forbid this, which does no harm.
   static_cast<void>(::setpriority(PRIO_PROCESS, 0, 5));
   // A connection ends for its client only when no process holds it any more.
   const auto number = static_cast<unsigned>(client);
   if (number > 3) {
      ::close_range(3, number - 1, 0);
   }
   ::close_range(number + 1, ~0U, 0);
}

[[noreturn]] void writeInChild(int client, std::chrono::milliseconds patience,
                               std::string_view head, const WriteAnswer& write) {
   leaveAgent(client);
   sendAll(client, head, patience);
   int ends[2];
   if (::pipe2(ends, O_CLOEXEC) != 0) {
      ::_exit(1);
   }
   ::fcntl(ends[1], F_SETPIPE_SZ, 1 << 20); // so that the writer seldom waits; smaller ones do, too
   try {
      std::thread reader{[&] { passOn(ends[0], client, patience); }};
      try {
         write(ends[1]);
      } catch (...) {
         // No memory: the answer ends where it is. Here, because a thread that was not joined must
         // not be destroyed.
         ::_exit(1);
      }
      ::close(ends[1]);
      reader.join();
      sendAll(client, {&endMark, 1}, patience);
   } catch (...) {
      ::_exit(1); // no thread
   }
   ::_exit(0);
}

// The number of the child, or -1 with the reason in `errno`.
template <class Child>
pid_t forkWithoutSignals(const Child& child) {
   // A signal between the fork and `leaveAgent` would reach the agent twice.
   sigset_t all;
   sigset_t before;
   ::sigfillset(&all);
   ::sigprocmask(SIG_SETMASK, &all, &before);
   const pid_t process = ::fork();
   if (process == 0) {
      child();
   }
   const int error = errno;
   ::sigprocmask(SIG_SETMASK, &before, nullptr);
   errno = error;
   return process;
}

} // namespace

Snapshots::Snapshots(EventLoop& loop) : loop_{loop}, ended_{loop, SIGCHLD, [this] { reap(); }} {}

Snapshots::~Snapshots() {
   for (const auto& [process, task] : running_) {
      ::kill(process, SIGKILL);
      ::waitpid(process, nullptr, 0);
   }
}

std::uint64_t Snapshots::begin(int client, std::chrono::milliseconds patience, std::string head,
                               WriteAnswer write, Ended ended) {
   waiting_.push_back(
         {++number_, client, patience, std::move(head), std::move(write), std::move(ended)});
   // Later, so that `ended` is not called inside this function.
   loop_.later([this] { beginWaiting(); });
   return number_;
}

void Snapshots::beginWaiting() {
   while (running_.size() < most && !waiting_.empty()) {
      Task task = std::move(waiting_.front());
      waiting_.pop_front();
      const pid_t process = forkWithoutSignals(
            [&] { writeInChild(task.client, task.patience, task.head, task.write); });
      if (process > 0) {
         task.write = nullptr;
         running_.emplace(process, std::move(task));
      } else {
         task.ended(std::string{"no child process for the answer: "} + std::strerror(errno));
      }
   }
}

void Snapshots::cancel(std::uint64_t number) {
   std::erase_if(waiting_, [&](const Task& task) { return task.number == number; });
   for (auto& [process, task] : running_) {
      if (task.number == number) {
         task.ended = nullptr;
         ::kill(process, SIGKILL); // `reap` hears of its end
      }
   }
}

// One SIGCHLD may stand for several children. Only our own are asked about, because the rules
// client may have children of its own.
void Snapshots::reap() {
   std::vector<Ended> ended;
   std::erase_if(running_, [&](auto& item) {
      if (::waitpid(item.first, nullptr, WNOHANG) == 0) {
         return false;
      }
      ended.push_back(std::move(item.second.ended));
      return true;
   });
   for (const Ended& one : ended) {
      if (one) {
         one({});
      }
   }
   beginWaiting();
}

} // namespace Postcard::Agent::Service
