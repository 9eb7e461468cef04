// The version word of the platform. A module that is loaded at run time carries the word of the
// platform that it was built for. A host refuses a module with another word, because the two would
// disagree about virtual tables and the layout of objects.
#pragma once

#include "Pello/Types.h"

namespace Kiv {

// Raise it with every change of a virtual table or an object layout that both host and module see.
// A new attribute is a data member, and so changes a layout.
inline constexpr U32 platformVersion = 3;

} // namespace Kiv
