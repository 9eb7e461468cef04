// `Finding`: one thing that is wrong with a policy file. Relies on `Location`.
#pragma once

#include "postcard/policy/Location.h"

#include <string>

namespace Postcard::Policy::File {

struct Finding {
   Location location; // line 0: the file as a whole

   // One line of UTF-8 without a full stop at its end. Names what was found and, where there is
   // something to choose from, what was expected.
   std::string message;
};

} // namespace Postcard::Policy::File
