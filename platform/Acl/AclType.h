// `AclType`: the address family an ACL matches. Relies on the enumeration support of the framework.
#pragma once

#include "Kiv/Enumeration.h"
#include "Pello/Types.h"

namespace Acl {

// The numbers are those of the match options of a policy map, so that one converts to the other.
enum class AclType : U8 {
   ipv4 = 0,
   ipv6 = 1,
};
KIV_ENUM(AclType, AclTypeInstance)

} // namespace Acl
