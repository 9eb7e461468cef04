// Linked into every program of a coverage build: processes that end by `_exit`, such as forked
// children, and by `abort` write their line counts as well.
#include <csignal>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

// In place of the C library's, for all libraries of the process.
extern "C" [[noreturn]] void _exit(int status) {
   ::quick_exit(status);
}
extern "C" [[noreturn]] void _Exit(int status) noexcept {
   ::quick_exit(status);
}

namespace {

// `abort` must still end this process by its signal, so a copy of it writes the counts.
void writeInCopy(int /*signal*/) {
   const pid_t copy = ::fork();
   if (copy == 0) {
      ::quick_exit(0);
   }
   ::waitpid(copy, nullptr, 0);
}

[[gnu::constructor]] void watchAborts() {
   std::signal(SIGABRT, &writeInCopy);
}

} // namespace
