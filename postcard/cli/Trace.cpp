// `postcard trace`: prints the traces in ring files.
#include "postcard/cli/trace/Trace.h"

#include "Pello/FileDescriptor.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Format.h"
#include "postcard/cli/shared/PolicyChoice.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/host/PluginHost.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Postcard::Cli {

namespace {

struct Options {
   Trace::Options trace;
   Format format;
};

// Registers the types that only the helper module has, so that values of these types are printed in
// words. A missing module is no error: a ring file may be read on a machine without the plug-in,
// and the text of such a value then says what is missing.
void loadTypes() {
   try {
      const Host::PluginHost host{Host::PluginHost::defaultModule()};
   } catch (const Host::PluginError&) {
      return;
   }
}

// Makes descriptor 0 a file in memory that holds all of standard input, when that is no file: a
// ring is read from several places, and a pipe can be read once, from its beginning.
void keepStandardInput() {
   struct stat status {};
   if (::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) {
      return;
   }
   const Pello::FileDescriptor memory{::memfd_create("postcard-trace", MFD_CLOEXEC)};
   std::array<char, std::size_t{64} * 1024> buffer;
   ssize_t size = 0;
   while (memory.get() >= 0 && (size = ::read(STDIN_FILENO, buffer.data(), buffer.size())) > 0) {
      const ssize_t written = ::write(memory.get(), buffer.data(), static_cast<std::size_t>(size));
      if (written != size) {
         errno = written < 0 ? errno : ENOSPC;
         size = -1;
         break;
      }
   }
   if (memory.get() < 0 || size < 0 || ::dup2(memory.get(), STDIN_FILENO) < 0) {
      throw std::system_error{errno, std::generic_category(), "standard input cannot be read"};
   }
}

// Returns false, and says why, when standard input cannot be one of the files.
bool takeStandardInput(Trace::Options& options) {
   if (std::ranges::none_of(options.files, isStandardInput)) {
      return true;
   }
   if (options.follow) {
      std::cerr << "postcard trace: standard input cannot be followed; name the ring file\n";
      return false;
   }
   keepStandardInput();
   std::ranges::replace_if(options.files, isStandardInput, std::string{"/dev/stdin"});
   return true;
}

int run(const Options& options) {
   // Before anything traces: otherwise this process would make its own ring in the file that it is
   // asked to read, if the user has exported the variable.
   ::unsetenv("RINGLOG_FILE");
   loadTypes();
   Trace::Options trace = options.trace;
   trace.json = options.format.isJson();
   workIs("reading ring files");
   if (!takeStandardInput(trace)) {
      return exitUsage;
   }
   return Trace::run(trace) ? exitDone : exitUsage;
}

// Adds an option whose text goes to a setting of the filter. The filter checks the text, and its
// reason becomes an error of usage.
void addSetting(CLI::App& parser, const std::shared_ptr<Options>& options, const char* name,
                const char* type, const char* description,
                void (Trace::Filter::*set)(const std::string&)) {
   parser.add_option_function<std::string>(
               name,
               [=](const std::string& text) {
                  try {
                     (options->trace.filter.*set)(text);
                  } catch (const std::invalid_argument& error) {
                     throw CLI::ValidationError{name, error.what()};
                  }
               },
               description)
         ->type_name(type);
}

void addSettings(CLI::App& parser, const std::shared_ptr<Options>& options) {
   addSetting(parser, options, "--level", "L[-M][,...]", "only these levels, such as 0-5,9",
              &Trace::Filter::levelsIs);
   addSetting(parser, options, "--since", "TIME",
              "only from this time on: 2025-11-21T11:36:51Z, or an age: 10s, 5m, 2h, 1d",
              &Trace::Filter::sinceIs);
   addSetting(
         parser, options, "--grep", "REGEX",
         "only those whose text or class::function has a match (regular expression, RE2 syntax)",
         &Trace::Filter::expressionIs);
   addSetting(parser, options, "--source", "PATTERN",
              "only from these sources; * stands for any characters", &Trace::Filter::sourceIs);
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   parser.add_option("FILE", options->trace.files,
                     "ring file, as RINGLOG_FILE named it; - is standard input")
         ->required();
   addSettings(parser, options);
   options->format.declare(parser);
   parser.add_flag("--follow", options->trace.follow,
                   "go on with new traces until interrupted or until the traced processes end");
   parser.footer(
         "Prints a line for each trace, the oldest first, those of several files by time:\n"
         "   TIME THREAD SOURCE LEVEL CLASS::FUNCTION: TEXT\n"
         "TIME is UTC. With several files PROCESS/THREAD stands in place of THREAD. Levels: 0 "
         "errors,\n"
         "5 decisions and results, 8 entry into an operation (without text), 9 details. Control\n"
         "characters are shown as \\n, \\x1b and the like. With --format json each line is an "
         "object.\n"
         "Standard error says how many traces could not be kept or read.\n"
         "Exit status: 0 done, 2 bad usage or a file that is no ring, 3 output cannot be written.");
   return [options] { return run(*options); };
}

} // namespace

const Command traceCommand{"trace", "Print the traces in ring files", &declare};

} // namespace Postcard::Cli
