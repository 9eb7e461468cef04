// `classOfRule`: reads from the name of a rule which class the rule was made for. Relies on the way
// in which the helper names rules: nothing else in a rule tells its class.
//
// The helper names a rule CLASS-FAMILY-PROTOCOL and may append what the rule matches of ports and
// TCP flags, such as "web-ipv4-tcp-SportData-53-SportMask-65535". CLASS is a name from the policy
// file and may itself hold "-ipv4-" or "-ipv6-". The parts after the class never do, so the class
// ends at the last "-FAMILY-" of the name.
#pragma once

#include "postcard/policy/Policy.h"

#include <string_view>

namespace Postcard::Host {

// The name of the class that the rule named `rule` was made for, as a part of `rule` and valid as
// long as that text. `family` is the family of the rule's ACL. A name that the helper did not make,
// without "-FAMILY-", is returned whole.
std::string_view classOfRule(std::string_view rule, Policy::Family family);

} // namespace Postcard::Host
