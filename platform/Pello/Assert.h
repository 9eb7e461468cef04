// `assertionFailed`: how a broken contract ends the process. Relies on nothing; whoever keeps a
// record of the process (the ring trace) hangs itself in with `assertionHookIs`.
//
// The line written is `File:Line: Function: Assertion 'expression' failed: message`, without the
// colon and message when there is none. File and function are given by the caller where the text
// is part of an interface, because what a compiler makes of them is not.
#pragma once

#include "Pello/Types.h"

#include <string>
#include <string_view>

namespace Pello {

struct AssertionSite {
   std::string_view file;
   U32 line;
   std::string_view function;
};

// Hands the line to the hook, writes it to standard error, and aborts.
[[noreturn]] void assertionFailed(const AssertionSite& site, std::string_view expression,
                                  std::string_view message = {});

// Called once with the finished line (no line end) before the process ends; null for none. The
// hook must not assume that the heap is in order.
using AssertionHook = void (*)(const AssertionSite& site, std::string_view line);
void assertionHookIs(AssertionHook hook) noexcept;

} // namespace Pello
