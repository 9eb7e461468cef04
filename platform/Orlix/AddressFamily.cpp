#include "Orlix/AddressFamily.h"

#include "Kiv/Reflection.h"

namespace Orlix {

KIV_DEFINE_ENUM(AddressFamily, "Orlix::AddressFamily", {0, "none"}, {4, "ipv4"}, {6, "ipv6"})

} // namespace Orlix
