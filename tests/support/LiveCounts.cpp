#include "support/LiveCounts.h"

#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"

namespace TestSupport {

LiveCounts LiveCounts::taken() {
   LiveCounts counts;
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      if (type->tracker != nullptr) {
         counts.byType_[std::string{type->name}] = type->tracker->live();
      }
   }
   return counts;
}

std::string LiveCounts::differences(const LiveCounts& before) const {
   std::string lines;
   for (const auto& [type, live] : byType_) {
      const auto found = before.byType_.find(type);
      const U64 earlier = found == before.byType_.end() ? 0 : found->second;
      if (live > earlier) {
         lines += type + ": " + std::to_string(live - earlier) + " objects more than before\n";
      } else if (live < earlier) {
         lines += type + ": " + std::to_string(earlier - live) + " objects less than before\n";
      }
   }
   return lines;
}

} // namespace TestSupport
