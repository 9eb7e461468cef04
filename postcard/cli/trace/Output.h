// `Output`: writes records to standard output, a line each, for people or as JSON. Relies on POSIX
// `write` and not on a stream, because its error number tells whether the reader has gone away,
// which ends the command quietly, or the disk is full, which is a failure.
#pragma once

#include "Ringlog/Decoder.h"

#include <string>

namespace Postcard::Cli::Trace {

class Output {
 public:
   enum class Layout {
      text,            // TIME THREAD SOURCE LEVEL CLASS::FUNCTION: TEXT
      textWithProcess, // the same with PROCESS/THREAD, for several files
      json             // an object per line
   };
   explicit Output(Layout layout) : layout_{layout} {}

   // Prints a record that the process with the number `process` traced. It is written now or at the
   // next flush, so a caller flushes before it waits. Throws what `flush` throws.
   void print(const Ringlog::Record& record, U32 process);
   // Writes what has been printed and is not yet written. Throws std::system_error when standard
   // output fails for another reason than that its reader has gone away. Requires that SIGPIPE is
   // ignored.
   void flush();
   // Whether the reader of standard output has gone away, or a signal has interrupted a write. From
   // then on everything is dropped.
   bool closed() const noexcept { return closed_; }

 private:
   Layout layout_;
   std::string waiting_; // printed and not yet written
   bool closed_ = false;
};

// `text` on one line and safe to show on a terminal. Line end, tab and carriage return become \n,
// \t and \r. Other control characters, line separators of Unicode, and bytes that are not UTF-8 are
// written byte by byte in hexadecimal, such as \x1b. Backslashes stay as they are.
std::string oneLine(std::string_view text);

} // namespace Postcard::Cli::Trace
