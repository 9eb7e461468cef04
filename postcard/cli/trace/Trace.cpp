#include "postcard/cli/trace/Trace.h"

#include "Ringlog/FileReader.h"
#include "postcard/cli/trace/TraceFilter.h"
#include "postcard/cli/trace/TraceOutput.h"
#include "postcard/cli/trace/TraceWait.h"
#include "postcard/host/PluginHost.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace Postcard::Cli {

namespace {

using Ringlog::FileReader;

constexpr std::chrono::milliseconds lookInterval{100};

// The command line.
struct Options {
   std::vector<std::string> files;
   TraceFilter filter;
   std::string format = "text";
   bool follow = false;
};

// One trace of one of the files.
struct Trace {
   U32 process;
   Ringlog::Record record;
};

// The files that are read, side by side.
class Files {
 public:
   explicit Files(const std::vector<std::string>& paths) {
      for (const std::string& path : paths) {
         readers_.emplace_back(path);
      }
   }

   // What is new in all of them, by time; nothing when one of them cannot be used, which has been
   // reported then.
   std::optional<std::vector<Trace>> look() {
      std::vector<Trace> traces;
      bool usable = true;
      for (FileReader& reader : readers_) {
         usable = add(reader, traces) && usable;
      }
      std::ranges::stable_sort(traces, {}, [](const Trace& trace) { return trace.record.time; });
      return usable ? std::optional{std::move(traces)} : std::nullopt;
   }

   const std::vector<FileReader>& readers() const { return readers_; }

 private:
   static bool add(FileReader& reader, std::vector<Trace>& traces) {
      try {
         FileReader::Look look = reader.look();
         const U32 process = reader.facts().processId;
         if (look.replaced) {
            std::cerr << fmt::format("{}: process {} traces into it from here on\n", reader.path(),
                                     process);
         }
         if (look.missed > 0) {
            std::cerr << fmt::format("{}: {} traces made room for newer ones before they could be "
                                     "read\n",
                                     reader.path(), look.missed);
         }
         for (Ringlog::Record& record : look.records) {
            traces.push_back({process, std::move(record)});
         }
         return true;
      } catch (const Ringlog::DamagedRing& error) {
         std::cerr << reader.path() << ": " << error.what() << '\n';
      } catch (const std::system_error& error) {
         std::cerr << error.what() << '\n';
      }
      return false;
   }

   std::vector<FileReader> readers_;
};

// What is not in the output although it was traced.
void reportLosses(const FileReader& reader) {
   const Ringlog::RingFacts& facts = reader.facts();
   const auto say = [&](const std::string& what) {
      std::cerr << reader.path() << ": " << what << '\n';
   };
   if (facts.lostDescriptors > 0) {
      say(fmt::format("{} call sites found no room for their description", facts.lostDescriptors));
   }
   if (reader.undescribed() > 0) {
      say(fmt::format("{} traces of call sites without a description are left out",
                      reader.undescribed()));
   }
   if (facts.lostBlocks > 0) {
      say(fmt::format("{} times a thread found all of the ring in use by others and lost its next "
                      "{} KiB of traces",
                      facts.lostBlocks, Ringlog::blockSize / 1024));
   }
   if (reader.damagedBlocks() > 0) {
      say(fmt::format("{} of {} blocks are damaged; what lies behind the damage is left out",
                      reader.damagedBlocks(), facts.blocks));
   }
}

void print(const std::vector<Trace>& traces, const TraceFilter& filter, TraceOutput& output) {
   for (const Trace& trace : traces) {
      if (filter.wants(trace.record)) {
         output.print(trace.record, trace.process);
      }
   }
   output.flush();
}

int printOnce(const Options& options, Files& files, TraceOutput& output) {
   const auto traces = files.look();
   if (!traces) {
      return exitUsage;
   }
   print(*traces, options.filter, output);
   std::ranges::for_each(files.readers(), &reportLosses);
   return exitDone;
}

// Tells the wait whose end it is to notice.
void writersAre(TraceWait& wait, const Files& files) {
   for (std::size_t number = 0; number < files.readers().size(); ++number) {
      wait.writerIs(number, files.readers()[number].facts().processId);
   }
}

void reportEnd(const FileReader& reader) {
   std::cerr << reader.path() << ": process " << reader.facts().processId << " has ended\n";
}

int follow(const Options& options, Files& files, TraceOutput& output) {
   TraceWait wait{options.files.size()};
   bool last = false; // whoever has ended before a look adds nothing after it
   bool goOn = true;
   while (goOn) {
      const auto traces = files.look();
      if (!traces) {
         return exitUsage;
      }
      print(*traces, options.filter, output);
      writersAre(wait, files);
      const bool ended = wait.allEnded();
      if (ended && last) {
         std::ranges::for_each(files.readers(), &reportEnd);
         break;
      }
      last = ended;
      goOn = !output.closed() && (last || wait.next(lookInterval));
   }
   std::ranges::for_each(files.readers(), &reportLosses);
   return exitDone;
}

TraceOutput::Layout layoutOf(const Options& options) {
   if (options.format == "json") {
      return TraceOutput::Layout::json;
   }
   return options.files.size() > 1 ? TraceOutput::Layout::textWithProcess
                                   : TraceOutput::Layout::text;
}

// The types of values that only the module knows. Without it their texts say what is missing.
void loadTypes() {
   try {
      const Host::PluginHost host{Host::PluginHost::defaultModule()};
   } catch (const Host::PluginError&) {
      return;
   }
}

int run(const Options& options) {
   // The file that is to be read must not be taken for this process's own traces.
   ::unsetenv("RINGLOG_FILE");
   // A reader that goes away ends the output, not the process.
   std::signal(SIGPIPE, SIG_IGN);
   loadTypes();
   Files files{options.files};
   TraceOutput output{layoutOf(options)};
   return options.follow ? follow(options, files, output) : printOnce(options, files, output);
}

// An option whose text goes to a setting of the filter.
void addSetting(CLI::App& parser, const std::shared_ptr<Options>& options, const char* name,
                const char* type, const char* description,
                void (TraceFilter::*set)(const std::string&)) {
   parser.add_option_function<std::string>(
               name,
               [=](const std::string& text) {
                  try {
                     (options->filter.*set)(text);
                  } catch (const std::invalid_argument& error) {
                     throw CLI::ValidationError{name, error.what()};
                  }
               },
               description)
         ->type_name(type);
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   parser.add_option("FILE", options->files, "ring file, as RINGLOG_FILE named it")->required();
   addSetting(parser, options, "--level", "L[-M][,...]", "only these levels, such as 0-5,9",
              &TraceFilter::levelsIs);
   addSetting(parser, options, "--since", "TIME",
              "only from this time on: 2025-11-21T11:36:51Z, or an age: 10s, 5m, 2h, 1d",
              &TraceFilter::sinceIs);
   addSetting(parser, options, "--grep", "REGEX",
              "only those whose text or class::function has a match (extended regular expression)",
              &TraceFilter::expressionIs);
   addSetting(parser, options, "--source", "PATTERN",
              "only from these sources; * stands for any characters", &TraceFilter::sourceIs);
   parser.add_option("--format", options->format, "text for people, json for programs")
         ->check(CLI::IsMember({"text", "json"}))
         ->capture_default_str();
   parser.add_flag("--follow", options->follow,
                   "go on with new traces until interrupted or until the traced processes end");
   parser.footer(
         "Prints a line for each trace, the oldest first, those of several files by time:\n"
         "   TIME THREAD SOURCE LEVEL CLASS::FUNCTION: TEXT\n"
         "TIME is UTC. With several files PROCESS/THREAD stands in place of THREAD. Levels: 0 "
         "errors,\n"
         "5 decisions and results, 8 entry into an operation (without text), 9 details. Control\n"
         "characters are shown as \\n, \\x1b and the like. With --format json each line is an "
         "object.\n"
         "What could not be kept or read is told on standard error.\n"
         "Exit status: 0 done, 2 bad usage or a file that is no ring, 3 output cannot be written.");
   return [options] { return run(*options); };
}

} // namespace

const Command traceCommand{"trace", "Print the traces in ring files", &declare};

} // namespace Postcard::Cli
