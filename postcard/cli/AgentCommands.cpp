#include "postcard/cli/AgentCommands.h"

#include "postcard/agent/service/AgentServer.h"
#include "postcard/agent/service/ControlSocket.h"
#include "postcard/policy/FeatureToggles.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/rules-client/Conversation.h"
#include "postcard/rules-client/software/SoftwareTcam.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace Postcard::Cli {

namespace {

// The command line of `postcard agent`.
struct AgentOptions {
   Agent::Service::ServerOptions server;
   std::size_t capacity = 0;
   double answerSeconds = 10;
};

// The embedded rules client.
std::shared_ptr<void> makeTcam(Agent::PolicyAgent& agent,
                               const Agent::Service::AgentServer::Later& later,
                               std::size_t capacity) {
   return std::make_shared<RulesClient::Conversation>(
         agent.requests(), agent.answers(), std::make_shared<RulesClient::SoftwareTcam>(capacity),
         later);
}

int runAgent(const AgentOptions& options) {
   const Policy::File::LoadResult loaded = Policy::File::loadPolicyFile(options.server.policyFile);
   if (!loaded.policyFile) {
      std::cerr << formatFindings(loaded);
      return exitUsage;
   }
   Policy::applyFeatureToggles(loaded.policyFile->featureToggles);
   try {
      Agent::Service::AgentServer server{
            options.server, *loaded.policyFile,
            [&](Agent::PolicyAgent& agent, const Agent::Service::AgentServer::Later& later) {
               return makeTcam(agent, later, options.capacity);
            }};
      return server.run() ? exitDone : exitEnvironment;
   } catch (const std::runtime_error& error) {
      std::cerr << error.what() << '\n';
      return exitEnvironment;
   }
}

// What is wrong with a time; empty when nothing is. No comparison holds for "nan".
std::string checkSeconds(const std::string& text) {
   double seconds = 0;
   const bool good =
         CLI::detail::lexical_cast(text, seconds) && seconds >= 0.001 && seconds <= 86400;
   return good ? "" : "Value " + text + " not in range 0.001 to 86400";
}

void addSocketOption(CLI::App& parser, std::string& path) {
   path = Agent::Service::defaultSocketPath();
   parser.add_option("--socket", path, "the agent's Unix socket")
         ->type_name("PATH")
         ->capture_default_str();
}

std::function<int()> declareAgent(CLI::App& parser) {
   auto options = std::make_shared<AgentOptions>();
   options->capacity = RulesClient::SoftwareTcam::defaultCapacity;
   parser.add_option("FILE", options->server.policyFile, "policy file (YAML or JSON)")->required();
   addSocketOption(parser, options->server.socketPath);
   parser.add_flag("--delete-on-exit", options->server.deleteOnExit,
                   "take every policy back from the rules client before ending");
   parser.add_option("--capacity", options->capacity, "entries of the embedded software TCAM")
         ->type_name("N")
         ->check(CLI::NonNegativeNumber)
         ->capture_default_str();
   parser.add_option("--answer-time", options->answerSeconds,
                     "seconds that the rules client has for an answer")
         ->type_name("SECONDS")
         ->check(checkSeconds)
         ->capture_default_str();
   parser.footer("SIGHUP reads the file again, all or nothing. SIGTERM and SIGINT end the agent.\n"
                 "Exit status: 0 ended by a signal, 2 bad usage or policy file, 3 the socket or\n"
                 "the helper module cannot be used, or a policy was to be taken back and was not.");
   return [options] {
      options->server.agent.answerTime =
            std::chrono::milliseconds{static_cast<long>(options->answerSeconds * 1000)};
      return runAgent(*options);
   };
}

// The command line of what asks an agent.
struct AskOptions {
   std::string socket;
   std::string format = "text";
   bool memory = false;               // for `status`: of memory instead of policies
   std::optional<std::string> levels; // for `trace-levels`: those to set
};

constexpr const char* askedStatus =
      "Exit status: 0 done, 2 bad usage, 3 no agent answers, or standard output cannot be written.";

// Sends a request and prints the answer: what was asked for to standard output, why it was refused
// to standard error, except that a program finds its document in one place.
int ask(const AskOptions& options, const char* command) {
   constexpr std::chrono::milliseconds patience{30'000};
   try {
      nlohmann::json request{{"command", command}, {"format", options.format}};
      if (options.levels) {
         request["levels"] = *options.levels;
      }
      const Agent::Service::ControlAnswer answer =
            Agent::Service::requestAgent(options.socket, request.dump(), patience);
      const bool document = options.format == "json" && answer.exitCode != exitEnvironment;
      (answer.exitCode == exitDone || document ? std::cout : std::cerr)
            << answer.text << std::flush;
      return answer.exitCode;
   } catch (const nlohmann::json::exception&) {
      std::cerr << "what is asked for is no UTF-8 text\n";
      return exitUsage;
   } catch (const Agent::Service::ControlError& error) {
      std::cerr << error.what() << '\n';
      return exitEnvironment;
   }
}

void declareAsk(CLI::App& parser, AskOptions& options) {
   addSocketOption(parser, options.socket);
   parser.add_option("--format", options.format, "text for people, json for programs")
         ->check(CLI::IsMember({"text", "json"}))
         ->capture_default_str();
}

std::function<int()> declareAsk(CLI::App& parser, const char* command) {
   auto options = std::make_shared<AskOptions>();
   declareAsk(parser, *options);
   return [options, command] { return ask(*options, command); };
}

std::function<int()> declareShow(CLI::App& parser) {
   parser.footer(askedStatus);
   return declareAsk(parser, "show");
}

std::function<int()> declareStatus(CLI::App& parser) {
   auto options = std::make_shared<AskOptions>();
   declareAsk(parser, *options);
   parser.footer(askedStatus);
   parser.add_flag("--memory", options->memory,
                   "live objects and bytes per type of the framework, instead of policies");
   return [options] { return ask(*options, options->memory ? "memory" : "status"); };
}

std::function<int()> declareTraceLevels(CLI::App& parser) {
   auto options = std::make_shared<AskOptions>();
   addSocketOption(parser, options->socket);
   parser.add_option("LEVELS", options->levels,
                     "what to set, as in FMTRACE: 'OruPostcardTelemetry*/0-5,9'; '' for none");
   parser.footer(
         "Exit status: 0 done, 2 bad usage or no such levels, 3 no agent answers, or standard\n"
         "output cannot be written.");
   return [options] { return ask(*options, "trace-levels"); };
}

std::function<int()> declareReload(CLI::App& parser) {
   parser.footer(
         "A file that is not taken changes nothing.\n"
         "Exit status: 0 done, 1 a policy was refused or the agent is ending, 2 bad usage or\n"
         "policy file, 3 no agent answers, or standard output cannot be written.");
   return declareAsk(parser, "reload");
}

} // namespace

const Command agentCommand{"agent", "Program the policies of a file, and follow the file",
                           &declareAgent};
const Command showCommand{"show", "Print the ACLs of a running agent", &declareShow};
const Command statusCommand{"status", "Print how the policies of a running agent stand",
                            &declareStatus};
const Command traceLevelsCommand{"trace-levels", "Print or set the text-trace levels of an agent",
                                 &declareTraceLevels};
const Command reloadCommand{"reload", "Make a running agent read its policy file again",
                            &declareReload};

} // namespace Postcard::Cli
