// What this process is doing now: `workIs` notes it, `Progress` shows it when it takes long, and
// `endForShortMemory` says it when memory runs out; `messages` is where it tells the user. Relies
// on POSIX and a thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <iosfwd>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace CLI {
class App;
}

namespace Postcard::Cli {

// Notes what begins now, such as "reading policy file web.yaml": words that can stand behind
// "while". The process has one note; a text of more than 500 bytes is cut.
void workIs(std::string_view what);

// Writes to standard error what could not be done for want of memory, and what the user can do
// about it, and ends the process with `exitEnvironment`. Allocates nothing. What the process has
// not handed to the operating system stays unwritten, so a JSON document remains cut.
[[noreturn]] void endForShortMemory() noexcept;

// From now on, characters that no reader sees are escaped (Pello/VisibleCharacters.h) in whatever
// is written to `std::cerr`, but for line ends. Names of files and texts of libraries get into
// messages in many places, and a terminal obeys control characters. Called once, before the first
// message.
void escapeMessages();

// The stream for messages to the user: standard error, with the line that `Progress` may have drawn
// there taken away.
std::ostream& messages();

// `word` in single quotes for a message, as `Pello::escaped` writes it.
std::string quotedWord(std::string_view word);

// The option --progress.
class ProgressOption {
 public:
   // Adds --progress to the command line. `parser` writes into this object, so this object must
   // stay in its place until the command line has been read.
   void declare(CLI::App& parser);
   // Whether progress is shown: when asked for, and on a terminal by itself, unless standard output
   // is a terminal, too, where the results themselves show how far the command is.
   bool isWanted() const;

 private:
   bool asked_ = false;
};

// Shows the note on standard error from one second after the construction until the destruction:
// on a terminal in one line that is drawn anew, otherwise in a line each second. At most one object
// at a time.
class Progress {
 public:
   // Does nothing at all unless `wanted`.
   explicit Progress(bool wanted);
   Progress(const Progress&) = delete;
   Progress& operator=(const Progress&) = delete;
   ~Progress();

 private:
   void show();

   std::mutex mutex_;
   std::condition_variable end_;
   bool ended_ = false; // guarded by `mutex_`
   std::thread thread_; // runs `show`; none unless wanted
};

} // namespace Postcard::Cli
