#include "Kiv/Entity.h"

namespace Kiv {

// Defined here, so that the class's virtual table stands in one library.
Entity::~Entity() = default;

Pello::Publisher* Entity::publisher() const {
   return nullptr;
}

const void* ownerAddress(const Entity& entity) {
   // A cast to `void*` gives the address of the whole object.
   return dynamic_cast<const void*>(&entity);
}

} // namespace Kiv
