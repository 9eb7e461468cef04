// The types of this library, for the framework's registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace PostcardTelemetry {

const Kiv::TypeModule& typeModule();

} // namespace PostcardTelemetry
