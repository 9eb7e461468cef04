// Compiled by tests, never linked. Without a macro it compiles; each macro plants one mistake in
// an attribute table, which must not compile.
#include "Kiv/Entity.h"
#include "Kiv/Value.h"

namespace {

#ifdef ENTITY_GAP
constexpr U16 second = 132;
#else
constexpr U16 second = 131;
#endif

class Lamp : public Kiv::Entity {
   KIV_ENTITY(Lamp, Kiv::Entity, "Lamp");
   KIV_ATTRIBUTE(130, U8, first);
   KIV_ATTRIBUTE(second, U8, other);
#ifdef TWICE
   KIV_ATTRIBUTE(131, U8, third);
#endif

 public:
#ifdef SETTER_WITHOUT_ROW
   void strayIs(U8 value) { Kiv::setAttribute<132>(*this, stray_, value); }
#endif
   U8 stray_ = 0;
};

#ifdef VALUE_GAP
constexpr U16 behind = 3;
#else
constexpr U16 behind = 2;
#endif

class Color : public Kiv::Value<Color> {
   KIV_VALUE(Color, "Color");
   KIV_FIELD(1, U8, red);
   KIV_FIELD(behind, U8, green);
};

// The setters are used, so that the control compiles them too.
[[maybe_unused]] void use(Lamp& lamp) {
   lamp.firstIs(1);
   lamp.otherIs(2);
}

} // namespace
