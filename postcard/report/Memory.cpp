#include "postcard/report/Memory.h"

#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"
#include "Pello/Slab.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace Postcard::Report {

namespace {

// The version of the JSON document. It rises when a key changes its meaning or disappears.
constexpr int memoryJsonSchema = 1;

} // namespace

U64 Memory::liveBytes() const {
   U64 bytes = 0;
   for (const TypeMemory& type : types) {
      bytes += type.bytes();
   }
   return bytes;
}

Memory processMemory() {
   Memory memory{{}, Pello::slabReserved()};
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      // Only entities are objects of their own. Values are members of entities and have no tracker.
      if (type->tracker != nullptr) {
         memory.types.push_back({type->name, type->tracker->objectSize(), type->tracker->live(),
                                 type->tracker->total()});
      }
   }
   return memory;
}

std::string text(const Memory& memory) {
   std::string text =
         fmt::format("{:>10} {:>12} {:>12}  {}\n", "LIVE", "BYTES", "EVER MADE", "TYPE");
   for (const TypeMemory& type : memory.types) {
      // Most types have no object in most processes. JSON has all of them, so that a program finds
      // the same types at every time.
      if (type.total != 0) {
         text += fmt::format("{:>10} {:>12} {:>12}  {}\n", type.live, type.bytes(), type.total,
                             type.type);
      }
   }
   return text +
          fmt::format("live objects: {} bytes, reserved for small objects and texts: {} bytes\n",
                      memory.liveBytes(), memory.reserved);
}

nlohmann::ordered_json json(const Memory& memory) {
   auto types = nlohmann::ordered_json::array();
   for (const TypeMemory& type : memory.types) {
      types.push_back({{"type", type.type},
                       {"objectSize", type.objectSize},
                       {"live", type.live},
                       {"bytes", type.bytes()},
                       {"total", type.total}});
   }
   return {{"schema", memoryJsonSchema},
           {"types", std::move(types)},
           {"liveBytes", memory.liveBytes()},
           {"reservedBytes", memory.reserved}};
}

} // namespace Postcard::Report
