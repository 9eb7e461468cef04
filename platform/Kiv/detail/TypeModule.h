// `typeModule`: the framework's own types (numbers, booleans, text), for its registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace Kiv {

// Registered when this library is loaded. Valid until the library is unloaded.
const TypeModule& typeModule();

} // namespace Kiv
