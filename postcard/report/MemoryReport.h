// What the objects of each type cost this process: `memoryReport`, as text and as JSON. Relies on
// the allocation trackers of the registered types.
#pragma once

#include "Pello/Types.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Report {

// One type.
struct TypeMemory {
   std::string_view type;
   std::size_t objectSize; // bytes
   U64 live;               // objects that exist
   U64 total;              // objects ever made
   U64 bytes() const { return live * objectSize; }
};

struct MemoryReport {
   std::vector<TypeMemory> types; // all entity types, sorted by name
   std::size_t reserved;          // bytes that the slab has taken for small objects of all kinds
};

MemoryReport memoryReport();

// A table of the types that have or had objects, and the sums.
std::string memoryText(const MemoryReport& report);
// All types, as one JSON document with "schema".
std::string memoryJson(const MemoryReport& report);

} // namespace Postcard::Report
