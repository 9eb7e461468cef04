// `postcard agent`: the daemon. Connects the agent with the rules client that serves it.
#include "postcard/agent/service/AgentServer.h"
#include "postcard/agent/service/ControlSocket.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Count.h"
#include "postcard/cli/shared/Descriptors.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/policy/FeatureToggles.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/rules-client/Conversation.h"
#include "postcard/rules-client/software/SoftwareTcam.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>

namespace Postcard::Cli {

namespace {

struct Options {
   Agent::Service::ServerOptions server; // without the answer time, see `answerSeconds`
   std::size_t capacity = 0;             // entries of the software TCAM
   double answerSeconds = 10;            // time that the rules client has for an answer
};

// The rules client: a software TCAM in this process, behind a conversation on the agent's records.
std::shared_ptr<void> makeTcam(Agent::PolicyAgent& agent,
                               const Agent::Service::AgentServer::Later& later,
                               const std::shared_ptr<RulesClient::SoftwareTcam>& tcam) {
   return std::make_shared<RulesClient::Conversation>(agent.requests(), agent.answers(), tcam,
                                                      later);
}

// Files that an agent has open before its first client: event loop, signals, socket, lock, module.
constexpr std::size_t descriptors = 24;

int run(const Options& options) {
   const std::string& file = options.server.policyFile;
   if (file == "-" || file == "/dev/stdin") {
      std::cerr << "postcard agent: an agent reads its policy file again at each reload, so it "
                   "cannot be standard input; write a file and name it\n";
      return exitUsage;
   }
   workIs("running an agent with policy file " + file);
   requireDescriptors(descriptors);
   const Policy::File::LoadResult loaded = Policy::File::loadPolicyFile(options.server.policyFile);
   if (!loaded.policyFile) {
      std::cerr << formatFindings(loaded);
      return exitUsage;
   }
   // Before the first helper is made: helpers read the toggles once per process.
   Policy::applyFeatureToggles(loaded.policyFile->featureToggles);
   try {
      const auto tcam = std::make_shared<RulesClient::SoftwareTcam>(options.capacity);
      Agent::Service::ServerOptions serverOptions = options.server;
      serverOptions.policyText = loaded.text;
      serverOptions.capacity = [tcam] {
         return Agent::Service::Capacity{tcam->used(), tcam->capacity()};
      };
      Agent::Service::AgentServer server{
            std::move(serverOptions), *loaded.policyFile,
            [&](Agent::PolicyAgent& agent, const Agent::Service::AgentServer::Later& later) {
               return makeTcam(agent, later, tcam);
            }};
      // Policies that could not be deleted in time are a failure of the rules client.
      return server.run() ? exitDone : exitEnvironment;
   } catch (const Agent::Service::RefusedStart& error) {
      std::cerr << error.what()
                << "\nNothing is programmed. --partial programs the other policies.\n";
      return exitRefused;
   } catch (const std::runtime_error& error) {
      std::cerr << error.what() << '\n';
      return exitEnvironment;
   }
}

// Returns what is wrong with a time in seconds, in the form that the parser expects of a check:
// empty when nothing is wrong. "nan" is refused because no comparison holds for it. The lower limit
// is the resolution of the timer, the upper one is a day.
std::string checkSeconds(const std::string& text) {
   double seconds = 0;
   const bool good =
         CLI::detail::lexical_cast(text, seconds) && seconds >= 0.001 && seconds <= 86400;
   return good ? "" : "Value " + text + " not in range 0.001 to 86400";
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->capacity = RulesClient::SoftwareTcam::defaultCapacity;
   options->server.socketPath = Agent::Service::defaultSocketPath();
   parser.add_option("FILE", options->server.policyFile, "policy file (YAML or JSON)")->required();
   parser.add_option("--socket", options->server.socketPath, "the agent's Unix socket")
         ->type_name("PATH")
         ->capture_default_str();
   parser.add_flag("--delete-on-exit", options->server.deleteOnExit,
                   "take every policy back from the rules client before ending");
   parser.add_flag("--partial", options->server.reload.partial,
                   "at the start and after SIGHUP, leave out policies that the plug-in refuses");
   parser.add_flag("--allow-empty", options->server.reload.allowEmpty,
                   "after SIGHUP, take over a file without policies");
   addCount(parser, "--capacity", options->capacity, "entries of the embedded software TCAM")
         ->capture_default_str();
   parser.add_option("--answer-time", options->answerSeconds,
                     "seconds that the rules client has for an answer")
         ->type_name("SECONDS")
         ->check(checkSeconds)
         ->capture_default_str();
   parser.footer(
         "SIGHUP makes the agent read the file again; it takes over all of the file or nothing.\n"
         "SIGTERM and SIGINT end the agent.\n"
         "Exit status: 0 ended by a signal, 1 the plug-in refused a policy, 2 bad usage or policy\n"
         "file, 3 the socket or the helper module cannot be used, or --delete-on-exit could not\n"
         "take every policy back.");
   return [options] {
      // The parser reads no fractions into a duration.
      options->server.agent.answerTime =
            std::chrono::milliseconds{static_cast<long>(options->answerSeconds * 1000)};
      return run(*options);
   };
}

} // namespace

const Command agentCommand{"agent", "Run an agent that programs the policies of a file", &declare};

} // namespace Postcard::Cli
