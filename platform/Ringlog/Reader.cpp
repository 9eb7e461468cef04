#include "Ringlog/Reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Ringlog {

namespace {

using Bytes = Decoder::Bytes;

// A block that holds records.
struct Block {
   U64 claim;
   U32 thread;
   Bytes records;
};

// The blocks that hold records, in the order in which they were claimed.
std::vector<Block> blocksOf(Bytes ring) {
   std::vector<Block> blocks;
   for (std::size_t at = ringSize(0); at < ring.size(); at += blockSize) {
      const Bytes block = ring.subspan(at, blockSize);
      const BlockFacts facts = readBlockFacts(block);
      // 0: never used, or being taken at the moment of the copy.
      if (facts.claim != 0 && facts.used <= blockCapacity) {
         blocks.push_back(
               {facts.claim, facts.thread, block.subspan(sizeof(BlockHeader), facts.used)});
      }
   }
   std::ranges::stable_sort(blocks, {}, &Block::claim);
   return blocks;
}

} // namespace

Reader::Reader(Bytes bytes) : facts_{readFacts(bytes, bytes.size())} {
   decoder_.clocksAre(facts_);
   decoder_.addDescriptors(bytes.subspan(headerSize, facts_.descriptorBytes));
   RecordText texts{textPerByte * bytes.size()};
   for (const Block& block : blocksOf(bytes)) {
      decoder_.addRecords(block.records, block.thread, texts, records_);
   }
   std::ranges::stable_sort(records_, {}, &Record::ticks);
}

} // namespace Ringlog
