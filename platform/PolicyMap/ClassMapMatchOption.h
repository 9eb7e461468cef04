// `ClassMapMatchOption`: by what kind of access group a class map matches, which selects the
// address family of the rules made from it.
#pragma once

#include "Kiv/Enumeration.h"

namespace PolicyMap {

enum class ClassMapMatchOption : U8 {
   matchIpAccessGroup = 0,
   matchIpv6AccessGroup = 1,
   matchMacAccessGroup = 2,
};
KIV_ENUM(ClassMapMatchOption, ClassMapMatchOptionInstance)

constexpr ClassMapMatchOption matchIpAccessGroup() {
   return ClassMapMatchOption::matchIpAccessGroup;
}
constexpr ClassMapMatchOption matchIpv6AccessGroup() {
   return ClassMapMatchOption::matchIpv6AccessGroup;
}
constexpr ClassMapMatchOption matchMacAccessGroup() {
   return ClassMapMatchOption::matchMacAccessGroup;
}

} // namespace PolicyMap
