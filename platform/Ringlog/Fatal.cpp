// Writes the line of a failed assertion into the ring: `recordFatal`, which becomes the assertion
// hook of Pello when this library is loaded. A hook is needed because Pello lies below this library
// and cannot call it.
#include "Pello/Assert.h"
#include "Ringlog/Trace.h"

namespace Ringlog {

namespace {

const Pello::TraceSource traceSource{"Ringlog"};

void assertionHook(const Pello::AssertionSite& /*site*/, std::string_view line) {
   recordFatal(line);
}

// Run by the loader, so that no program has to remember to install the hook.
[[gnu::constructor]] void hangIn() {
   Pello::assertionHookIs(&assertionHook);
}

} // namespace

void recordFatal(std::string_view line) {
   RINGLOG_TRACE(0, "{}", line);
}

} // namespace Ringlog
