// Decodes the bytes of a ring: `readFacts` decodes the ring's header, `readBlockFacts` the header
// of a block, `Decoder` the descriptors and the records. The caller fetches the bytes, from a file
// or from a copy of the ring in memory (`snapshot`). Relies on the layout, and on RecordText for
// the texts of records.
//
// The bytes may come from an untrusted file. Every number in them is checked before it is used as a
// size or an index. Nothing here is synchronised: each `Decoder` belongs to one thread.
#pragma once

#include "Pello/Types.h"
#include "Ringlog/detail/Cursor.h"
#include "Ringlog/detail/RecordText.h"

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace Ringlog {

// One trace.
struct Record {
   // The call site. Never null. Owned by the decoder and valid as long as the decoder lives.
   const Descriptor* site;
   // The writer's clock (`ticksNow`) when the record was written. Records of one `SharedMoment`
   // have equal ticks, so records are sorted with a stable sort.
   U64 ticks;
   double time; // `ticks` as seconds since 1970-01-01 00:00 UTC
   U32 thread;  // the kernel's identifier of the writing thread, gettid(2)
   // The formatted trace, or a note in angle brackets when the record cannot be formatted.
   std::string text;
};

// The content of a ring's header. The counters are those since the ring was made.
struct RingFacts {
   std::size_t blocks;          // from 1 to `mostBlocks`
   std::size_t descriptorBytes; // used bytes of the descriptor area, at most `descriptorAreaSize`
   U32 processId;               // the process that writes the ring
   U32 lostDescriptors;         // call sites whose descriptor found no room; see `undescribed`
   U32 lostBlocks;              // claims that found every block in use; their records are lost
   U64 overwritten;             // records that were erased when their block was claimed again
   // The writer reads both clocks as a pair: when it makes the ring, and again every few seconds
   // while it traces. Times are nanoseconds since 1970-01-01 00:00 UTC.
   U64 openedTicks;
   U64 openedTime;
   U64 latestTicks;
   U64 latestTime;

   // Whether both headers belong to the same ring, read at different moments. The fields that never
   // change are compared: blocks, process and the first pair of clock readings. The process alone
   // would not do, because its identifier may be used again.
   bool sameRing(const RingFacts& other) const noexcept;
};

// Decodes the header of a ring of `ringBytes` bytes in all. Requires `sizeof(RingHeader)` bytes of
// `header`, unless `ringBytes` is too small for any ring. Throws DamagedRing when the size, the
// magic number or the number of blocks is not that of a ring of this layout.
RingFacts readFacts(std::span<const std::byte> header, std::size_t ringBytes);

// The content of a block's header, unchecked.
struct BlockFacts {
   U64 claim;  // grows with each claim of any block; 0: never used, or just being claimed
   U32 used;   // bytes of complete records; more than `blockCapacity` in a damaged block
   U32 thread; // the kernel's identifier of the thread that claimed the block, gettid(2)
};

// Decodes the header of a block. Requires `sizeof(BlockHeader)` bytes at least.
BlockFacts readBlockFacts(std::span<const std::byte> header);

// The limit for the texts of all records of a ring, in characters for each byte of the ring. Texts
// of a real ring are a few times as long as its records. A forged ring could ask for texts that
// fill the memory; readers therefore construct `RecordText` with this limit.
inline constexpr std::size_t textPerByte = 64;

// Decodes one ring. The caller gives it the clocks first, then descriptors, then records, and may
// repeat all three as the ring grows: a record is decoded only if its descriptor is known.
class Decoder {
 public:
   using Bytes = std::span<const std::byte>;

   // Sets the clock readings from which `addRecords` computes times. Records that were decoded
   // before keep their times.
   void clocksAre(const RingFacts& facts);

   // Decodes descriptors. Requires that `area` begins with a descriptor and ends with one. Throws
   // DamagedRing at the first that cannot be decoded; those before it are kept. A descriptor whose
   // number is known replaces the earlier one.
   void addDescriptors(Bytes area);

   struct Extent {
      // Records found in the bytes, including those that were left out.
      std::size_t records;
      // False: the size of a record was impossible. The bytes from there on were not decoded.
      bool whole;
   };
   // How far a block has been decoded. A new object: nothing of it.
   struct Progress {
      std::size_t bytes = 0; // from the first record on
      U64 ticks = 0;         // those of the latest record; 0: there is none
   };
   // Decodes the records in `block`, all complete records of a block, from `progress` on, which
   // must be 0 or what an earlier call for the same claim of the block has left. Appends them to
   // `to` in the order in which `thread` wrote them, and moves `progress` behind them. Records of
   // unknown call sites are left out and counted. Never throws for damage. `texts` formats them and
   // limits the length of the texts.
   Extent addRecords(Bytes block, U32 thread, Progress& progress, RecordText& texts,
                     std::vector<Record>& to);

   // The call sites by their number in the ring. A reference to one stays valid as long as the
   // decoder lives.
   const std::map<U32, Descriptor>& descriptors() const noexcept { return descriptors_; }
   // How many records were left out because their call site has no descriptor. The reason is a full
   // descriptor area (`RingFacts::lostDescriptors`) or damage.
   std::size_t undescribed() const noexcept { return undescribed_; }

 private:
   void addDescriptor(Bytes bytes);
   double timeOf(U64 ticks) const;

   // Time is linear in ticks: through the first pair of clock readings, with the rate between the
   // first pair and the latest.
   U64 openedTicks_ = 0;
   double openedTime_ = 0; // seconds
   double secondsPerTick_ = 0;
   std::map<U32, Descriptor> descriptors_; // a map, because records point into it
   std::size_t undescribed_ = 0;
};

} // namespace Ringlog
