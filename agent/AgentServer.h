// `AgentServer`: the agent as a process. An event loop (libuv) around a `PolicyAgent`: signals, the
// answer timer, the control socket, the service manager. One thread, no polling.
//
// SIGHUP reads the policy file again. SIGTERM and SIGINT end the process; with `deleteOnExit` after
// the rules client has taken back every policy, else with hardware left as it is.
#pragma once

#include "agent/PluginHost.h"
#include "agent/PolicyAgent.h"

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace Agent {

// The surroundings do not let the agent run: the socket, a signal, the event loop.
class ServerError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct ServerOptions {
   std::string policyFile; // path
   std::string socketPath;
   bool deleteOnExit = false;
   PolicyAgent::Options agent;
};

class AgentServer {
 public:
   // Runs a function from the event loop.
   using Later = std::function<void(std::function<void()>)>;
   // Makes the rules client that serves the agent's records. The object is kept until the server
   // goes.
   using MakeRulesClient = std::function<std::shared_ptr<void>(PolicyAgent&, const Later&)>;

   // `file` is what was read from `options.policyFile`. Throws ServerError, PluginError.
   AgentServer(ServerOptions options, PolicyFile file, const MakeRulesClient& makeRulesClient);
   AgentServer(const AgentServer&) = delete;
   AgentServer& operator=(const AgentServer&) = delete;
   ~AgentServer();

   // Serves until a signal ends it.
   void run();

 private:
   class Implementation;
   std::unique_ptr<Implementation> implementation_;
};

} // namespace Agent
