// The types of this library, for the framework's registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace PolicyMap {

const Kiv::TypeModule& typeModule();

} // namespace PolicyMap
