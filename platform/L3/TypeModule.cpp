#include "L3/TypeModule.h"

#include "L3/VrfName.h"

namespace L3 {

const Kiv::TypeModule& typeModule() {
   static const Kiv::TypeModule module{"L3", {&VrfName::kivTypeData()}};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace L3
