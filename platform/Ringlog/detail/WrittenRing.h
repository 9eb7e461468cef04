// `WrittenRing`: the ring of this process as its writers see it: who holds which block, what is
// described, and where the bytes lie. Relies on RingFile and BusGuard for the file.
#pragma once

#include "Ringlog/detail/Layout.h"
#include "Ringlog/detail/RingFile.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace Ringlog::Detail {

// Never destroyed or unmapped, because destructors of static objects may trace until the process
// ends. Not synchronised: the caller holds one mutex for all operations. The records in a block and
// its `used` are not guarded: only the thread that holds the block writes them.
class WrittenRing {
 public:
   // Maps the file of RINGLOG_FILE, or memory. Throws std::bad_alloc when there is neither.
   WrittenRing();
   WrittenRing(const WrittenRing&) = delete;
   WrittenRing& operator=(const WrittenRing&) = delete;

   // Begins a new ring, in the file if it can be used again, when the bytes of the file have been
   // lost since the last call. Does nothing otherwise. All blocks are empty and without a claim
   // then, those too that threads hold: what such a thread adds to its block is lost until it
   // claims the next one.
   void mend();

   RingHeader& header() noexcept { return *header_; }
   // Appends a descriptor to those in the ring. One that finds no room is counted in the header.
   void addDescriptor(std::span<const std::byte> descriptor);

   // Empties the next block in turn that no thread holds and returns it. The calling thread holds
   // it until `release`. Null when threads hold all blocks.
   BlockHeader* claim();
   // Frees a block that has `count` records in it. Null, for a thread that has written outside the
   // ring, does nothing.
   void release(const BlockHeader* block, U32 count);

   // A copy without half records, in the layout of a file. Threads go on adding to their blocks
   // meanwhile.
   std::vector<std::byte> copy();

   // Detaches the child of a fork from its parent's file. Only the forking thread exists in the
   // child, so only its `block` (null: it has none) stays held; the blocks of all other threads
   // would otherwise be lost to the child.
   void becomeChilds(const BlockHeader* block);

 private:
   void map();
   void begin();
   void empty(std::size_t number, U64 claim);
   BlockHeader* block(std::size_t number);
   std::size_t numberOf(const BlockHeader& block) const;

   std::size_t blocks_;
   std::optional<RingFile> file_; // none: the ring lies in memory, or this is a forked child
   std::byte* base_ = nullptr;    // the same from the constructor on
   RingHeader* header_ = nullptr; // at `base_`
   std::vector<bool> held_;       // by block: a thread writes it
   std::vector<U32> counts_;      // by block: records, when it is free
   // The descriptors once more, for a ring that begins anew: a call site describes itself once.
   std::vector<std::byte> descriptors_;
   U32 lostDescriptors_ = 0; // those that found no room
};

// Reads both clocks into `pair`.
void readClocks(ClockPair& pair);

} // namespace Ringlog::Detail
