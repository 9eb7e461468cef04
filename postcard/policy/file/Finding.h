// `Finding`: one thing that is wrong with a policy file. Relies on `Location`.
#pragma once

#include "postcard/policy/Location.h"

#include <string>

namespace Postcard::Policy::File {

struct Finding {
   Location location;

   // One line without a full stop at its end. Names what was found and what was expected.
   std::string message;
};

} // namespace Postcard::Policy::File
