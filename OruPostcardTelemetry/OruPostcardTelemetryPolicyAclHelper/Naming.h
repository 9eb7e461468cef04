// How ACL configurations and rules are named: `aclName`, `ruleName`, `matchOptionToAclType`, and
// the message about a policy that is not where it should be.
#pragma once

#include "Acl/AclType.h"
#include "Kiv/String.h"
#include "PolicyMap/ClassMapMatchOption.h"
#include "PolicyMap/PolicyMapSmKey.h"

#include <string_view>

namespace OruPostcardTelemetry {

// The ACL type of the option's number. Ends the process for an option that is not an IPv4 or IPv6
// access group.
Acl::AclType matchOptionToAclType(PolicyMap::ClassMapMatchOption option);

// `name-type`: the policy p1 in IPv4 is p1-ipv4.
Pello::String aclName(Pello::String name, Acl::AclType aclType);
// The same for a class and its rules.
Pello::String ruleName(Pello::String name, Acl::AclType aclType);

// `text policy Match Option : number`, where `text` ends in "Policy :".
Kiv::String policyMessage(std::string_view text, const PolicyMap::PolicyMapSmKey& key,
                          PolicyMap::ClassMapMatchOption matchOption);

} // namespace OruPostcardTelemetry
