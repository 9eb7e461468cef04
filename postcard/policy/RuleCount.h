// `ruleCount`: how many rules a filter makes, without making them. Relies on the plain values of
// `Policy.h`.
//
// Hardware matches a port range as blocks of value and mask, and the numbers of source blocks,
// destination blocks and TCP-flag matches multiply: a file of a few lines can ask for more rules
// than any memory holds. So they are counted before the helper makes them.
#pragma once

#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

// Counts stop here; rules are numbered with 32 bits.
inline constexpr U64 mostRules = U64{1} << 32U;

// The rules that the helper makes of `filter`, at most `mostRules`. `tcpFlags` says whether the
// hardware matches TCP flags; where it does not, flag matches do not multiply. Meaningless for a
// filter that the helper refuses. Takes time linear in the size of the filter.
U64 ruleCount(const Filter& filter, bool tcpFlags);

// The least number of blocks of value and mask that cover `range`: 1 to 30.
U64 blockCount(const NumberRange& range);

} // namespace Postcard::Policy
