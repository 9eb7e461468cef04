// `statusText` and `statusJson`: what `postcard status` prints. Relies on the agent's reports, and
// on what the process knows beside them.
#pragma once

#include "postcard/agent/PolicyAgent.h"
#include "postcard/agent/service/ControlCommands.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace Postcard::Agent::Service {

// A table with a header and a line per report, in the order of the reports, with times in UTC. The
// places of what the plug-in cannot express follow the line, and with `withHistory` the latest
// answers of the rules client. Below the table stand the room of the rules client, if it tells, and
// the latest reload, if it was refused.
std::string statusText(const PolicyAgent& agent, const Process& process, bool withHistory);

// The same as one JSON document, always with the history.
std::string statusJson(const PolicyAgent& agent, const Process& process);

// The reasons of a refusal as a list of objects with "file", "line", "column", "code" and "text";
// when the plug-in refuses a policy, "policy" and "family" stand before the code, and "classes" (as
// `Report::json` writes refused keys) behind the text. "line" and "column" are null when the reason
// is not about a place.
nlohmann::ordered_json findingsJson(const std::vector<ReloadFinding>& findings);

} // namespace Postcard::Agent::Service
