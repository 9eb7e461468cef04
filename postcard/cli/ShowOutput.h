// `showOnStandardOutput`: the show text of ACLs on standard output, with errors told. Relies on
// POSIX.
#pragma once

#include "Pello/Types.h"

#include <functional>

namespace Postcard::Cli {

// Calls `show` with an open descriptor, and passes on to standard output what it writes there. The
// show command of a helper ignores write errors; here they are not lost. Throws std::system_error
// when there is no descriptor to be had, and, after `show` has returned, when standard output
// failed.
void showOnStandardOutput(const std::function<void(U32 fd)>& show);

} // namespace Postcard::Cli
