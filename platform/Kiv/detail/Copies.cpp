#include "Kiv/detail/Copies.h"

#include "Kiv/TypeData.h"

#include <algorithm>

namespace Kiv {

// Constants are compared as texts, the one form in which every type can be compared; a reference
// then counts by the key of its object.
bool canBecome(const Entity& entity, const Entity& other) {
   const TypeData& type = entity.typeData();
   return &type == &other.typeData() &&
          std::ranges::all_of(type.attributes, [&](const AttributeData& attribute) {
             return attribute.kind != AttributeKind::constant ||
                    attribute.text(ownerAddress(entity)) == attribute.text(ownerAddress(other));
          });
}

void Copies::add(const Entity& from, Entity& to, Link linking) {
   copyOf_.emplace(&from, &to);
   // Taking the first reference to an object that somebody has on the stack, and dropping it again,
   // would delete the object.
   pairs_.push_back(
         {&from, &to, linking, to.references() != 0 ? Pello::Ptr<Entity>{&to} : nullptr});
}

void Copies::link() const {
   for (const Pair& pair : pairs_) {
      pair.link(*pair.to, *pair.from, *this);
   }
}

} // namespace Kiv
