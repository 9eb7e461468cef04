// The data model's types, for the framework's registry, where they stand from the moment this
// library is loaded.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace OruPostcardTelemetry {

const Kiv::TypeModule& policyAclTypesModule();

} // namespace OruPostcardTelemetry
