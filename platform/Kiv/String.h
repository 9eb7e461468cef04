// The framework's name for text: results of operations and everything that is printed.
#pragma once

#include "Pello/String.h"

namespace Kiv {

using String = Pello::String;

} // namespace Kiv
