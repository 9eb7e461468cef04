#include "Orlix/TypeModule.h"

#include "Orlix/AddressFamily.h"
#include "Orlix/DscpValue.h"
#include "Orlix/IntfId.h"
#include "Orlix/IpGenPrefix.h"

namespace Orlix {

// Made at the first call, because the library may be registered before its static objects are
// initialised.
const Kiv::TypeModule& typeModule() {
   static const Kiv::TypeModule module{"Orlix",
                                       {&kivTypeData(std::type_identity<AddressFamily>{}),
                                        &DscpValue::kivTypeData(), &IntfId::kivTypeData(),
                                        &IpGenPrefix::kivTypeData()}};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace Orlix
