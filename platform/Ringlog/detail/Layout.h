// The bytes of a ring, as the writer writes and the reader expects them. Relies on nothing.
//
// A ring is a header, an area of descriptors and a number of blocks:
//
//   0                                   `RingHeader`
//   headerSize                          descriptors, one per call site, appended on its first use
//   headerSize + descriptorAreaSize     blocks of `blockSize`: a `BlockHeader`, then records
//
// A thread claims the oldest block that no other thread holds, which erases the records in it. It
// then is the only writer of the block until the block is full or the thread ends. A record never
// extends beyond its block, and `used` grows only when a record is complete. So no lock is needed
// to write a record, and the process may be killed at any instruction: every block then holds a
// whole number of records.
//
// A descriptor is a sequence of 4-byte numbers and texts (4 bytes of length, then the bytes, not
// padded): the descriptor's size in bytes, its number, line, level, source, class, function,
// format, the count of argument kinds, and for each kind its code, type and name. See
// `ArgumentKind`.
//
// A record whose ticks are those of the record before it in its block leaves them out, and says so
// in its size (`ticksLeftOut`).
//
// A text among the arguments of a record is its length in 4 bytes and its bytes, padded to a
// multiple of 8 bytes. One that begins as a text of an earlier record in the same block may instead
// be a `TextReference` and the bytes that follow the common beginning, padded likewise. That
// earlier text may be of the same form. A block can therefore be read without any other block, and
// a damaged reference spoils the text of one record only.
//
// All numbers are in the byte order of the machine that wrote them. A reader of the other byte
// order does not find the magic number and refuses the ring. A change of anything here needs
// another magic number.
#pragma once

#include "Pello/Types.h"

#include <atomic>
#include <cstddef>

namespace Ringlog {

// "RINGLOG" and the layout's version in the lowest byte, on a little-endian machine.
inline constexpr U64 ringMagic = 0x474f4c474e495202U;
// Version 1 had every text whole and the ticks in every record. A reader of this version reads it
// without a special case.
inline constexpr U64 ringMagicOfWholeTexts = ringMagic - 1;
// The same with version 0: a ring in the making. A file never lacks both marks while a process
// fills it, so that the next process knows the file of a killed one for a ring.
inline constexpr U64 ringInTheMaking = ringMagic & ~U64{0xff};

// Whether a file that begins with this number is a ring, of any version, and not somebody's text.
constexpr bool isRingMark(U64 magic) {
   return magic >> 8 == ringMagic >> 8;
}

// Sizes in bytes.
inline constexpr std::size_t headerSize = 4096;
inline constexpr std::size_t descriptorAreaSize = std::size_t{512} * 1024;
inline constexpr std::size_t blockSize = std::size_t{64} * 1024;
inline constexpr std::size_t defaultBlocks = 16;
inline constexpr std::size_t mostBlocks = 65536; // 4 GiB of records

// Text is cut to this many bytes, in arguments and in descriptors, so that a record fits a block.
inline constexpr std::size_t longestText = 4096;

// The most argument kinds of one trace, far more than any trace has. A trace with more does not
// compile; a reader refuses a larger count as damage.
inline constexpr std::size_t mostKinds = 256;

// A reading of both clocks at one moment. Two pairs give the rate of ticks, which no ring stores.
struct ClockPair {
   std::atomic<U64> ticks;
   std::atomic<U64> nanoseconds; // since 1970-01-01 00:00 UTC
};

// The atomic members, except those of `opened`, change while the ring is in use. The others are
// written when the ring is made; only a forked child changes `processId`, in its own copy.
struct RingHeader {
   U64 magic;      // `ringMagic`, written last; `ringInTheMaking` before
   U32 blockCount; // from 1 to `mostBlocks`
   U32 processId;  // of the writing process
   // Claims so far, including those that passed over a block that was held. Claim n is for block n
   // modulo `blockCount`.
   std::atomic<U64> claims;
   std::atomic<U32> descriptorBytes; // used bytes of the descriptor area
   std::atomic<U32> lostDescriptors; // call sites that found the area full
   ClockPair opened;                 // when the ring was made
   ClockPair latest;                 // when a writer last read both clocks
   std::atomic<U32> lostBlocks;      // times that a thread found all blocks held by others
   std::atomic<U64> overwritten;     // records that were erased because their block was claimed
};
static_assert(sizeof(RingHeader) <= headerSize);

// `claim` lets a reader work without a lock: when it is the same before and after the reader copied
// bytes of the block, the bytes were not overwritten in between.
struct BlockHeader {
   std::atomic<U64> claim; // the claim's number plus 1; 0: never claimed, or just being claimed
   std::atomic<U32> used;  // bytes of complete records behind this header
   U32 thread;             // the kernel's identifier of the writing thread
};

// The beginning of every record; the arguments follow. A record is a multiple of 8 bytes long.
struct RecordHeader {
   U32 size;       // bytes, including this header; with `ticksLeftOut` where `ticks` is missing
   U32 descriptor; // the number of the call site's descriptor, from 1
   U64 ticks;      // `ticksNow` of the writer
};
// A bit of `RecordHeader::size`: the header ends before `ticks`.
inline constexpr U32 ticksLeftOut = U32{1} << 31;
inline constexpr std::size_t shortHeaderSize = offsetof(RecordHeader, ticks);

// Stands in place of the length of a text that begins as an earlier text. The first 4 bytes cannot
// be a length, because of `isReference`.
struct TextReference {
   static constexpr U32 isReference = U32{1} << 31;
   static constexpr unsigned lengthBits = 13; // enough for `longestText`
   static constexpr U32 lengthMask = (U32{1} << lengthBits) - 1;

   // `isReference`; the length of the common beginning, shifted by `lengthBits`; and in the lowest
   // bits the number of bytes that follow this reference.
   U32 lengths;
   // Where the earlier text stands: multiples of 8 bytes from the block's first record.
   U16 place;
};
// The bytes of a reference in the ring. The structure is longer, by its padding.
inline constexpr std::size_t textReferenceSize = sizeof(U32) + sizeof(U16);

// The most references that a reader follows to put one text together. It bounds the time that
// damaged references cost.
inline constexpr unsigned mostReferences = 16;

// The bytes of a block that records can use.
inline constexpr std::size_t blockCapacity = blockSize - sizeof(BlockHeader);

// The bytes of a ring of so many blocks; also where the block of that number, from 0, begins.
constexpr std::size_t ringSize(std::size_t blocks) {
   return headerSize + descriptorAreaSize + blocks * blockSize;
}

// `size` rounded up to a multiple of 8.
constexpr std::size_t padded(std::size_t size) {
   return (size + 7) / 8 * 8;
}

} // namespace Ringlog
