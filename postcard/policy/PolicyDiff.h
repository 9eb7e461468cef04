// `samePolicyClasses`: whether two versions of a policy mean the same. Relies on the plain values
// of `Policy.h`.
#pragma once

#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

// Whether `a` and `b` make the same rules for `family` on the same hardware: equal scope, and equal
// classes with a filter of the family, in equal order of priority.
//
// Not compared: names and interfaces of the policies, filters of the other family, places in the
// file, and the order of what a record keeps sorted (prefixes, ranges, flag matches, ICMP types,
// protocols, actions). The order of the port entries of a protocol counts, because rules follow it.
bool samePolicyClasses(const Policy& a, const Policy& b, Family family);

} // namespace Postcard::Policy
