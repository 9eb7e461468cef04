// `Wait`: waits between two looks at ring files, until an interval has passed or an event comes:
// the end of a process, a signal, or the end of the reader of standard output. A process writes its
// ring through mapped memory. Memory writes raise no event, so the files are polled. Relies on
// Linux process descriptors (pidfd_open(2)) for the end of a process.
#pragma once

#include "Pello/Types.h"

#include <chrono>
#include <vector>

namespace Postcard::Cli::Trace {

class Wait {
 public:
   // `writers` is the number of files, each of which has one writing process. Catches SIGINT and
   // SIGTERM for the rest of the process, so create one such object per process.
   explicit Wait(std::size_t writers);
   ~Wait();
   Wait(const Wait&) = delete;
   Wait& operator=(const Wait&) = delete;

   // Sets the process that writes the file `number`, counted from 0; the process may have ended
   // long ago. Throws std::system_error when the process cannot be watched.
   void writerIs(std::size_t number, U32 process);
   // Whether the process that writes the file `number` has ended. Requires `writerIs` before.
   // Process numbers are reused: when the writer ended before `writerIs` was called and another
   // process has its number, the answer is about that process.
   bool ended(std::size_t number) const;
   // Whether the writers of all files have ended.
   bool allEnded() const;

   // Waits for `interval`, or less when a process ends. Returns whether the command should go on:
   // false when SIGINT or SIGTERM has come, or when nobody reads standard output any more.
   bool next(std::chrono::milliseconds interval) const;

 private:
   struct Writer {
      U32 process = 0;     // 0: not set
      int descriptor = -1; // of the process, owned; -1: there is no such process
   };
   // Closes the descriptor and makes `writer` one that is not set.
   void forget(Writer& writer) const;

   std::vector<Writer> writers_;
};

} // namespace Postcard::Cli::Trace
