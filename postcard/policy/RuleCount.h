// How many rules a filter makes. Door: `ruleCount`. Relies on the plain values of `PolicyFile.h`.
// Hardware matches a port range as blocks of value and mask, and source blocks, destination blocks
// and TCP flags multiply: a file of a few lines can ask for more rules than any memory holds.

#pragma once

#include "postcard/policy/Policy.h"

#include <cstdint>

namespace Postcard::Policy {

// Counts stop here; rules are numbered with 32 bits.
constexpr std::uint64_t mostRules = std::uint64_t{1} << 32U;

// The least number of aligned blocks that cover the range.
std::uint64_t blockCount(const NumberRange& range);

// The rules of a filter for hardware that matches TCP flags or does not, at most `mostRules`. A
// filter that the library will refuse has some number too.
std::uint64_t ruleCount(const Filter& filter, bool tcpFlags);

} // namespace Postcard::Policy
