// The data model's trace source; every file here that traces includes it.
#pragma once

#include "Ringlog/Trace.h"

namespace OruPostcardTelemetry {

namespace TypesTrace {
extern const Pello::TraceSource traceSource;
} // namespace TypesTrace

using TypesTrace::traceSource;

} // namespace OruPostcardTelemetry
