// `postcard show`, `status`, `counters`, `reload` and `trace-levels`: ask a running agent over its
// socket. The agent makes the text and the JSON of its answers, so the commands only print them. A
// reload that is only tried is compared here, so that the agent is not held up.
#include "Pello/VisibleCharacters.h"
#include "postcard/agent/service/ControlSocket.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Comparison.h"
#include "postcard/cli/shared/Format.h"
#include "postcard/cli/shared/RunningFile.h"
#include "postcard/cli/shared/Work.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace Postcard::Cli {

namespace {

struct Options {
   std::string socket;
   Format format;
   ProgressOption progress;
   bool memory = false;               // for `status`: about memory instead of policies
   std::optional<std::string> levels; // for `trace-levels`: the levels to set; absent: only ask
   bool history = false;              // for `status`: with the answers of the rules client
   bool wait = false;                 // for `status`: until all policies are programmed
   double waitSeconds = 60;           // for `wait`, at most
   bool allowEmpty = false;           // for `reload`: the file may have no policies
   bool partial = false;              // for `reload`: refused policies are left out
   bool dryRun = false;               // for `reload`: only say what would change
};

constexpr const char* exitStatus =
      "Exit status: 0 done, 2 bad usage, 3 no agent answers, or standard output cannot be written.";

// Sends a request, prints the answer and returns its exit code. As text, a result goes to standard
// output and the reason of a refusal to standard error. As JSON, both go to standard output, so
// that a program finds its document in one place. A failure inside the agent has no document: its
// reason goes to standard error.
int ask(const Options& options, const char* command) {
   // Until the next part of the answer. A reload compiles the whole file before it is answered,
   // which takes seconds for large files.
   std::chrono::milliseconds patience{30'000};
   workIs(fmt::format("waiting for the answer of the agent at {}", Pello::escaped(options.socket)));
   const Progress progress{options.progress.isWanted()};
   try {
      nlohmann::json request{{"command", command}, {"format", options.format.name()}};
      if (options.levels) {
         request["levels"] = *options.levels;
      }
      if (options.wait) {
         request["wait"] = options.waitSeconds;
         patience += std::chrono::milliseconds{static_cast<long>(options.waitSeconds * 1000)};
      }
      const std::pair<const char*, bool> flags[] = {{"history", options.history},
                                                    {"allow-empty", options.allowEmpty},
                                                    {"partial", options.partial}};
      for (const auto& [name, isSet] : flags) {
         if (isSet) {
            request[name] = true;
         }
      }
      return Agent::Service::requestAgent(
            options.socket, request.dump(), patience, [&](int exitCode, std::string_view part) {
               // A status is printed whatever it says; otherwise only a result is.
               const bool isResult =
                     exitCode == exitDone ||
                     (exitCode != exitEnvironment && (options.format.isJson() || options.wait));
               (isResult ? std::cout : messages()) << part << std::flush;
            });
   } catch (const nlohmann::json::exception&) { // of `dump`: LEVELS holds bytes that are not UTF-8
      messages() << "what is asked for is no UTF-8 text\n";
      return exitUsage;
   } catch (const Agent::Service::ControlError& error) {
      messages() << error.what() << '\n';
      return exitEnvironment;
   }
}

// What a reload would change: the file that the agent has taken over against the file on disk.
int tryReload(const Options& options) {
   const Progress progress{options.progress.isWanted()};
   try {
      const RunningFile running = fetchRunningFile(options.socket);
      Policy::File::LoadResult before = loadRunning(running);
      before.fileName += " (running)";
      workIs("reading policy file " + Pello::escaped(running.path));
      return printDifferences(before, Policy::File::loadPolicyFile(running.path), options.format);
   } catch (const Agent::Service::ControlError& error) {
      messages() << error.what() << '\n';
      return exitEnvironment;
   }
}

// Shared, because the parser writes into the options and the command reads them after its
// declaration has returned.
std::shared_ptr<Options> declareSocket(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->socket = Agent::Service::defaultSocketPath();
   parser.add_option("--socket", options->socket, "the agent's Unix socket")
         ->type_name("PATH")
         ->capture_default_str();
   options->progress.declare(parser);
   return options;
}

std::shared_ptr<Options> declareSocketAndFormat(CLI::App& parser) {
   auto options = declareSocket(parser);
   options->format.declare(parser);
   return options;
}

std::function<int()> declareShow(CLI::App& parser) {
   auto options = declareSocketAndFormat(parser);
   parser.footer(exitStatus);
   return [options] { return ask(*options, "show"); };
}

std::function<int()> declareStatus(CLI::App& parser) {
   auto options = declareSocketAndFormat(parser);
   parser.add_flag("--memory", options->memory,
                   "live objects and bytes per type of the framework, instead of policies");
   parser.add_flag("--history", options->history,
                   "below each policy, the latest answers of the rules client");
   auto* wait = parser.add_flag("--wait", options->wait,
                                "wait until all policies are programmed, or one fails");
   parser.add_option("--timeout", options->waitSeconds, "for --wait, seconds at most")
         ->type_name("SECONDS")
         ->check(CLI::Range(0.001, 86400.0))
         ->needs(wait)
         ->capture_default_str();
   parser.footer("Exit status: 0 done, 1 with --wait a policy has failed, 2 bad usage, 3 no agent "
                 "answers,\n"
                 "the time of --wait is up, or standard output cannot be written.");
   return [options] { return ask(*options, options->memory ? "memory" : "status"); };
}

std::function<int()> declareCounters(CLI::App& parser) {
   auto options = declareSocketAndFormat(parser);
   parser.footer("Exit status: 0 done, 1 the agent's rules client counts no packets, 2 bad usage,\n"
                 "3 no agent answers, or standard output cannot be written.");
   return [options] { return ask(*options, "counters"); };
}

std::function<int()> declareReload(CLI::App& parser) {
   auto options = declareSocketAndFormat(parser);
   parser.add_flag("--partial", options->partial, "leave out policies that the plug-in refuses");
   parser.add_flag("--allow-empty", options->allowEmpty,
                   "take over a file without policies, which removes every policy");
   parser.add_flag("--dry-run", options->dryRun,
                   "change nothing; say what the reload would change, as diff does");
   parser.footer(
         "When the file cannot be used or a policy of it is refused, nothing changes.\n"
         "Exit status: 0 done, 1 a policy was refused or the agent is ending, 2 bad usage or\n"
         "policy file, 3 no agent answers, or standard output cannot be written. With --dry-run,\n"
         "0 nothing would change, 1 something would.");
   return [options] { return options->dryRun ? tryReload(*options) : ask(*options, "reload"); };
}

std::function<int()> declareTraceLevels(CLI::App& parser) {
   auto options = declareSocket(parser);
   parser.add_option("LEVELS", options->levels,
                     "what to set, as in FMTRACE: 'OruPostcardTelemetry*/0-5,9'; '' for none");
   parser.footer(
         "Without LEVELS, prints the levels in force.\n"
         "Exit status: 0 done, 2 bad usage or no such levels, 3 no agent answers, or standard\n"
         "output cannot be written.");
   return [options] { return ask(*options, "trace-levels"); };
}

} // namespace

const Command showCommand{"show", "Print the ACLs of a running agent", &declareShow};
const Command statusCommand{"status", "Print the states of the policies of a running agent",
                            &declareStatus};
const Command countersCommand{"counters", "Print what a running agent's rules client has counted",
                              &declareCounters};
const Command reloadCommand{"reload", "Make a running agent read its policy file again",
                            &declareReload};
const Command traceLevelsCommand{"trace-levels", "Print or set the text-trace levels of an agent",
                                 &declareTraceLevels};

} // namespace Postcard::Cli
