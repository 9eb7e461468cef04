// Questions about the classes of a policy: `classesInOrder`, `actionOf`, `samples`, `sampleOf`.
// Relies on the plain values of `Policy.h`.
#pragma once

#include "postcard/policy/Policy.h"

#include <vector>

namespace Postcard::Policy {

// The classes that take part in `family`, in the order in which they match: ascending priority. The
// pointers are never null and stay valid as long as `policy.classes` is unchanged. Empty when no
// class takes part.
std::vector<const Class*> classesInOrder(const Policy& policy, Family family);

// The action of kind `kind`, or null when the class has none. Valid as long as `each.actions` is
// unchanged.
const Action* actionOf(const Class& each, ActionKind kind);

// Whether the class has at least one of the two sampling actions, `sample` and `sampleAll`.
bool samples(const Class& each);

// The sample match that the rules of the class carry in `family`, or null. It is null when the
// filter has none, and also when the class lacks the action `sample`: with `sampleAll` alone every
// packet is sampled, so the helper leaves the match out. The class must take part in `family`.
// Valid as long as the class is unchanged.
const SampleMatch* sampleOf(const Class& each, Family family);

} // namespace Postcard::Policy
