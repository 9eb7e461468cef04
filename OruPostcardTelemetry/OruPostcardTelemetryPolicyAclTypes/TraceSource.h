// `TypesTrace::traceSource`: the source that the data model's traces name. A file that traces says
// `using TypesTrace::traceSource;`, so that the headers of several sources can stand side by side.
#pragma once

#include "Ringlog/Trace.h"

namespace OruPostcardTelemetry::TypesTrace {

extern const Pello::TraceSource traceSource;

} // namespace OruPostcardTelemetry::TypesTrace
