// The framework's own types (numbers, booleans, text), for its registry.
#pragma once

#include "Kiv/TypeRegistry.h"

namespace Kiv {

const TypeModule& typeModule();

} // namespace Kiv
