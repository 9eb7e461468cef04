// A small library of types, built twice, so that a process can load two copies of it.
#include "Kiv/Reflection.h"

namespace Twin {

enum class Side : U8 { left = 0, right = 1 };
KIV_ENUM(Side, SideInstance)

class Shoe : public Kiv::Entity {
   KIV_ENTITY(Shoe, Kiv::Entity, "Twin::Shoe");
   KIV_CONSTANT(130, Side, side);

 public:
   explicit Shoe(Side side) : side_{side} {}
};

KIV_DEFINE_ENUM(Side, "Twin::Side", {0, "left"}, {1, "right"})

} // namespace Twin

KIV_DEFINE_ENTITY(Twin::Shoe)

namespace Twin {

const Kiv::TypeModule& typeModule() {
   static const Kiv::TypeModule module{
         "Twin", {&Shoe::kivTypeData(), &kivTypeData(std::type_identity<Side>{})}};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace Twin
