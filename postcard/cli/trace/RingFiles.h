// `RingFiles`: several ring files, read side by side and merged by time. Relies on
// `Ringlog::FileReader`. What a user should know of a file goes to standard error.
#pragma once

#include "Ringlog/FileReader.h"

#include <optional>
#include <string>
#include <vector>

namespace Postcard::Cli::Trace {

// One trace of one of the files.
struct Event {
   U32 process;            // number of the process that traced
   Ringlog::Record record; // its call site is valid until the next look
};

class RingFiles {
 public:
   // Opens nothing before the first look.
   explicit RingFiles(const std::vector<std::string>& paths);

   // What has been added to the files since the look before, oldest first. Reports on standard
   // error when another process has taken a file over, and how many traces were overwritten before
   // they could be read. Absent when one of the files cannot be used, which is then reported.
   std::optional<std::vector<Event>> look();

   // One per path, in their order. The facts of a reader are known after a successful look.
   const std::vector<Ringlog::FileReader>& readers() const { return readers_; }

   // Reports on standard error what was traced and is not in the output.
   void reportLosses() const;

 private:
   std::vector<Ringlog::FileReader> readers_;
};

} // namespace Postcard::Cli::Trace
