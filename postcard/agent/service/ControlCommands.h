// `answerRequest`: carries out one request of the control socket and makes its answer. Relies on
// the agent's core, and on what the process offers (`Process`). Needs no socket.
//
// The commands are "show", "status", "counters", "memory", "trace-levels", "reload" and "file". A
// request may hold "format", "text" or "json", where any other value counts as "text"; "file" knows
// one format (RunningFile.h). Further members:
//
//    "status"        "history": true adds the answers of the rules client
//                    "wait": N waits until all policies are programmed, or one fails, or N seconds
//    "trace-levels"  "levels" are set
//    "reload"        "allow-empty": true, "partial": true; see ReloadOptions
#pragma once

#include "postcard/agent/PolicyAgent.h"
#include "postcard/agent/service/ControlServer.h"
#include "postcard/agent/service/Reloader.h"
#include "postcard/rules-client/Counters.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Agent::Service {

// The room that the rules client has for all policies together, in entries.
struct Capacity {
   std::size_t used;
   std::size_t total;
};

// How waiting for the policies ended.
enum class WaitEnd : std::uint8_t { programmed, failed, late, refused };

// What the process offers beside the agent. No function is empty, except where it is said.
struct Process {
   Reload reload;
   std::function<const std::optional<RefusedReload>&()> refused;
   std::function<std::optional<Capacity>()> capacity; // absent: the rules client does not say
   // Calls the function once, at once or later: when all policies are programmed, when one has
   // failed, when the time is up, or, with `refused`, when too many wait already.
   std::function<void(std::chrono::milliseconds, std::function<void(WaitEnd)>)> wait;
   std::string policyFile; // its path, for the places of what the plug-in refuses
   // What stood in the file that the agent took over last. Valid until the next reload.
   std::function<std::string_view()> policyText;
   // What the rules client has counted; empty: it counts nothing.
   std::function<std::vector<RulesClient::AclCounters>()> counters = {};
};

// Answers one request line, given without its line end; ControlSocket.h documents the format of
// both. A malformed or unknown request is answered with exit code 2. Calls `respond` once, at once
// or, for "reload" and a "status" that waits, later. What takes long, the ACLs and the states of
// many policies, is left to `Answer::write`, which refers to `agent` and `process`; both must
// outlive the answer. Throws what the functions of `process` throw.
void answerRequest(std::string_view line, const PolicyAgent& agent, const Process& process,
                   const Respond& respond);

} // namespace Postcard::Agent::Service
