// The helper's trace source; every file here that traces includes it.
#pragma once

#include "Ringlog/Trace.h"

namespace OruPostcardTelemetry {

namespace HelperTrace {
extern const Pello::TraceSource traceSource;
} // namespace HelperTrace

using HelperTrace::traceSource;

} // namespace OruPostcardTelemetry
