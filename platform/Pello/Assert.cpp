#include "Pello/Assert.h"

#include <atomic>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace Pello {

namespace {

constinit std::atomic<AssertionHook> assertionHook{nullptr};

// The line that the hook is working on and that is not written yet; null for none.
constinit std::atomic<const std::string*> lineInHook{nullptr};

std::string lineOf(const AssertionSite& site, std::string_view expression,
                   std::string_view message) {
   std::string line{site.file};
   line.append(":").append(std::to_string(site.line)).append(": ").append(site.function);
   line.append(": Assertion '").append(expression).append("' failed");
   if (!message.empty()) {
      line.append(": ").append(message);
   }
   return line;
}

// One `write` call, so that the lines of processes that share a standard error stay whole.
void writeToStandardError(std::string line) {
   line.push_back('\n');
   const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
   static_cast<void>(written); // a failure could be reported nowhere
}

} // namespace

void assertionHookIs(AssertionHook hook) noexcept {
   assertionHook.store(hook, std::memory_order_release);
}

void assertionFailed(const AssertionSite& site, std::string_view expression,
                     std::string_view message) {
   const std::string line = lineOf(site, expression, message);
   // The hook runs before the line is written: whoever sees the line on standard error finds it in
   // the hook's record as well. The hook is removed before it is called: when it fails an assertion
   // itself, this function is entered again, skips the hook, and writes both lines.
   if (const AssertionHook hook = assertionHook.exchange(nullptr, std::memory_order_acq_rel)) {
      lineInHook.store(&line, std::memory_order_release);
      hook(site, line);
      lineInHook.store(nullptr, std::memory_order_release);
   }
   if (const std::string* outer = lineInHook.exchange(nullptr, std::memory_order_acq_rel)) {
      writeToStandardError(*outer);
   }
   writeToStandardError(line);
   std::abort();
}

} // namespace Pello
