// `Memory`: what the objects of each type cost this process, as a value, as text and as JSON.
// Relies on the allocation trackers of the registered types.
#pragma once

#include "Pello/Types.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Report {

// One type.
struct TypeMemory {
   std::string_view type;  // its name; valid until the process ends
   std::size_t objectSize; // bytes
   U64 live;               // objects that exist
   U64 total;              // objects ever made

   U64 bytes() const { return live * objectSize; }
};

struct Memory {
   std::vector<TypeMemory> types; // all entity types, sorted by name
   // Bytes that the slab allocator has reserved for small objects and texts, in use or free.
   std::size_t reserved;

   // The sum of all types.
   U64 liveBytes() const;
};

// The memory of this process now.
Memory processMemory();

// A table of the types that have or had objects, and the sums.
std::string text(const Memory& memory);

// A whole document: {"schema", "types", "liveBytes", "reservedBytes"}, with all types.
nlohmann::ordered_json json(const Memory& memory);

} // namespace Postcard::Report
