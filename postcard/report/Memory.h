// `Memory`: how many objects of each type this process has and how much memory they take, as a
// value, as text and as JSON. Relies on the allocation trackers of the registered types.
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
   std::string_view type;  // its name; valid as long as the library of the type is loaded
   std::size_t objectSize; // bytes, without what an object refers to
   U64 live;               // objects that exist
   U64 total;              // objects that were made since the process started

   // Bytes of the live objects themselves; their texts and containers are not in it.
   U64 bytes() const { return live * objectSize; }
};

struct Memory {
   std::vector<TypeMemory> types; // all entity types that are registered, sorted by name
   // Bytes that the slab allocator has reserved for small objects and texts, in use or free. The
   // allocator never returns memory to the operating system.
   std::size_t reserved;

   // `TypeMemory::bytes` of all types together.
   U64 liveBytes() const;
};

// The memory of this process at this moment.
Memory processMemory();

// A table of the types that have or had objects, and a line with the sums.
std::string text(const Memory& memory);

// A whole document: {"schema", "types", "liveBytes", "reservedBytes"}. "types" has all types, even
// those that never had an object.
nlohmann::ordered_json json(const Memory& memory);

} // namespace Postcard::Report
