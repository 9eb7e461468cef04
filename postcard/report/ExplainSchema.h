// `explainJsonSchema`: the version of the documents of `postcard explain`, whether they are about
// single packets (`Explanation.h`) or about a capture (`CaptureTotals.h`).
#pragma once

namespace Postcard::Report {

// Rises when a key of either document changes its meaning or disappears.
inline constexpr int explainJsonSchema = 1;

} // namespace Postcard::Report
