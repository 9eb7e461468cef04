// What a new policy file changes about an old one: `samePolicyClasses`, `sameInterfaces`. Places in
// the file do not count, nor does the order in which equal things are written where the order has
// no meaning to the plug-in.
#pragma once

#include "agent/PolicyFile.h"

#include <string>
#include <vector>

namespace Agent {

// Whether both mean the same in `family`: the classes that take part, their order, filters and
// actions, and the policy's scope.
bool samePolicyClasses(const Policy& a, const Policy& b, Family family);

// The names that `to` has and `from` has not, in the order of `to`.
std::vector<std::string> namesAdded(const std::vector<Name>& from, const std::vector<Name>& to);

} // namespace Agent
