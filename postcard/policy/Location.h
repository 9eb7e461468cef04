// `Location`: a place in a policy file. Relies on the fixed-width integers only.
#pragma once

#include "Pello/Types.h"

#include <compare>

namespace Postcard::Policy {

// Values that a program makes itself keep the default, line 0 and column 0.
struct Location {
   U32 line = 0;   // from 1 on; 0 means the file as a whole, such as one that could not be read
   U32 column = 0; // from 1 on, in characters rather than bytes; 0 when the line is 0

   // In the order of the file; the file as a whole comes first.
   friend auto operator<=>(const Location&, const Location&) = default;
};

} // namespace Postcard::Policy
