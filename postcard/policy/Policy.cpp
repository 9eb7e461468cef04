#include "postcard/policy/Policy.h"

namespace Postcard::Policy {

std::string_view familyName(Family family) {
   return family == Family::ipv4 ? "ipv4" : "ipv6";
}

const Filter* Class::filter(Family family) const {
   const std::optional<Filter>& chosen = family == Family::ipv4 ? ipv4 : ipv6;
   return chosen ? &*chosen : nullptr;
}

const std::vector<Name>& Policy::interfaces(Family family) const {
   return family == Family::ipv4 ? ipv4Interfaces : ipv6Interfaces;
}

} // namespace Postcard::Policy
