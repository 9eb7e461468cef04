// `postcard agent`: the daemon. Connects the agent with the rules client that serves it.
#include "postcard/agent/service/AgentServer.h"
#include "postcard/agent/service/ControlSocket.h"
#include "postcard/agent/service/ErrorOutput.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Count.h"
#include "postcard/cli/shared/Descriptors.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/policy/FeatureToggles.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/rules-client/ClientModule.h"
#include "postcard/rules-client/Conversation.h"
#include "postcard/rules-client/software/SoftwareTcam.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Postcard::Cli {

namespace {

struct Options {
   Agent::Service::ServerOptions server; // without the answer time, see `answerSeconds`
   std::string rulesClient = "software"; // or "kernel"
   std::size_t capacity = 0;             // entries of the software TCAM
   double answerSeconds = 10;            // time that the rules client has for an answer
};

// What serves the agent's requests, and what the server has to know of it.
struct Client {
   std::shared_ptr<RulesClient::RulesClient> client;
   std::function<std::optional<Agent::Service::Capacity>()> capacity;
   std::vector<std::pair<int, std::function<void()>>> watched;
   std::function<std::vector<RulesClient::AclCounters>()> counters; // empty: none
};

// A software TCAM in this process.
Client softwareClient(std::size_t capacity) {
   const auto tcam = std::make_shared<RulesClient::SoftwareTcam>(capacity);
   return {tcam,
           [tcam] {
              return Agent::Service::Capacity{tcam->used(), tcam->capacity()};
           },
           {},
           nullptr};
}

// The Linux kernel. Its library is opened now, so that nobody else needs what it needs.
Client kernelClient() {
   RulesClient::ClientOptions options;
   options.say = [](const std::string& line) { Agent::Service::say("agent: " + line); };
   const auto client =
         RulesClient::openClientModule(RulesClient::clientModule("PostcardKernel"), options);
   Client result{client, nullptr, {}, [client] { return client->counters(); }};
   for (auto& [descriptor, readable] : client->watched()) {
      result.watched.emplace_back(descriptor, std::move(readable));
   }
   return result;
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
      const Client client =
            options.rulesClient == "kernel" ? kernelClient() : softwareClient(options.capacity);
      Agent::Service::ServerOptions serverOptions = options.server;
      serverOptions.policyText = loaded.text;
      serverOptions.capacity = client.capacity;
      serverOptions.watched = client.watched;
      serverOptions.counters = client.counters;
      Agent::Service::AgentServer server{
            std::move(serverOptions), *loaded.policyFile,
            [&](Agent::PolicyAgent& agent, const Agent::Service::AgentServer::Later& later) {
               return std::make_shared<RulesClient::Conversation>(agent.requests(), agent.answers(),
                                                                  client.client, later);
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
   parser.add_option("--rules-client", options->rulesClient,
                     "what programs the rules: software, a TCAM in this process, "
                     "or kernel, the Linux kernel of this machine")
         ->type_name("CLIENT")
         ->check(CLI::IsMember({"software", "kernel"}))
         ->capture_default_str();
   const auto* capacity =
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
         "file, 3 the socket, the helper module or the rules client cannot be used, or\n"
         "--delete-on-exit could not take every policy back.");
   return [options, capacity] {
      if (options->rulesClient == "kernel" && capacity->count() != 0) {
         std::cerr << "postcard agent: --capacity is that of the software TCAM\n";
         return static_cast<int>(exitUsage);
      }
      // The parser reads no fractions into a duration.
      options->server.agent.answerTime =
            std::chrono::milliseconds{static_cast<long>(options->answerSeconds * 1000)};
      return run(*options);
   };
}

} // namespace

const Command agentCommand{"agent", "Run an agent that programs the policies of a file", &declare};

} // namespace Postcard::Cli
