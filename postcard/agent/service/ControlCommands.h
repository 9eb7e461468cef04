// `answerRequest`: what the agent answers to a request line of the control socket. Relies on the
// agent's core, and needs no socket, so that tests call it directly.
#pragma once

#include "postcard/agent/PolicyAgent.h"

#include <functional>
#include <string>
#include <string_view>

namespace Postcard::Agent::Service {

// Reads the policy file again, makes the agent follow it, and returns how that ended.
using Reload = std::function<ReloadResult()>;

// Returns the answer to one request line; ControlSocket.h documents the format of both. A malformed
// or unknown request is answered with exit code 2. Throws only what the agent or `reload` throws.
std::string answerRequest(std::string_view line, const PolicyAgent& agent, const Reload& reload);

// The table of `postcard status`, a line per policy and family.
std::string statusText(const std::vector<PolicyReport>& reports);

} // namespace Postcard::Agent::Service
