#include "Process.h"

#include <array>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

namespace {

// Keeps the pages of the answers that were read out of the account.
constexpr std::size_t pieceSize = std::size_t{64} * 1024;

std::size_t drain(int from) {
   std::array<char, pieceSize> piece;
   std::size_t bytes = 0;
   while (true) {
      const ssize_t size = ::read(from, piece.data(), piece.size());
      if (size <= 0) {
         return bytes;
      }
      bytes += static_cast<std::size_t>(size);
   }
}

double milliseconds(const timeval& time) {
   return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

Cost wait(pid_t child, int exitCode, const std::string& name) {
   int status = 0;
   rusage usage{};
   if (::wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
       WEXITSTATUS(status) != exitCode) {
      throw std::runtime_error{name + " failed"};
   }
   return {milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime),
           static_cast<double>(usage.ru_maxrss) / 1024, 0};
}

[[noreturn]] void becomeProgram(const std::vector<std::string>& command, int out) {
   ::dup2(out, STDOUT_FILENO);
   ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
   std::vector<char*> arguments;
   for (const std::string& argument : command) {
      arguments.push_back(const_cast<char*>(argument.c_str()));
   }
   arguments.push_back(nullptr);
   ::execv(arguments.front(), arguments.data());
   ::_exit(127);
}

} // namespace

Cost run(const std::vector<std::string>& command, int exitCode) {
   std::array<int, 2> ends{};
   if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error{"no pipe"};
   }
   // Not `fork`: the memory of this process would count for the peak of the program.
   const pid_t child = ::vfork();
   if (child == 0) {
      becomeProgram(command, ends[1]);
   }
   ::close(ends[1]);
   const std::size_t bytes = drain(ends[0]);
   ::close(ends[0]);
   Cost cost = wait(child, exitCode, command.front() + " " + command.at(1));
   cost.bytes = bytes;
   return cost;
}

Cost inChild(const std::function<void()>& work) {
   std::fflush(nullptr);
   const pid_t child = ::fork();
   if (child == 0) {
      try {
         work();
         ::_exit(0);
      } catch (const std::exception& error) {
         std::fprintf(stderr, "bench: %s\n", error.what());
         ::_exit(1);
      }
   }
   return wait(child, 0, "a yardstick");
}

} // namespace Bench
