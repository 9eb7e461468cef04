// The version word of the platform. A module that is loaded at run time carries the word of the
// platform it was built for; a host refuses one that differs, because tables of virtual operations
// and layouts of objects would not fit.
#pragma once

#include "Pello/Types.h"

namespace Kiv {

// Raised by every change of a virtual table or an object layout that a module can see.
inline constexpr U32 platformVersion = 1;

} // namespace Kiv
