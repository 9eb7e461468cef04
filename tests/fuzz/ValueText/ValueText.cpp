// Any text for any registered value type: it is refused with a ParseError or RangeError, or gives
// a value whose own text reads back to an equal value with the same text. The first byte chooses
// the type, the rest is the text.
#include "../Require.h"
#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"
#include "support/ValueRows.h"

#include <algorithm>
#include <any>
#include <string>

namespace {

using Fuzz::require;

using TestSupport::ValueRow;
using TestSupport::valueRows;

const void* valueIn(const ValueRow& row, const std::any& value) {
   const void* found = row.valueIn(value);
   require(found != nullptr, "a parsed value is of its type", row.name);
   return found;
}

void read(const ValueRow& row, std::string_view text) {
   const Kiv::TypeData& type = *Kiv::findType(row.name);
   std::any parsed;
   try {
      parsed = type.parse(text);
   } catch (const Kiv::ParseError& error) {
      require(error.position() <= text.size(), "a place of a mistake lies in the text",
              error.what());
      return;
   } catch (const Kiv::RangeError&) {
      return;
   }
   const void* first = valueIn(row, parsed);
   const std::string own = type.valueText(first);
   type.displayText(first);
   const std::any again = type.parse(own);
   const void* second = valueIn(row, again);
   require(type.valueText(second) == own, "the text of a value is stable", own);
   // Not-a-number is not equal to itself.
   require(type.equal(first, second) || !type.equal(first, first),
           "the text of a value reads back to an equal one", own);
}

// Names of interfaces are kept for ever; an hour of new ones would be taken for a leak.
bool wouldGrow(std::string_view type) {
   constexpr std::size_t enough = 500'000;
   static std::size_t names = 0;
   return type == "Orlix::IntfId" && ++names > enough;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      require(type->kind == Kiv::TypeKind::entity ||
                    std::ranges::find(valueRows, type->name, &ValueRow::name) !=
                          std::end(valueRows),
              "a registered value type has a row", type->name);
   }
   for (const ValueRow& row : valueRows) {
      require(Kiv::findType(row.name) != nullptr, "a row names a registered type", row.name);
   }
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   if (size == 0) {
      return 0;
   }
   const ValueRow& row = valueRows[data[0] % std::size(valueRows)];
   if (wouldGrow(row.name)) {
      return 0;
   }
   read(row, {reinterpret_cast<const char*>(data) + 1, size - 1});
   return 0;
}
