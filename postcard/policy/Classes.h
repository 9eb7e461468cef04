// What is asked of the classes of a policy: `classesInOrder`, `actionOf`, `samples`, `sampleOf`.
// Relies on the plain values of `Policy.h`.
#pragma once

#include "postcard/policy/Policy.h"

#include <vector>

namespace Postcard::Policy {

// The classes that take part in `family`, in the order in which they match: ascending priority. The
// pointers are never null and stay valid as long as `policy.classes` is unchanged.
std::vector<const Class*> classesInOrder(const Policy& policy, Family family);

// The action of this kind, or null when the class has none. Valid as long as `each.actions` is
// unchanged.
const Action* actionOf(const Class& each, ActionKind kind);

// Whether the class has one of the two sampling actions, `sample` and `sampleAll`.
bool samples(const Class& each);

// The sample match that counts for the class in `family`, or null when none does: a sample match
// counts only together with the action `sample`. The class must take part in `family`.
const SampleMatch* sampleOf(const Class& each, Family family);

} // namespace Postcard::Policy
