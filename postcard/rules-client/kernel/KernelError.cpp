#include "postcard/rules-client/kernel/KernelError.h"

#include <bpf/libbpf.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <system_error>
#include <utility>

namespace Postcard::RulesClient {

namespace {

std::string* collected = nullptr; // of the `LibraryLog` that lives, else null

[[gnu::format(printf, 2, 0)]] int collect(libbpf_print_level level, const char* format,
                                          va_list arguments) {
   if (level == LIBBPF_DEBUG || collected == nullptr) {
      return 0;
   }
   std::array<char, 4096> line{}; // a longer text is cut
   const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
   collected->append(line.data());
   return length;
}

// The commonest reason has a remedy outside of this process.
const char* adviceFor(int code) {
   return code == EPERM || code == EACCES
                ? " (the capabilities CAP_BPF and CAP_NET_ADMIN are needed)"
                : "";
}

} // namespace

KernelError::KernelError(const std::string& what, int code, std::string details)
   : std::runtime_error{what + ": " + std::generic_category().message(code) + adviceFor(code)},
     code_{code},
     details_{std::move(details)} {}

bool KernelError::isRoom() const noexcept {
   return code_ == ENOMEM || code_ == E2BIG || code_ == ENOSPC;
}

LibraryLog::LibraryLog() {
   collected = &text_;
   libbpf_set_print(&collect);
}

LibraryLog::~LibraryLog() {
   collected = nullptr;
}

} // namespace Postcard::RulesClient
