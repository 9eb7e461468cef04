// Takes the parts of a ring apart, whoever fetched them: `readFacts` its header, `Decoder` its
// descriptors and the records of its blocks. Relies on the layout, and on RecordText for what the
// records say. The bytes may come from anywhere: nothing in them is believed unchecked.
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
   const Descriptor* site; // owned by the reader
   U64 ticks;
   double time; // seconds since 1970-01-01 00:00 UTC
   U32 thread;
   std::string text; // formatted; a note in angle brackets when the record cannot be read
};

// What a ring's header says.
struct RingFacts {
   std::size_t blocks;
   std::size_t descriptorBytes;
   U32 processId;
   U32 lostDescriptors; // call sites whose descriptor found no room
   U32 lostBlocks;      // times that a thread found every block in the hands of others
   U64 overwritten;     // records that have made room for newer ones
   // The two readings of both clocks; times in nanoseconds since 1970-01-01 00:00 UTC.
   U64 openedTicks;
   U64 openedTime;
   U64 latestTicks;
   U64 latestTime;

   // Whether both are the header of one and the same ring, at different moments.
   bool sameRing(const RingFacts& other) const noexcept;
};

// The facts of a ring of `ringBytes` bytes that begins with `header`, which is as long as a header
// if the ring is. Throws DamagedRing when it is no ring.
RingFacts readFacts(std::span<const std::byte> header, std::size_t ringBytes);

// What the header of a block says.
struct BlockFacts {
   U64 claim; // 0: never used, or being taken at the moment
   U32 used;  // bytes of records; more than `blockCapacity` in a damaged block
   U32 thread;
};

// Requires the bytes of a block's header at least.
BlockFacts readBlockFacts(std::span<const std::byte> header);

// Texts of a ring are a few times as long as its records; all of them together are cut to this many
// characters for each byte of the ring, because what goes far beyond is not a ring.
inline constexpr std::size_t textPerByte = 64;

class Decoder {
 public:
   using Bytes = std::span<const std::byte>;

   // Times of the records that follow are told by these clocks.
   void clocksAre(const RingFacts& facts);

   // Takes descriptors, which come whole. Throws DamagedRing when they are none.
   void addDescriptors(Bytes area);

   struct Extent {
      std::size_t records; // however few of them could be read
      bool whole;          // false: the rest of the bytes cannot be told apart
   };
   // Appends the records in `bytes`, which `thread` wrote. Those of unknown call sites are left
   // out.
   Extent addRecords(Bytes bytes, U32 thread, RecordText& texts, std::vector<Record>& to);

   // Call sites by number.
   const std::map<U32, Descriptor>& descriptors() const noexcept { return descriptors_; }
   // How many records have been left out because the ring does not describe their call site.
   std::size_t undescribed() const noexcept { return undescribed_; }

 private:
   void addDescriptor(Bytes bytes);
   double timeOf(U64 ticks) const;

   U64 openedTicks_ = 0;
   double openedTime_ = 0; // seconds
   double secondsPerTick_ = 0;
   std::map<U32, Descriptor> descriptors_;
   std::size_t undescribed_ = 0;
};

} // namespace Ringlog
