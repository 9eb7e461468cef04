#include "postcard/cli/trace/Trace.h"

#include "postcard/cli/trace/Output.h"
#include "postcard/cli/trace/RingFiles.h"
#include "postcard/cli/trace/Wait.h"

#include <chrono>
#include <csignal>
#include <iostream>

namespace Postcard::Cli::Trace {

namespace {

// People see new traces at once, and ten looks a second cost next to nothing.
constexpr std::chrono::milliseconds lookInterval{100};

void print(const std::vector<Event>& events, const Filter& filter, Output& output) {
   for (const Event& event : events) {
      if (filter.wants(event.record)) {
         output.print(event.record, event.process);
      }
   }
   output.flush();
}

// What the files hold now. Returns false when a file cannot be used.
bool printOnce(const Options& options, RingFiles& files, Output& output) {
   const auto events = files.look();
   if (!events) {
      return false;
   }
   print(*events, options.filter, output);
   files.reportLosses();
   return true;
}

// Tells `wait` which process writes each file now: another one may have taken a file over.
void writersAre(Wait& wait, const RingFiles& files) {
   for (std::size_t number = 0; number < files.readers().size(); ++number) {
      wait.writerIs(number, files.readers()[number].facts().processId);
   }
}

void reportEnds(const RingFiles& files) {
   for (const Ringlog::FileReader& reader : files.readers()) {
      std::cerr << reader.path() << ": process " << reader.facts().processId << " has ended\n";
   }
}

// Looks and prints until something ends it. Returns false when a file cannot be used.
bool follow(const Options& options, RingFiles& files, Output& output) {
   Wait wait{options.files.size()};
   // Whether the next look is the last: all processes had ended before it begins, so it finds every
   // trace that there will be. Without it, traces between a look and the end would be missed.
   bool last = false;
   bool goOn = true;
   while (goOn) {
      const auto events = files.look();
      if (!events) {
         return false;
      }
      print(*events, options.filter, output);
      writersAre(wait, files);
      const bool ended = wait.allEnded();
      if (ended && last) {
         reportEnds(files);
         break;
      }
      last = ended;
      goOn = !output.closed() && (last || wait.next(lookInterval));
   }
   files.reportLosses();
   return true;
}

Output::Layout layoutOf(const Options& options) {
   if (options.json) {
      return Output::Layout::json;
   }
   return options.files.size() > 1 ? Output::Layout::textWithProcess : Output::Layout::text;
}

} // namespace

bool run(const Options& options) {
   // A write to a closed pipe must fail instead of ending the process: losses are still reported.
   std::signal(SIGPIPE, SIG_IGN);
   RingFiles files{options.files};
   Output output{layoutOf(options)};
   return options.follow ? follow(options, files, output) : printOnce(options, files, output);
}

} // namespace Postcard::Cli::Trace
