// `Kiv::String`: the name under which results of operations are text. Relies on Pello's string,
// which it is.
#pragma once

#include "Pello/String.h"

namespace Kiv {

using String = Pello::String;

} // namespace Kiv
