// `policyAclTypesModule`: the list of this library's types. The library registers it with the type
// framework when it is loaded; naming the function makes a linker keep the library.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace OruPostcardTelemetry {

// The module, valid until the library is unloaded.
const Kiv::TypeModule& policyAclTypesModule();

} // namespace OruPostcardTelemetry
