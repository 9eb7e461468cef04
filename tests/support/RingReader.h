// `RingReader`: takes the bytes of a whole ring apart at once, such as those of a snapshot. Relies
// on `Ringlog::Decoder` for each part of them. Programs read the growing file of another process
// instead; see `Ringlog/FileReader.h`.
#pragma once

#include "Ringlog/Decoder.h"

#include <algorithm>
#include <utility>

namespace TestSupport {

class RingReader {
 public:
   // Takes apart what is in `bytes`, which need not outlive the reader nor be aligned. Throws
   // DamagedRing when they are no ring; a damaged record is left out or becomes a note.
   explicit RingReader(std::span<const std::byte> bytes);

   // All records that are left in the ring, oldest first.
   const std::vector<Ringlog::Record>& records() const noexcept { return records_; }
   // Call sites by number.
   const std::map<U32, Ringlog::Descriptor>& descriptors() const noexcept {
      return decoder_.descriptors();
   }
   // Call sites whose descriptor found no room; their records are left out.
   U32 lostDescriptors() const noexcept { return facts_.lostDescriptors; }
   // How many times a thread found every block in the hands of others and lost a block of records.
   U32 lostBlocks() const noexcept { return facts_.lostBlocks; }
   U32 processId() const noexcept { return facts_.processId; }

 private:
   Ringlog::RingFacts facts_;
   Ringlog::Decoder decoder_;
   std::vector<Ringlog::Record> records_;
};

// A block that holds records.
struct RingBlock {
   U64 claim;
   U32 thread;
   Ringlog::Decoder::Bytes records;
};

// The blocks that hold records, in the order in which they were claimed.
inline std::vector<RingBlock> blocksOf(Ringlog::Decoder::Bytes ring) {
   std::vector<RingBlock> blocks;
   for (std::size_t at = Ringlog::ringSize(0); at < ring.size(); at += Ringlog::blockSize) {
      const Ringlog::Decoder::Bytes block = ring.subspan(at, Ringlog::blockSize);
      const Ringlog::BlockFacts facts = Ringlog::readBlockFacts(block);
      // 0: never used, or being taken at the moment of the copy.
      if (facts.claim != 0 && facts.used <= Ringlog::blockCapacity) {
         blocks.push_back({facts.claim, facts.thread,
                           block.subspan(sizeof(Ringlog::BlockHeader), facts.used)});
      }
   }
   std::ranges::stable_sort(blocks, {}, &RingBlock::claim);
   return blocks;
}

inline RingReader::RingReader(Ringlog::Decoder::Bytes bytes)
   : facts_{Ringlog::readFacts(bytes, bytes.size())} {
   decoder_.clocksAre(facts_);
   decoder_.addDescriptors(bytes.subspan(Ringlog::headerSize, facts_.descriptorBytes));
   Ringlog::RecordText texts{Ringlog::textPerByte * bytes.size()};
   for (const RingBlock& block : blocksOf(bytes)) {
      Ringlog::Decoder::Progress progress;
      decoder_.addRecords(block.records, block.thread, progress, texts, records_);
   }
   std::ranges::stable_sort(records_, {}, &Ringlog::Record::ticks);
}

} // namespace TestSupport
