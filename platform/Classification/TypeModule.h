// The types of this library, for the framework's registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace Classification {

const Kiv::TypeModule& typeModule();

} // namespace Classification
