// `samePolicyClasses`: whether a new version of a policy needs new rules. Relies on the plain
// values of `Policy.h`.
#pragma once

#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

// Whether the scopes of `a` and `b` are equal, and the classes that take part in `family` are equal
// one by one: priority, name, actions, filter. If so, both make the same rules on the same hardware
// under the same feature toggles. If not, they may still make the same rules: for example, a new
// class for the other family alone changes the priorities of the classes behind it.
//
// Not compared: names and interfaces of the policies, filters of the other family, places in the
// file, and the order of what a record keeps sorted (prefixes, ranges, flag matches, ICMP types,
// protocols, actions). The order of the port entries of a protocol counts, because rules follow it.
bool samePolicyClasses(const Policy& a, const Policy& b, Family family);

} // namespace Postcard::Policy
