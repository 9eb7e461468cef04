// `typeModule`: the list of this library's types, for the framework's registry. Relies on the
// registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace Classification {

// The module, valid until the library is unloaded. The library registers it when it is loaded;
// nobody has to call this. A call makes a linker keep the library.
const Kiv::TypeModule& typeModule();

} // namespace Classification
