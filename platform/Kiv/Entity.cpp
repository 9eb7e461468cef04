#include "Kiv/Entity.h"

namespace Kiv {

Entity::~Entity() = default;

Pello::Publisher* Entity::publisher() const {
   return nullptr;
}

const void* ownerAddress(const Entity& entity) {
   return dynamic_cast<const void*>(&entity);
}

} // namespace Kiv
