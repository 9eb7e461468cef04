// How the rules of the layer-4 expansion are named: `ruleNameL4Port`.
#pragma once

#include "Kiv/String.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/L4Port.h"

namespace OruPostcardTelemetry {

// Returns `name-label-port`, the port in decimal.
Kiv::String ruleNameL4Port(Pello::String name, Pello::String label, L4Port port);

} // namespace OruPostcardTelemetry
