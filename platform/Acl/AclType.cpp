#include "Acl/AclType.h"

#include "Kiv/Reflection.h"

namespace Acl {

KIV_DEFINE_ENUM(AclType, "Acl::AclType", {0, "ipv4"}, {1, "ipv6"})

} // namespace Acl
