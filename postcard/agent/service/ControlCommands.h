// `answerRequest`: carries out one request of the control socket and makes its answer. Relies on
// the agent's core, and needs no socket, so that tests call it directly.
//
// The commands are "show", "status", "memory", "trace-levels" and "reload". A request may hold
// "format", "text" or "json", where any other value counts as "text". "trace-levels" sets the
// levels in "levels" if the request has that member.
#pragma once

#include "postcard/agent/PolicyAgent.h"

#include <functional>
#include <string>
#include <string_view>

namespace Postcard::Agent::Service {

// Reads the policy file again, hands it to the agent, and returns how that ended.
using Reload = std::function<ReloadResult()>;

// Returns the whole answer to one request line, given without its line end; ControlSocket.h
// documents the format of both. A malformed or unknown request is answered with exit code 2. Throws
// std::system_error when there is no memory for the show text, and what `reload` throws.
std::string answerRequest(std::string_view line, const PolicyAgent& agent, const Reload& reload);

// The table that `postcard status` prints: a line per report, in the order given, with the time in
// UTC. Empty without reports.
std::string statusText(const std::vector<PolicyReport>& reports);

} // namespace Postcard::Agent::Service
