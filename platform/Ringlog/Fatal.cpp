// A failed assertion leaves its line in the ring as well: `recordFatal`, hung into the assertion
// hook when this library is loaded.
#include "Pello/Assert.h"
#include "Ringlog/Trace.h"

namespace Ringlog {

namespace {

const Pello::TraceSource traceSource{"Ringlog"};

void assertionHook(const Pello::AssertionSite& /*site*/, std::string_view line) {
   recordFatal(line);
}

[[gnu::constructor]] void hangIn() {
   Pello::assertionHookIs(&assertionHook);
}

} // namespace

void recordFatal(std::string_view line) {
   RINGLOG_TRACE(0, "{}", line);
}

} // namespace Ringlog
