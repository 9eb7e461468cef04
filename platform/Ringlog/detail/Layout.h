// The bytes of a ring: what the writer puts where, and the reader takes apart. Relies on nothing.
//
// A ring is a header, an area of descriptors (one per call site, appended on its first use) and a
// number of blocks. A thread claims a block, the oldest one that no other thread writes, and
// appends records to it; it is the only writer of that block until the block is full. Because a
// record never leaves its block, and `used` moves only when a record is complete, a process may end
// at any instruction: every block is then a whole number of records, and no lock was needed for any
// of them. A claim takes the oldest block's records away at once, never half of one.
//
// All numbers are in the byte order of the machine that wrote them; the magic number says so.
#pragma once

#include "Pello/Types.h"

#include <atomic>
#include <cstddef>

namespace Ringlog {

// "RINGLOG" and the layout's version in the lowest byte, on a little-endian machine.
inline constexpr U64 ringMagic = 0x474f4c474e495201U;

inline constexpr std::size_t headerSize = 4096;
inline constexpr std::size_t descriptorAreaSize = std::size_t{512} * 1024;
inline constexpr std::size_t blockSize = std::size_t{64} * 1024;
inline constexpr std::size_t defaultBlocks = 16;
inline constexpr std::size_t mostBlocks = 65536; // 4 GiB of records

// Longer text is cut to this many bytes, so that a record fits a block.
inline constexpr std::size_t longestText = 4096;

// Arguments of one trace, attributes of values included. Far more than any trace has; a reader can
// tell damage by it.
inline constexpr std::size_t mostKinds = 256;

// A reading of both clocks at one moment; two of them turn ticks into time.
struct ClockPair {
   std::atomic<U64> ticks;
   std::atomic<U64> nanoseconds; // since 1970-01-01 00:00 UTC
};

struct RingHeader {
   U64 magic;
   U32 blockCount;
   U32 processId;
   std::atomic<U64> claims;          // claims so far; block n serves claims n, n+count, …
   std::atomic<U32> descriptorBytes; // used bytes of the descriptor area
   std::atomic<U32> lostDescriptors; // call sites that found the area full
   ClockPair opened;                 // when the ring was made
   ClockPair latest;                 // when a writer last read both clocks
   std::atomic<U32> lostBlocks;      // claims that found every block in another thread's hands
   std::atomic<U64> overwritten;     // records that were in blocks when these were claimed again
};
static_assert(sizeof(RingHeader) <= headerSize);

struct BlockHeader {
   std::atomic<U64> claim; // the claim's number plus 1; 0 while the block is being taken
   std::atomic<U32> used;  // bytes of complete records behind this header
   U32 thread;             // the kernel's identifier of the writing thread
};

// Every record begins so and is a multiple of 8 bytes long.
struct RecordHeader {
   U32 size; // bytes, this header included
   U32 descriptor;
   U64 ticks;
};

inline constexpr std::size_t blockCapacity = blockSize - sizeof(BlockHeader);

constexpr std::size_t ringSize(std::size_t blocks) {
   return headerSize + descriptorAreaSize + blocks * blockSize;
}

constexpr std::size_t padded(std::size_t size) {
   return (size + 7) / 8 * 8;
}

} // namespace Ringlog
