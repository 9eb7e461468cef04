// `explainPackets`: what happens to single packets, class by class. Relies on `ExplainedAcl`.
#pragma once

#include "postcard/report/ExplainAcl.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace Postcard::Report {

// For people.
std::string explainPacketsText(std::vector<ExplainedAcl>& acls,
                               const std::vector<Packets::Packet>& packets);

// For programs: a list of {"packet", "acls"}; a packet that matches no rule has null for "rule" and
// "class". "notReached" are the classes behind "class" that would have the packet without it.
nlohmann::ordered_json explainPacketsJson(std::vector<ExplainedAcl>& acls,
                                          const std::vector<Packets::Packet>& packets);

} // namespace Postcard::Report
