// `AgentServer`: the agent as a process. An event loop around a `PolicyAgent`: signals, the answer
// timer, the control socket, the service manager. One thread, no polling. Relies on `EventLoop`.
//
// SIGHUP reads the policy file again. SIGTERM and SIGINT end the process and leave hardware as it
// is. With `deleteOnExit` every policy is deleted first, and the process ends when the rules client
// has confirmed that, or the time for it is up; a second signal ends the process at once.
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
   // Runs a function once from the event loop, after the caller has returned to it.
   using Later = std::function<void(std::function<void()>)>;
   // Makes the rules client that serves the agent's records. The server keeps the object, which may
   // be null, until it is destroyed; the agent outlives it.
   using MakeRulesClient = std::function<std::shared_ptr<void>(PolicyAgent&, const Later&)>;

   // `file` is the content of `options.policyFile`. Throws ServerError when the surroundings do not
   // let it serve, PluginError when the plug-in cannot be opened, ControlError for a socket path
   // that no socket can have.
   AgentServer(ServerOptions options, const Policy::PolicyFile& file,
               const MakeRulesClient& makeRulesClient);
   AgentServer(const AgentServer&) = delete;
   AgentServer& operator=(const AgentServer&) = delete;
   ~AgentServer();

   // Serves until a signal ends it. With `deleteOnExit`, returns whether every policy was deleted,
   // and names the others on standard error; otherwise returns true.
   bool run();

 private:
   class Implementation;
   std::unique_ptr<Implementation> implementation_;
};

} // namespace Postcard::Agent::Service
