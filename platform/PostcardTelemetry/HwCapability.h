// `HwCapability`: what the forwarding hardware can match.
#pragma once

#include "Kiv/Entity.h"

namespace PostcardTelemetry {

class HwCapability : public Kiv::Entity {
   KIV_ENTITY(HwCapability, Kiv::Entity, "PostcardTelemetry::HwCapability");
   KIV_ATTRIBUTE(130, bool, tcpFlagsSupported); // rules may match TCP flags

 public:
   HwCapability() = default;
};

} // namespace PostcardTelemetry
