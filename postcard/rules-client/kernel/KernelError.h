// `KernelError`: what the kernel refused, and why. `LibraryLog`: what the BPF library says in the
// meantime. Relies on the BPF library in its source only.
#pragma once

#include <stdexcept>
#include <string>

namespace Postcard::RulesClient {

// A system call, or the loading of a program, failed. `what()` is one line for people: what was
// tried, and the reason.
class KernelError : public std::runtime_error {
 public:
   // `code` is an error number (errno); a lack of capabilities says which are needed. `details` is
   // all that is known beside it, or empty.
   KernelError(const std::string& what, int code, std::string details = {});

   int code() const noexcept { return code_; }
   // Lines such as the log of the kernel's check of a program; perhaps empty.
   const std::string& details() const noexcept { return details_; }
   // Whether memory, or room in a table of the kernel, was lacking.
   bool isRoom() const noexcept;

 private:
   int code_;
   std::string details_;
};

// While it lives, collects the messages of the BPF library, which would go to standard error. At
// most one lives at a time.
class LibraryLog {
 public:
   LibraryLog();
   LibraryLog(const LibraryLog&) = delete;
   LibraryLog& operator=(const LibraryLog&) = delete;
   ~LibraryLog();

   const std::string& text() const noexcept { return text_; }

 private:
   std::string text_;
};

} // namespace Postcard::RulesClient
