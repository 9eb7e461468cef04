// `AgentServer`: the agent as a process. An event loop (libuv) around a `PolicyAgent`: signals, the
// answer timer, the control socket, the service manager. One thread, no polling.
//
// SIGHUP reads the policy file again. SIGTERM and SIGINT end the process; with `deleteOnExit` after
// the rules client has taken back every policy, or the time for that is up, else with hardware left
// as it is. A second one ends it at once.
#pragma once

#include "postcard/agent/PolicyAgent.h"
#include "postcard/agent/service/ControlServer.h"
#include "postcard/host/PluginHost.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace Postcard::Agent::Service {

struct ServerOptions {
   std::string policyFile; // path
   std::string socketPath;
   bool deleteOnExit = false;
   std::chrono::milliseconds deleteTime{30'000}; // for `deleteOnExit`, all policies together
   PolicyAgent::Options agent;
   ControlLimits control;
};

class AgentServer {
 public:
   // Runs a function from the event loop.
   using Later = std::function<void(std::function<void()>)>;
   // Makes the rules client that serves the agent's records. The object is kept until the server
   // goes.
   using MakeRulesClient = std::function<std::shared_ptr<void>(PolicyAgent&, const Later&)>;

   // `file` is what was read from `options.policyFile`. Throws ServerError, PluginError,
   // ControlError.
   AgentServer(ServerOptions options, const Policy::PolicyFile& file,
               const MakeRulesClient& makeRulesClient);
   AgentServer(const AgentServer&) = delete;
   AgentServer& operator=(const AgentServer&) = delete;
   ~AgentServer();

   // Serves until a signal ends it. Returns whether what was to be taken back has been; what has
   // not is said.
   bool run();

 private:
   class Implementation;
   std::unique_ptr<Implementation> implementation_;
};

} // namespace Postcard::Agent::Service
