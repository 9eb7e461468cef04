// `TraceWait`: what `postcard trace --follow` waits for between two looks at its files. A ring is
// memory that its process writes to, which wakes nobody, so that it looks at intervals. Relies on
// Linux's descriptors of processes.
#pragma once

#include "Pello/Types.h"

#include <chrono>
#include <vector>

namespace Postcard::Cli {

class TraceWait {
 public:
   // SIGINT and SIGTERM are caught from now on. One such object per process.
   explicit TraceWait(std::size_t writers);
   ~TraceWait();
   TraceWait(const TraceWait&) = delete;
   TraceWait& operator=(const TraceWait&) = delete;

   // The process that writes file `number`; it may have ended long ago.
   void writerIs(std::size_t number, U32 process);
   // Whether that process has ended. Requires that it is known.
   bool ended(std::size_t number) const;
   bool allEnded() const;

   // Waits for the next look. Ends early when a process ends. Returns whether the command is to go
   // on: no signal has come, and somebody still reads standard output.
   bool next(std::chrono::milliseconds interval) const;

 private:
   struct Writer {
      U32 process = 0;
      int descriptor = -1; // -1: there is no such process
   };
   void forget(Writer& writer) const;

   std::vector<Writer> writers_;
};

} // namespace Postcard::Cli
