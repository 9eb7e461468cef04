// `typeModule`: the types of this library, for the framework's registry. Relies on that registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace Orlix {

// The types of this library. It registers them itself when it is loaded, so this function is for
// those who want the list. Valid until the library is unloaded.
const Kiv::TypeModule& typeModule();

} // namespace Orlix
