// `RingFiles`: several ring files, read together and merged by time. Relies on
// `Ringlog::FileReader`. What a user should know about a file is written to standard error, with
// the path of the file.
#pragma once

#include "Ringlog/FileReader.h"

#include <optional>
#include <string>
#include <vector>

namespace Postcard::Cli::Trace {

// One trace of one of the files.
struct Event {
   U32 process;            // number of the process that traced (PID)
   Ringlog::Record record; // its call site is valid until the next look
};

class RingFiles {
 public:
   // Opens no file; `look` does.
   explicit RingFiles(const std::vector<std::string>& paths);

   // The traces that have been added to the files since the look before, oldest first; at the first
   // look, all that the files hold. Reports on standard error when another process has taken a file
   // over, and how many traces were overwritten before they could be read. Absent when one of the
   // files cannot be used; every such file is reported.
   std::optional<std::vector<Event>> look();

   // The readers of the files, in the order of the paths. Their `facts` are known after a look that
   // succeeded.
   const std::vector<Ringlog::FileReader>& readers() const { return readers_; }

   // Reports on standard error which traces the files lack, and why. Requires a look that
   // succeeded.
   void reportLosses() const;

 private:
   std::vector<Ringlog::FileReader> readers_;
};

} // namespace Postcard::Cli::Trace
