// `dump`: a policy file as text, so that tests compare printed state.

#pragma once

#include "postcard/policy/file/PolicyFile.h"

#include <string>

namespace Postcard::Policy::File {

// One line per policy, class, filter and protocol; locations as @LINE:COLUMN. What is absent is not
// printed.
std::string dump(const PolicyFile& file);

} // namespace Postcard::Policy::File
