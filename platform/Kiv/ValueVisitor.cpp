#include "Kiv/ValueVisitor.h"

#include "Kiv/Entity.h"
#include "Kiv/TypeData.h"

#include <algorithm>

namespace Kiv {

// Defined here, so that the class's virtual table stands in one library.
ValueVisitor::~ValueVisitor() = default;

void visitEntity(const Entity& entity, ValueVisitor& visitor) {
   visitor.beginObject();
   for (const AttributeData& attribute : entity.typeData().attributes) {
      visitor.member(attribute.name);
      attribute.visit(ownerAddress(entity), visitor);
   }
   visitor.endObject();
}

void visitEntityKey(const Entity& entity, ValueVisitor& visitor) {
   const TypeData& type = entity.typeData();
   const auto key =
         std::ranges::find(type.attributes, AttributeKind::constant, &AttributeData::kind);
   if (key == type.attributes.end()) {
      visitor.text(type.name);
   } else {
      key->visit(ownerAddress(entity), visitor);
   }
}

} // namespace Kiv
