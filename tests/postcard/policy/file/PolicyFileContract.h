// `brokenPromise`: checks the promises of `Policy.h` one by one, in the plainest way.

#pragma once

#include "postcard/policy/file/PolicyFile.h"

#include <string>

namespace Postcard::Policy::File {

// The first promise of the structs that `file` breaks, in words; empty when it keeps all of them.
std::string brokenPromise(const PolicyFile& file);

} // namespace Postcard::Policy::File
