// The reading side of the ring trace: `Reader` takes the bytes of a whole ring apart, such as those
// of a snapshot. Relies on Decoder for each part of them. The bytes may come from anywhere: nothing
// in them is believed unchecked.
#pragma once

#include "Ringlog/Decoder.h"

namespace Ringlog {

class Reader {
 public:
   // Takes apart what is in `bytes`, which need not outlive the reader nor be aligned. Throws
   // DamagedRing when they are no ring; a damaged record is left out or becomes a note.
   explicit Reader(std::span<const std::byte> bytes);

   // All records that are left in the ring, oldest first.
   const std::vector<Record>& records() const noexcept { return records_; }
   // Call sites by number.
   const std::map<U32, Descriptor>& descriptors() const noexcept { return decoder_.descriptors(); }
   // Call sites whose descriptor found no room; their records are left out.
   U32 lostDescriptors() const noexcept { return facts_.lostDescriptors; }
   // How many times a thread found every block in the hands of others and lost a block of records.
   U32 lostBlocks() const noexcept { return facts_.lostBlocks; }
   U32 processId() const noexcept { return facts_.processId; }

 private:
   RingFacts facts_;
   Decoder decoder_;
   std::vector<Record> records_;
};

} // namespace Ringlog
