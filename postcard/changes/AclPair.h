// `aclPairs`: the policies and families of two files, paired. Relies on plain policy values.
#pragma once

#include "postcard/policy/Policy.h"

#include <string>
#include <vector>

namespace Postcard::Changes {

// A policy in one family, in both files or in one. A file has it when it names interfaces of that
// family, whether classes take part or not. The pointers refer into the files.
struct AclPair {
   std::string policy; // its name
   Policy::Family family = Policy::Family::ipv4;
   const Policy::Policy* before = nullptr; // null: the earlier file has none; never both null
   const Policy::Policy* after = nullptr;  // null: the later file has none
};

// The pairs in the order in which an agent works on them: those that go, by name and family; then
// those of the later file, in its order, IPv4 before IPv6.
std::vector<AclPair> aclPairs(const Policy::PolicyFile& before, const Policy::PolicyFile& after);

// Whether both files have the policy in the family, and the helper makes the same rules of both
// versions. False may also be said of versions that make the same rules: `samePolicyClasses` says
// when.
bool sameRules(const AclPair& pair, const Policy::Hardware& before, const Policy::Hardware& after);

// The names of interfaces that only one of two policies has in `family`, in the order of the policy
// that has them. Null stands for a policy without interfaces.
std::vector<std::string> interfacesOnlyIn(const Policy::Policy* policy, const Policy::Policy* other,
                                          Policy::Family family);

} // namespace Postcard::Changes
