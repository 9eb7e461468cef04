#include "Acl/TypeModule.h"

#include "Acl/AclType.h"

namespace Acl {

const Kiv::TypeModule& typeModule() {
   static const Kiv::TypeModule module{"Acl", {&kivTypeData(std::type_identity<AclType>{})}};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace Acl
