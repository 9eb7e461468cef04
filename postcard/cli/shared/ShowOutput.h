// `showOnStandardOutput`: prints the helper's show text on standard output and reports write
// errors, which the helper itself ignores. Relies on a POSIX pipe, which the helper fills, and on a
// thread that copies it to standard output.
#pragma once

#include "Pello/Types.h"

#include <functional>

namespace Postcard::Cli {

// Calls `show` with an open descriptor and copies to standard output what `show` writes to it. The
// descriptor is closed when `show` has returned, so `show` must not keep it. Throws
// std::system_error: before `show` is called, when standard output is closed or no pipe can be
// made; after `show` has returned, when standard output could not be written. Text in the buffer of
// std::cout is not flushed before.
void showOnStandardOutput(const std::function<void(U32 fd)>& show);

} // namespace Postcard::Cli
