// `printDifferences`: what differs between two policy files, for `postcard diff` and for a reload
// that is only tried. Relies on the rooms `changes` and `analysis`.
#pragma once

#include "postcard/cli/shared/Format.h"
#include "postcard/policy/file/PolicyFile.h"

namespace Postcard::Cli {

// Compiles both files, compares them and prints the differences in `format`. Returns the exit code:
// `exitDone` when nothing differs, `exitRefused` when something does, `exitUsage` for a file that
// cannot be used, and `exitEnvironment` when the helper module cannot be used. The reasons go to
// standard error. A process can do this once: it can set its feature toggles once only.
int printDifferences(const Policy::File::LoadResult& before, const Policy::File::LoadResult& after,
                     const Format& format);

} // namespace Postcard::Cli
