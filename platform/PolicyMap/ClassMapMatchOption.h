// `ClassMapMatchOption`: the kind of access group by which a class map matches. The kind selects
// the address family of the rules that are made from the class map. Relies on the enumeration
// support of the framework.
#pragma once

#include "Kiv/Enumeration.h"

namespace PolicyMap {

// The numbers of the IPv4 and the IPv6 option are those of `Acl::AclType`. Messages for operators
// show the number.
enum class ClassMapMatchOption : U8 {
   matchIpAccessGroup = 0,
   matchIpv6AccessGroup = 1,
   matchMacAccessGroup = 2, // has no ACL type; helpers for IP refuse it
};
KIV_ENUM(ClassMapMatchOption, ClassMapMatchOptionInstance)

// The enumerators as functions, the form in which agents and assertion texts name them.
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
