// `ruleCount`: how many rules a filter makes, without making them. Relies on the plain values of
// `Policy.h`.
//
// Hardware matches a port range as blocks of value and mask. The numbers of source blocks,
// destination blocks and TCP-flag matches multiply, so a file of a few lines can ask for more rules
// than memory can hold. Therefore rules are counted before the helper makes them.
#pragma once

#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

// The greatest result of `ruleCount`. Rules are numbered with 32 bits, so no ACL holds more.
inline constexpr U64 mostRules = U64{1} << 32U;

// The number of rules that the helper makes of `filter`, at most `mostRules`. A rule that stands at
// two indexes, as equal blocks of overlapping ranges make it, counts twice, because it takes two
// hardware entries. `tcpFlags` says whether the hardware matches TCP flags; when it does not, flag
// matches do not multiply. Meaningless for a filter that the helper refuses. Takes time linear in
// the size of the filter.
U64 ruleCount(const Filter& filter, bool tcpFlags);

// The same of one protocol of a filter, and of one of its port entries.
U64 ruleCount(const ProtocolMatch& match, bool tcpFlags);
U64 ruleCount(const PortEntry& entry, const ProtocolMatch& match, bool tcpFlags);

// The number of rules, counted likewise, that the helper makes of all policies of `file` together.
// A policy counts only in the families in which the helper refuses none of its classes, because a
// refused policy is not programmed. May be greater than `mostRules`, but does not wrap: it is the
// sum of at most `mostRules` for each filter. Takes time linear in the size of the file.
U64 ruleCount(const PolicyFile& file);

// The least number of blocks of value and mask that cover `range`: 1 to 30. A single port and
// 0-65535 take one block, 1-65534 takes 30.
U64 blockCount(const NumberRange& range);
// The blocks of all ranges of a side, or 1 for a side without ranges, which is not compared.
U64 blockCount(const std::vector<NumberRange>& side);

} // namespace Postcard::Policy
