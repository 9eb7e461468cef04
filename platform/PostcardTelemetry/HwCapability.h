// `HwCapability`: what the forwarding hardware can match, as far as switches differ. The agent
// fills it in before it makes a helper. Relies on the entities of the framework.
#pragma once

#include "Kiv/Entity.h"

namespace PostcardTelemetry {

class HwCapability : public Kiv::Entity {
   KIV_ENTITY(HwCapability, Kiv::Entity, "PostcardTelemetry::HwCapability");
   // Whether rules may match TCP flags. If not, helpers make rules without them.
   KIV_ATTRIBUTE(130, bool, tcpFlagsSupported);

 public:
   // Hardware without any of these abilities.
   HwCapability() = default;
};

} // namespace PostcardTelemetry
