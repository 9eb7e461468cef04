// `describe`: the descriptor of a call site, in the bytes of the ring's layout.
#pragma once

#include "Pello/TextTrace.h"
#include "Ringlog/detail/Codec.h"

#include <cstddef>
#include <span>
#include <vector>

namespace Ringlog::Detail {

// The descriptor numbered `descriptor` of a place that traces arguments of these kinds. Texts are
// cut to `longestText` bytes.
std::vector<std::byte> describe(const Pello::TracePoint& point, U32 descriptor,
                                std::span<const ArgumentKind> kinds);

} // namespace Ringlog::Detail
