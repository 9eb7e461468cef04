// `showOnStandardOutput`: the show text of ACLs on standard output, with write errors reported.
// Relies on POSIX pipes and a thread that empties the pipe while the helper fills it.
#pragma once

#include "Pello/Types.h"

#include <functional>

namespace Postcard::Cli {

// Calls `show` with an open descriptor and copies to standard output what `show` writes there. The
// descriptor is closed when `show` returns. A helper ignores errors of the descriptor it writes to;
// errors of standard output are reported here instead. Throws std::system_error before `show` is
// called when standard output is closed or no pipe can be made, and after `show` has returned when
// standard output failed.
void showOnStandardOutput(const std::function<void(U32 fd)>& show);

} // namespace Postcard::Cli
