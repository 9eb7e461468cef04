#include "PostcardTelemetry/TypeModule.h"

#include "Kiv/Reflection.h"
#include "PostcardTelemetry/HwCapability.h"

KIV_DEFINE_ENTITY(PostcardTelemetry::HwCapability)

namespace PostcardTelemetry {

const Kiv::TypeModule& typeModule() {
   static const Kiv::TypeModule module{"PostcardTelemetry", {&HwCapability::kivTypeData()}};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace PostcardTelemetry
