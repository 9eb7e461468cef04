#include "Ringlog/detail/BusGuard.h"

#include "Pello/VisibleCharacters.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Ringlog::Detail {

namespace {

// What the handler reads. It may run at any instruction of any thread, so every member that changes
// later is a lock-free atomic, and nothing here is ever freed.
struct Guarded {
   std::byte* begin = nullptr;
   std::size_t size = 0;
   const std::string* cutLine = nullptr;
   const std::string* failedLine = nullptr;
   struct sigaction previous {};
};

constinit Guarded guarded{}; // written before the handler is installed
constinit std::atomic<int> guardedFile{-1};
constinit std::atomic<Loss> loss{Loss::none};
constinit std::atomic<bool> cutTold{false};
constinit std::atomic<bool> failedTold{false};
static_assert(std::atomic<Loss>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

// Where this thread's latest fault was that `isPassing` let pass. A storage model without a call,
// because the first call for a thread may allocate.
[[gnu::tls_model("initial-exec")]] thread_local constinit const void* passed = nullptr;

bool isInRing(const siginfo_t& fault) {
   const auto at = reinterpret_cast<std::uintptr_t>(fault.si_addr);
   const auto begin = reinterpret_cast<std::uintptr_t>(guarded.begin);
   // A code of 0 or less: sent by a process, with the sender in place of the address.
   return fault.si_code > 0 && at >= begin && at - begin < guarded.size;
}

bool isLongEnough(int file) {
   struct stat status {};
   return ::fstat(file, &status) == 0 && status.st_size >= 0 &&
          static_cast<std::size_t>(status.st_size) >= guarded.size;
}

void tellOnce(std::atomic<bool>& told, const std::string& line) {
   if (!told.exchange(true)) {
      [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, line.data(), line.size());
   }
}

bool has(const struct sigaction& action, unsigned int flag) {
   return (static_cast<unsigned int>(action.sa_flags) & flag) != 0;
}

// Does what would have happened without this handler.
void handOn(int signal, siginfo_t* fault, void* context) {
   const struct sigaction& previous = guarded.previous;
   const bool toHandler = has(previous, SA_SIGINFO) ||
                          (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN);
   if (!toHandler) {
      if (previous.sa_handler == SIG_IGN && fault->si_code <= 0) {
         return; // the kernel ignores a signal of another process, but never a fault
      }
      // A fault repeats itself when this handler returns; a signal of a process has to be repeated.
      ::signal(signal, SIG_DFL);
      if (fault->si_code <= 0) {
         ::raise(signal);
      }
      return;
   }
   if (has(previous, SA_RESETHAND)) {
      ::signal(signal, SIG_DFL);
   }
   if (has(previous, SA_SIGINFO)) {
      previous.sa_sigaction(signal, fault, context);
   } else {
      previous.sa_handler(signal);
   }
}

// Whether the fault in a file that is long enough may be over. Another thread may have had the same
// trouble and have mended it since this thread's fault; then the repeated access succeeds. If it
// fails at the same address again, the disk is to blame.
bool isPassing(const siginfo_t& fault) {
   if (passed == fault.si_addr) {
      return false;
   }
   passed = fault.si_addr;
   return true;
}

// Calls only functions that POSIX or Linux allow in a handler: mmap(2) is one system call and takes
// no lock of this process.
void onBusError(int signal, siginfo_t* fault, void* context) {
   if (!isInRing(*fault)) {
      return handOn(signal, fault, context);
   }
   const int error = errno;
   const int file = guardedFile.load();
   const Loss found = isLongEnough(file) ? Loss::failed : Loss::cut;
   if (found == Loss::failed && isPassing(*fault)) {
      errno = error;
      return;
   }
   if (::mmap(guarded.begin, guarded.size, PROT_READ | PROT_WRITE,
              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) {
      return handOn(signal, fault, context);
   }
   // Behind the mapping: who sees the loss finds the memory in place.
   loss.store(found);
   if (file >= 0 && found == Loss::cut) {
      tellOnce(cutTold, *guarded.cutLine);
   } else if (file >= 0) {
      tellOnce(failedTold, *guarded.failedLine);
   }
   errno = error;
}

} // namespace

void guardRing(std::byte* begin, std::size_t size, int file, const std::string& path) {
   const std::string name = "RINGLOG_FILE=" + Pello::escaped(path);
   guarded.begin = begin;
   guarded.size = size;
   guarded.cutLine = new std::string{
         name +
         ": the ring was truncated under the process; its older traces are lost, new ones go "
         "on. A ring may be copied, but must not be truncated: it never grows\n"};
   guarded.failedLine = new std::string{name + ": the disk fails under the ring; traces go on in "
                                               "memory. Name a file on another disk\n"};
   guardedFile.store(file);
   ::sigaction(SIGBUS, nullptr, &guarded.previous);
   struct sigaction action {};
   action.sa_sigaction = &onBusError;
   // The mask and the properties that the previous handler relies on, should it be called.
   action.sa_mask = guarded.previous.sa_mask;
   action.sa_flags =
         SA_SIGINFO | SA_ONSTACK | (guarded.previous.sa_flags & (SA_RESTART | SA_NODEFER));
   ::sigaction(SIGBUS, &action, nullptr);
}

void guardedFileIs(int file) noexcept {
   guardedFile.store(file);
}

Loss takeLoss() noexcept {
   return loss.exchange(Loss::none);
}

} // namespace Ringlog::Detail
