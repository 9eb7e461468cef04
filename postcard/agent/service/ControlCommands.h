// What the control socket's commands answer: `answerRequest`. Relies on the agent's core only, so
// that it can be tested without a socket.
#pragma once

#include "postcard/agent/PolicyAgent.h"

#include <functional>
#include <string>
#include <string_view>

namespace Postcard::Agent::Service {

// Reads the policy file again and makes the agent follow it.
using Reload = std::function<ReloadResult()>;

// Answers one request line; see ControlSocket.h for both formats. Whatever the line holds, there is
// an answer.
std::string answerRequest(std::string_view line, const PolicyAgent& agent, const Reload& reload);

// The table of `postcard status`, a line per policy and family.
std::string statusText(const std::vector<PolicyReport>& reports);

} // namespace Postcard::Agent::Service
