// `Writer`: where a thread writes its next record, and the variable that holds it. Relies on the
// layout.
#pragma once

#include "Ringlog/detail/Layout.h"

namespace Ringlog {

// Where a thread writes its next record. All pointers are null before the thread's first record, so
// that `record` finds no room and claims a block.
struct Writer {
   std::byte* next = nullptr;    // where the next record begins
   std::byte* end = nullptr;     // the end of the block
   BlockHeader* block = nullptr; // in the ring, or outside it while the ring has no free block
   U64 claim = ~U64{0};          // a number for each claim in this process, never used again
   U64 moment = 0;               // the ticks of the present `SharedMoment`; 0: there is none
   U64 latest = 0;               // the ticks of the latest record in the block; 0: it has none
   U64 dueTicks = 0;             // a record of these ticks or later refreshes the ring's clocks
   U32 count = 0;                // records in the block
};

namespace Detail {
// The writer of the calling thread. The thread-local storage model `initial-exec` makes the
// access a load; the default model calls a function for each access from another library. The
// price: when dlopen(3) loads this library, the C library must have room left in its static
// thread-local area.
[[gnu::tls_model("initial-exec")]] extern thread_local constinit Writer writer;

// Where the records of the block of `owner` begin. Requires a block.
inline std::byte* recordsOf(const Writer& owner) noexcept {
   return static_cast<std::byte*>(static_cast<void*>(owner.block + 1));
}
} // namespace Detail

} // namespace Ringlog
