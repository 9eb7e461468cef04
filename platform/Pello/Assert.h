// `assertionFailed`: ends the process because a contract is broken. Relies on nothing. A record of
// the process, such as the ring trace, receives the line through `assertionHookIs`.
//
// The line is `File:Line: Function: Assertion 'expression' failed: message`; without a message it
// ends after "failed". The caller gives file and function as text, because these lines are part of
// the plug-in's interface, while `__FILE__` and `__func__` differ between compilers and trees.
#pragma once

#include "Pello/Types.h"

#include <string>
#include <string_view>

namespace Pello {

// The place of an assertion, as the line shows it.
struct AssertionSite {
   std::string_view file;
   U32 line;
   std::string_view function; // with or without its parameters
};

// Hands the line to the hook, writes it to standard error with a line end, and calls `std::abort`.
// Without a `message` (empty) the line has none. May be called from any thread.
[[noreturn]] void assertionFailed(const AssertionSite& site, std::string_view expression,
                                  std::string_view message = {});

// Receives the finished line, without a line end, before standard error does. Both arguments are
// valid during the call only. The heap may be damaged when the hook runs. A hook that fails an
// assertion itself is not called again; standard error then gets both lines.
using AssertionHook = void (*)(const AssertionSite& site, std::string_view line);

// Sets the hook of the process in place of the one before; null for none. The hook is called for
// the first failed assertion only. May be called from any thread.
void assertionHookIs(AssertionHook hook) noexcept;

} // namespace Pello
