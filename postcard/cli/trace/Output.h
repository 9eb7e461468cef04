// `Output`: writes records to standard output, a line each, for people or as JSON. Relies on POSIX
// `write`, whose errors tell a reader that went away from a full disk; streams do not.
#pragma once

#include "Ringlog/Decoder.h"

#include <string>

namespace Postcard::Cli::Trace {

class Output {
 public:
   enum class Layout { text, textWithProcess, json };
   explicit Output(Layout layout) : layout_{layout} {}

   // Prints a record that the process with the number `process` traced, now or at the next flush.
   void print(const Ringlog::Record& record, U32 process);
   // Writes what has been printed and is not yet written. Throws std::system_error when standard
   // output fails for another reason than that its reader has gone away.
   void flush();
   // Whether the reader of standard output has gone away, or a signal interrupted a write. From
   // then on everything is dropped.
   bool closed() const noexcept { return closed_; }

 private:
   Layout layout_;
   std::string waiting_; // printed and not yet written
   bool closed_ = false;
};

// `text` on one line, safe to show on a terminal: control characters, line separators and bytes
// that are not UTF-8 are written as \n, \t, \r or, byte by byte, \x1b.
std::string oneLine(std::string_view text);

} // namespace Postcard::Cli::Trace
