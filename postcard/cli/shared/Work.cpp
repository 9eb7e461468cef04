#include "postcard/cli/shared/Work.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/cli/shared/Command.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iostream>
#include <streambuf>
#include <string>
#include <system_error>
#include <unistd.h>

namespace Postcard::Cli {

namespace {

// Of fixed size, so that it can be written when memory has run out.
struct Note {
   std::mutex mutex;
   std::array<char, 500> bytes;
   std::size_t size = 0;
};
Note note;

std::atomic<bool> lineDrawn = false; // a line of `Progress` stands on the terminal

constexpr std::string_view clearLine = "\r\x1b[K";

std::string currentWork() {
   const std::lock_guard lock{note.mutex};
   return {note.bytes.data(), note.size};
}

void writeError(std::string_view text) noexcept {
   // Nothing can be done about an error here, nor about a part that was not written.
   [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
}

// Passes text on to another buffer, escaped line by line. A text comes as a whole, because messages
// are not collected before they are written; so no character is cut in two.
class EscapingBuffer : public std::streambuf {
 public:
   explicit EscapingBuffer(std::streambuf& target) : target_{&target} {}

 protected:
   std::streamsize xsputn(const char* text, std::streamsize size) override {
      std::string_view left{text, static_cast<std::size_t>(size)};
      std::string visible;
      for (std::size_t end = left.find('\n'); end != left.npos; end = left.find('\n')) {
         visible += Pello::escaped(left.substr(0, end)) + '\n';
         left.remove_prefix(end + 1);
      }
      visible += Pello::escaped(left);
      const auto whole = static_cast<std::streamsize>(visible.size());
      return target_->sputn(visible.data(), whole) == whole ? size : 0;
   }
   int_type overflow(int_type next) override {
      const char character = traits_type::to_char_type(next);
      return traits_type::eq_int_type(next, traits_type::eof()) || xsputn(&character, 1) == 1
                   ? traits_type::not_eof(next)
                   : traits_type::eof();
   }
   int sync() override { return target_->pubsync(); }

 private:
   std::streambuf* target_; // of `std::cerr` before
};

} // namespace

void escapeMessages() {
   // Never destroyed, because the library flushes the stream at the very end.
   static auto* const buffer = new EscapingBuffer{*std::cerr.rdbuf()};
   std::cerr.rdbuf(buffer);
}

void workIs(std::string_view what) {
   const std::lock_guard lock{note.mutex};
   note.size = std::min(what.size(), note.bytes.size());
   std::copy_n(what.data(), note.size, note.bytes.data());
}

void endForShortMemory() noexcept {
   writeError("postcard: out of memory");
   // Without the lock: this thread may hold it, and all others are about to end.
   if (note.size > 0) {
      writeError(" while ");
      writeError({note.bytes.data(), note.size});
   }
   writeError("; free memory or raise the limit of the process (ulimit -v); a command that has "
              "--policy and --family can take fewer policies at a time\n");
   ::_exit(exitEnvironment);
}

std::ostream& messages() {
   if (lineDrawn.exchange(false)) {
      writeError(clearLine); // not by `std::cerr`, which would escape it
   }
   return std::cerr;
}

std::string quotedWord(std::string_view word) {
   return "'" + Pello::escaped(word) + "'";
}

void ProgressOption::declare(CLI::App& parser) {
   parser.add_flag("--progress", asked_,
                   "say on standard error what is being done, as soon as it takes a second; by "
                   "itself on a terminal");
}

bool ProgressOption::isWanted() const {
   return asked_ || (::isatty(STDERR_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 0);
}

Progress::Progress(bool wanted) {
   if (!wanted) {
      return;
   }
   try {
      thread_ = std::thread{[this] { show(); }};
   } catch (const std::system_error&) {
      // Short of memory or threads. The work itself may still be possible.
      return;
   }
}

Progress::~Progress() {
   if (thread_.joinable()) {
      {
         const std::lock_guard lock{mutex_};
         ended_ = true;
      }
      end_.notify_one();
      thread_.join();
      messages() << std::flush;
   }
}

void Progress::show() {
   using std::chrono::seconds;
   const bool terminal = ::isatty(STDERR_FILENO) == 1;
   std::unique_lock lock{mutex_};
   for (int passed = 1; !end_.wait_for(lock, seconds{1}, [this] { return ended_; }); ++passed) {
      const std::string line = fmt::format("{}, {} s", currentWork(), passed);
      writeError(terminal ? fmt::format("{}{}", clearLine, line) : line + '\n');
      lineDrawn = terminal;
   }
}

} // namespace Postcard::Cli
