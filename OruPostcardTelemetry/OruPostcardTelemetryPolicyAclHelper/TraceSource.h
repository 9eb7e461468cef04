// `HelperTrace::traceSource`: the source that the helper's traces name. A file that traces says
// `using HelperTrace::traceSource;`, so that the headers of several sources can stand side by side.
#pragma once

#include "Ringlog/Trace.h"

namespace OruPostcardTelemetry::HelperTrace {

extern const Pello::TraceSource traceSource;

} // namespace OruPostcardTelemetry::HelperTrace
