// `AclType`: the address family an ACL matches. Relies on the enumeration support of the framework.
#pragma once

#include "Kiv/Enumeration.h"
#include "Pello/Types.h"

namespace Acl {

// Streams as the bare name. The numbers are those of `PolicyMap::matchIpAccessGroup` and
// `matchIpv6AccessGroup`, so that one converts to the other by its number.
enum class AclType : U8 {
   ipv4 = 0,
   ipv6 = 1,
};
// `AclTypeInstance(number)` is the enumerator of that number; it throws Kiv::RangeError for any
// other.
KIV_ENUM(AclType, AclTypeInstance)

} // namespace Acl
