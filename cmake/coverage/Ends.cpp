// Linked into every program of a coverage build: processes that end by `_exit`, such as forked
// children, and by `abort` write their line counts as well. A process whose limits on files a test
// has lowered writes none: the limits would cut the files of counts, and complaints about that
// would stand among the messages that the test reads.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr rlim_t fewDescriptors = 64;

rlim_t limitOf(int resource) {
   rlimit limit{};
   ::getrlimit(static_cast<__rlimit_resource>(resource), &limit);
   return limit.rlim_cur;
}

bool isLimited() {
   return limitOf(RLIMIT_FSIZE) != RLIM_INFINITY || limitOf(RLIMIT_NOFILE) < fewDescriptors;
}

[[noreturn]] void endAtOnce(int status) {
   ::syscall(SYS_exit_group, status);
   __builtin_unreachable();
}

[[noreturn]] void endCounted(int status) {
   if (isLimited()) {
      endAtOnce(status);
   }
   ::quick_exit(status);
}

// At a normal end, before the counts are written.
void endWithoutCounts(int status, void* /*unused*/) {
   if (isLimited()) {
      std::fflush(nullptr);
      endAtOnce(status);
   }
}

// `abort` must still end this process by its signal, so a copy of it writes the counts.
void writeInCopy(int /*signal*/) {
   if (isLimited()) {
      return;
   }
   const pid_t copy = ::fork();
   if (copy == 0) {
      ::quick_exit(0);
   }
   ::waitpid(copy, nullptr, 0);
}

[[gnu::constructor]] void watchEnds() {
   ::on_exit(&endWithoutCounts, nullptr);
   std::signal(SIGABRT, &writeInCopy);
}

} // namespace

// In place of the C library's, for all libraries of the process.
extern "C" [[noreturn]] void _exit(int status) {
   endCounted(status);
}
extern "C" [[noreturn]] void _Exit(int status) noexcept {
   endCounted(status);
}
