// `refusedClasses`: which classes of a policy the helper refuses, and where in the file the reasons
// stand. Relies on the plain values of `Policy.h`.
//
// The helper's own message names neither a class nor a place, and its walk ends at the first class
// that it refuses. Whoever shows that message adds what this function knows. The two must agree:
// a test compares them for every key.
#pragma once

#include "postcard/policy/Policy.h"

#include <string>
#include <vector>

namespace Postcard::Policy {

// Something in a class that rules cannot express.
struct UnsupportedKey {
   // The path of the key, from the filter of the family or from the class: "fragments",
   // "protocols/icmp-types", "protocols/ports/source-set", "actions/drop". For "source" and
   // "destination" it means more than one prefix.
   std::string path;
   Location location; // of the value, or of the first one that is too much
};

// A class that the helper refuses.
struct RefusedClass {
   const Class* item = nullptr; // never null; valid as long as the policy is unchanged
   std::vector<UnsupportedKey>
         keys; // never empty; matches before actions, as the helper checks them
};

// The classes of `policy` that the helper refuses in `family` on such hardware, in the order in
// which they match. The first one is the one whose message the helper returns. Each is listed with
// all that is unsupported in it, although the helper's message leaves out the actions of a class
// with unsupported matches, and the protocols behind the first unsupported one. Empty exactly when
// the helper makes rules of all classes of the family. The policy must keep the promises of
// `Policy.h`.
std::vector<RefusedClass> refusedClasses(const Policy& policy, Family family,
                                         const Hardware& hardware);

} // namespace Postcard::Policy
