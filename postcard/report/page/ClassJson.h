// `classesJson`: the classes of a policy as the page's script compares packets with them. Relies on
// plain policy values. Internal to this room.
#pragma once

#include "postcard/policy/Policy.h"

#include <nlohmann/json_fwd.hpp>

namespace Postcard::Report {

// The classes that take part in `family`, in the order of matching. The helper must have accepted
// the policy: at most one prefix per side, and no range of protocols. A class is
//    {"name", "line", "column", "actions", "dscp", "source", "destination", "sample", "protocols"}
// "actions" are the words of the policy file. "dscp" is what the class sets, "source" and
// "destination" are prefixes as text, "sample" is {"field", "data", "mask"} where it counts; each
// is null where there is none. A protocol is {"protocol", "ports", "flags"}, a port entry
// {"source": [[LOW, HIGH]], "destination": [[LOW, HIGH]]}, a flag match [FLAGS, MASK].
nlohmann::ordered_json classesJson(const Policy::Policy& policy, Policy::Family family);

} // namespace Postcard::Report
