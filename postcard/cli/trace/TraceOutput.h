// `TraceOutput`: writes records to standard output, a line each, for people or as JSON. Relies on
// POSIX: a reader who goes away must be told from a disk that is full.
#pragma once

#include "Ringlog/Decoder.h"

#include <string>

namespace Postcard::Cli {

class TraceOutput {
 public:
   enum class Layout { text, textWithProcess, json };
   explicit TraceOutput(Layout layout) : layout_{layout} {}

   // Prints a record of the process, now or at the next flush.
   void print(const Ringlog::Record& record, U32 process);
   // Writes what is left. Throws std::system_error when that fails for another reason than that
   // nobody reads any more.
   void flush();
   // Whether the reader of standard output has gone away, or a signal has ended the wait for it;
   // all that follows is thrown away then.
   bool closed() const noexcept { return closed_; }

 private:
   Layout layout_;
   std::string waiting_; // printed and not written
   bool closed_ = false;
};

// `text` on one line and without anything that a terminal takes for a command: control characters
// and bytes that are no UTF-8 are written as \n, \t, \x1b and the like.
std::string oneLine(std::string_view text);

} // namespace Postcard::Cli
