// The reading side of the ring trace: `Reader` takes the bytes of a ring apart. Relies on the
// layout, and on RecordText for what the records say. The bytes may come from anywhere: nothing in
// them is believed unchecked.
#pragma once

#include "Pello/Types.h"
#include "Ringlog/Cursor.h"
#include "Ringlog/RecordText.h"

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

class Reader {
 public:
   // Takes apart what is in `bytes`, which need not outlive the reader nor be aligned. Throws
   // DamagedRing when they are no ring; a damaged record is left out or becomes a note.
   explicit Reader(std::span<const std::byte> bytes);

   // All records that are left in the ring, oldest first.
   const std::vector<Record>& records() const noexcept { return records_; }
   // Call sites by number.
   const std::map<U32, Descriptor>& descriptors() const noexcept { return descriptors_; }
   // Call sites whose descriptor found no room; their records are left out.
   U32 lostDescriptors() const noexcept { return lostDescriptors_; }
   // How many times a thread found every block in the hands of others and lost a block of records.
   U32 lostBlocks() const noexcept { return lostBlocks_; }
   U32 processId() const noexcept { return processId_; }

 private:
   using Bytes = std::span<const std::byte>;
   void readHeader(Bytes ring);
   void readDescriptors(Bytes area);
   void readDescriptor(Bytes bytes);
   void readBlock(Bytes block, RecordText& texts);
   double timeOf(U64 ticks) const;

   U64 openedTicks_ = 0;
   double openedTime_ = 0; // seconds
   double secondsPerTick_ = 0;
   U32 processId_ = 0;
   U32 lostDescriptors_ = 0;
   U32 lostBlocks_ = 0;
   std::map<U32, Descriptor> descriptors_;
   std::vector<Record> records_;
};

} // namespace Ringlog
