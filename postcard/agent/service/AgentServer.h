// `AgentServer`: the agent as a process, that is, a `PolicyAgent` with an event loop, signals, the
// control socket and the service manager. One thread, no polling. Relies on `EventLoop`.
//
// SIGHUP reads the policy file again. SIGTERM and SIGINT end the process and leave the hardware as
// it is. With `deleteOnExit` every policy is deleted first; the process ends when the rules client
// has confirmed all deletions, or when `deleteTime` is up. A second signal ends the process at
// once.
#pragma once

#include "postcard/agent/PolicyAgent.h"
#include "postcard/agent/service/ControlCommands.h"
#include "postcard/agent/service/ControlServer.h"
#include "postcard/host/PluginHost.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Postcard::Agent::Service {

struct ServerOptions {
   std::string policyFile;                       // path of the file that a reload reads
   std::string policyText;                       // what stood in it when the agent is started
   std::string socketPath;                       // of the control socket; see `defaultSocketPath`
   bool deleteOnExit = false;                    // delete every policy before the end
   std::chrono::milliseconds deleteTime{30'000}; // for `deleteOnExit`, all policies together
   PolicyAgent::Options agent;
   ControlLimits control;
   // For the start, and for reloads by SIGHUP; a request on the socket brings its own.
   ReloadOptions reload;
   std::chrono::milliseconds stillTime{100};    // see `Reloader`
   std::chrono::milliseconds reloadTime{5'000}; // in which the file must come to a standstill
   // Descriptors of the rules client, and what runs on the event loop when one is readable. They
   // must stay open until the server is destroyed.
   std::vector<std::pair<int, std::function<void()>>> watched;
   // What the rules client has counted; empty: it counts nothing.
   std::function<std::vector<RulesClient::AclCounters>()> counters;
   // What room the rules client has; empty: nobody knows.
   std::function<std::optional<Capacity>()> capacity;
};

// The helper refuses policies of the file that the agent is started with; the text names them, a
// line each.
class RefusedStart : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class AgentServer {
 public:
   // Runs a function once from the event loop, after the caller has returned to it. Valid as long
   // as the server is.
   using Later = std::function<void(std::function<void()>)>;
   // Makes the rules client that serves the agent's records. Called once, in the constructor. The
   // server keeps the returned object until its own end, and destroys it before the agent. Null:
   // somebody else keeps the rules client.
   using MakeRulesClient = std::function<std::shared_ptr<void>(PolicyAgent&, const Later&)>;

   // Opens the plug-in, listens at the control socket and catches the signals; takes no step of a
   // policy before `run`. `file` must be the content of `options.policyFile`, and its feature
   // toggles must be in force already; it is copied. Throws RefusedStart when the helper refuses a
   // policy, unless `options.reload.partial` is set. Throws PluginError when the plug-in cannot be
   // used, ControlError when the socket path is too long or empty, ServerError when the socket, a
   // signal or the event loop cannot be had, and what `makeRulesClient` throws.
   AgentServer(ServerOptions options, const Policy::PolicyFile& file,
               const MakeRulesClient& makeRulesClient);
   AgentServer(const AgentServer&) = delete;
   AgentServer& operator=(const AgentServer&) = delete;
   ~AgentServer();

   // Programs the policies and serves until a signal ends it. Call it once. With `deleteOnExit`,
   // returns whether every policy was deleted, and names the others on standard error. Without it,
   // returns true.
   bool run();

 private:
   class Implementation;
   std::unique_ptr<Implementation> implementation_;
};

} // namespace Postcard::Agent::Service
