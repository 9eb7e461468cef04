// `ruleNameL4Port`: the names of rules that match layer-4 ports. Relies on `L4Port`.
#pragma once

#include "Kiv/String.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/L4Port.h"

namespace OruPostcardTelemetry {

// Returns `name-label-port`, the port in decimal, and traces it. `label` says which number it is:
// "SportData", "SportMask", "DportData" or "DportMask".
Kiv::String ruleNameL4Port(Pello::String name, Pello::String label, L4Port port);

} // namespace OruPostcardTelemetry
