// `explainJsonSchema`: the version of the JSON documents of `postcard explain`. Both kinds share
// it, about single packets (`Explanation.h`) and about a capture (`CaptureTotals.h`), because a
// program that reads one of them asks for it by the same command. Relies on nothing.
#pragma once

namespace Postcard::Report {

// Rises when a key of either document changes its meaning or disappears.
inline constexpr int explainJsonSchema = 1;

} // namespace Postcard::Report
