// `typeModule`: the types of this library, for the framework's registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace Orlix {

// Valid until the library is unloaded. Registering it is the caller's business.
const Kiv::TypeModule& typeModule();

} // namespace Orlix
