// `writeOrigin`: the origin of a rule as JSON, the same in every document that has one. Relies on
// `RuleOrigin`.
#pragma once

#include "Kiv/ValueVisitor.h"
#include "postcard/host/RuleOrigin.h"

namespace Postcard::Report {

// Writes the value of "origin" in the rules of ACLs and in explanations:
//
//    {"line", "column", "protocol", "portEntry", "sourcePorts", "destinationPorts",
//     "tcpFlags": {"flags", "mask"}}
//
// Line and column are those of the port entry, else of the protocol, else of the class. "portEntry"
// counts from 1; ports are texts "LOW-HIGH". What the rule does not compare is null.
void writeOrigin(const Host::RuleOrigin& origin, Kiv::ValueVisitor& writer);

} // namespace Postcard::Report
