// The types of this library, for the framework's registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace TrafficPolicy {

const Kiv::TypeModule& typeModule();

} // namespace TrafficPolicy
