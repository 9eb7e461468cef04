#pragma once

#include <array>
#include <csignal>
#include <cstddef>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace thirdparty {

struct Death {
   bool aborted{false};
   std::string errors{};
};

inline std::string readAll(int descriptor) {
   std::string whole{};
   std::array<char, 4096> part{};
   for (auto got = read(descriptor, part.data(), part.size()); got > 0;
        got = read(descriptor, part.data(), part.size())) {
      whole.append(part.data(), static_cast<std::size_t>(got));
   }
   return whole;
}

// Runs the action in a child process and tells how the child ended and what it wrote to its
// standard error. The parent's objects are untouched, as the child works on a copy of them.
template <typename Action>
Death dying(Action action) {
   int ends[2]{-1, -1};
   if (pipe(ends) != 0) {
      return {};
   }
   const pid_t child{fork()};
   if (child == 0) {
      const rlimit noCore{0, 0};
      setrlimit(RLIMIT_CORE, &noCore);
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      close(ends[1]);
      action();
      _exit(0);
   }
   close(ends[1]);
   Death death{};
   death.errors = readAll(ends[0]);
   close(ends[0]);
   int status{0};
   waitpid(child, &status, 0);
   death.aborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
   return death;
}

} // namespace thirdparty
