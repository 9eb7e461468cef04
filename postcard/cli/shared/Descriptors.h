// `requireDescriptors`: refuses to begin work for which the process may open too few files. Relies
// on POSIX.
#pragma once

#include <cstddef>

namespace Postcard::Cli {

// Returns when the process can open `count` more files at once, and leaves none of them open.
// Throws std::runtime_error that says how many there are and how to get more. Failing before the
// work begins keeps results whole; besides, the event loop ends the process without a message when
// it cannot open its own.
void requireDescriptors(std::size_t count);

} // namespace Postcard::Cli
