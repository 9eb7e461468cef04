#include "Kiv/Entity.h"

namespace Kiv {

Entity::~Entity() = default;

Pello::Publisher* Entity::publisher() const {
   return nullptr;
}

} // namespace Kiv
