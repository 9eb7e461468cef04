#include "postcard/report/MemoryReport.h"

#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"
#include "Pello/Slab.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Postcard::Report {

namespace {

constexpr int memoryJsonSchema = 1;

U64 liveBytes(const MemoryReport& report) {
   U64 bytes = 0;
   for (const TypeMemory& type : report.types) {
      bytes += type.bytes();
   }
   return bytes;
}

} // namespace

MemoryReport memoryReport() {
   MemoryReport report{{}, Pello::slabReserved()};
   for (const Kiv::TypeData* type : Kiv::registeredTypes()) {
      if (type->tracker != nullptr) {
         report.types.push_back({type->name, type->tracker->objectSize(), type->tracker->live(),
                                 type->tracker->total()});
      }
   }
   return report;
}

std::string memoryText(const MemoryReport& report) {
   std::string text =
         fmt::format("{:>10} {:>12} {:>12}  {}\n", "LIVE", "BYTES", "EVER MADE", "TYPE");
   for (const TypeMemory& type : report.types) {
      if (type.total != 0) {
         text += fmt::format("{:>10} {:>12} {:>12}  {}\n", type.live, type.bytes(), type.total,
                             type.type);
      }
   }
   return text +
          fmt::format("live objects: {} bytes, reserved for small objects and texts: {} bytes\n",
                      liveBytes(report), report.reserved);
}

std::string memoryJson(const MemoryReport& report) {
   auto types = nlohmann::ordered_json::array();
   for (const TypeMemory& type : report.types) {
      types.push_back({{"type", type.type},
                       {"objectSize", type.objectSize},
                       {"live", type.live},
                       {"bytes", type.bytes()},
                       {"total", type.total}});
   }
   return nlohmann::ordered_json{{"schema", memoryJsonSchema},
                                 {"types", std::move(types)},
                                 {"liveBytes", liveBytes(report)},
                                 {"reservedBytes", report.reserved}}
                .dump(2) +
          "\n";
}

} // namespace Postcard::Report
