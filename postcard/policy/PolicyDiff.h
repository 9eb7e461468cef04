// What a new policy file changes about an old one: `samePolicyClasses`. Places in the file do not
// count, nor does the order in which equal things are written where the order has
// no meaning to the plug-in.
#pragma once

#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

// Whether both mean the same in `family`: the classes that take part, their order, filters and
// actions, and the policy's scope.
bool samePolicyClasses(const Policy& a, const Policy& b, Family family);

} // namespace Postcard::Policy
