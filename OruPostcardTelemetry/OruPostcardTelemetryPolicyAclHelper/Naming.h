// The names of ACL configurations and rules (`aclName`, `ruleName`), the address family in them
// (`matchOptionToAclType`), and the messages about policies (`policyMessage`, `NoRules`). Relies on
// the policy-map library's keys.
#pragma once

#include "Acl/AclType.h"
#include "Kiv/String.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/PolicyMapSmKey.h"

#include <string_view>

namespace OruPostcardTelemetry {

// Returns the ACL type with the option's number. `option` must be the IPv4 or the IPv6 access
// group; the process ends for any other.
Acl::AclType matchOptionToAclType(PolicyMap::ClassMapMatchOption option);

// Returns `name-type`; the policy p1 in IPv4 is p1-ipv4. It is the key of the ACL configuration.
Pello::String aclName(Pello::String name, Acl::AclType aclType);
// The same for a class; the names of the class's rules begin with it.
Pello::String ruleName(Pello::String name, Acl::AclType aclType);

// Returns "`text` `policy` Match Option : `number`", for the error about a policy that exists and
// should not, or the reverse. `text` must end in "Policy :".
Kiv::String policyMessage(std::string_view text, const PolicyMap::PolicyMapSmKey& key,
                          PolicyMap::ClassMapMatchOption matchOption);

// The message that a policy has no rules. Operations return it to one another as their status, so
// its writers and its reader share the text.
struct NoRules {
   static constexpr std::string_view text = "No rules configured in policy";

   // Returns "No rules configured in policy  `name`": `text` ends in a blank here, and one follows.
   static Kiv::String message(std::string_view name);
   // The same with one blank.
   static Kiv::String commitMessage(std::string_view name);
   // Whether `status` contains `text` anywhere. A class that derives from the helper may return
   // more around it.
   static bool isIn(const Kiv::String& status) { return status.contains(text); }
};

} // namespace OruPostcardTelemetry
