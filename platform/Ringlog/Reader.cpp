#include "Ringlog/Reader.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace Ringlog {

namespace {

// A ring's texts are a few times as long as its records; what is far beyond is not a ring.
constexpr std::size_t textPerByte = 64;

// The number at `offset`, which need not be aligned. Requires that it lies inside.
template <class T>
T numberAt(std::span<const std::byte> bytes, std::size_t offset) {
   T number{};
   std::memcpy(&number, bytes.data() + offset, sizeof number);
   return number;
}

// The difference of two readings of a clock, which may have been set back.
double difference(U64 later, U64 earlier) {
   return static_cast<double>(static_cast<std::int64_t>(later - earlier));
}

void requireRing(std::span<const std::byte> bytes) {
   if (bytes.size() < headerSize + descriptorAreaSize) {
      throw DamagedRing{"not a trace ring: only " + std::to_string(bytes.size()) + " bytes"};
   }
   if (numberAt<U64>(bytes, offsetof(RingHeader, magic)) != ringMagic) {
      throw DamagedRing{"not a trace ring: the first bytes are not those of one"};
   }
   const std::size_t blocks = numberAt<U32>(bytes, offsetof(RingHeader, blockCount));
   if (blocks == 0 || ringSize(blocks) != bytes.size()) {
      throw DamagedRing{"damaged trace ring: " + std::to_string(blocks) + " blocks in " +
                        std::to_string(bytes.size()) + " bytes"};
   }
   if (numberAt<U32>(bytes, offsetof(RingHeader, descriptorBytes)) > descriptorAreaSize) {
      throw DamagedRing{"damaged trace ring: its descriptors are longer than their area"};
   }
}

// The blocks that hold records, in the order in which they were claimed.
std::vector<std::span<const std::byte>> blocksOf(std::span<const std::byte> ring) {
   std::vector<std::pair<U64, std::span<const std::byte>>> blocks;
   for (std::size_t at = ringSize(0); at < ring.size(); at += blockSize) {
      const auto block = ring.subspan(at, blockSize);
      // 0: never used, or being taken at the moment of the copy.
      if (const auto claim = numberAt<U64>(block, offsetof(BlockHeader, claim)); claim != 0) {
         blocks.emplace_back(claim, block);
      }
   }
   std::ranges::stable_sort(blocks, {}, [](const auto& block) { return block.first; });
   std::vector<std::span<const std::byte>> sorted;
   sorted.reserve(blocks.size());
   for (const auto& [claim, block] : blocks) {
      sorted.push_back(block);
   }
   return sorted;
}

} // namespace

Reader::Reader(std::span<const std::byte> bytes) {
   requireRing(bytes);
   readHeader(bytes);
   const std::size_t used = numberAt<U32>(bytes, offsetof(RingHeader, descriptorBytes));
   readDescriptors(bytes.subspan(headerSize, used));
   RecordText texts{textPerByte * bytes.size()};
   for (const Bytes block : blocksOf(bytes)) {
      readBlock(block, texts);
   }
   std::ranges::stable_sort(records_, {}, &Record::ticks);
}

void Reader::readHeader(Bytes ring) {
   constexpr std::size_t opened = offsetof(RingHeader, opened);
   constexpr std::size_t latest = offsetof(RingHeader, latest);
   constexpr std::size_t clock = offsetof(ClockPair, nanoseconds);
   processId_ = numberAt<U32>(ring, offsetof(RingHeader, processId));
   lostDescriptors_ = numberAt<U32>(ring, offsetof(RingHeader, lostDescriptors));
   lostBlocks_ = numberAt<U32>(ring, offsetof(RingHeader, lostBlocks));
   openedTicks_ = numberAt<U64>(ring, opened);
   const auto openedNanoseconds = numberAt<U64>(ring, opened + clock);
   openedTime_ = static_cast<double>(openedNanoseconds) / 1e9;
   const double ticks = difference(numberAt<U64>(ring, latest), openedTicks_);
   const double elapsed = difference(numberAt<U64>(ring, latest + clock), openedNanoseconds);
   // Without a span to measure by, a tick is taken for a nanosecond.
   secondsPerTick_ = ticks > 0 && elapsed > 0 ? elapsed / ticks / 1e9 : 1e-9;
}

void Reader::readDescriptors(Bytes area) {
   while (!area.empty()) {
      const auto size = Cursor{area, "damaged trace ring: a descriptor"}.plain<U32>();
      if (size < sizeof(U32) || size > area.size()) {
         throw DamagedRing{"damaged trace ring: a descriptor of " + std::to_string(size) +
                           " bytes"};
      }
      readDescriptor(area.first(size));
      area = area.subspan(size);
   }
}

void Reader::readDescriptor(Bytes bytes) {
   Cursor cursor{bytes, "damaged trace ring: a descriptor"};
   cursor.plain<U32>(); // its size
   const auto number = cursor.plain<U32>();
   Descriptor site;
   site.line = cursor.plain<U32>();
   site.level = cursor.plain<U32>();
   site.source = cursor.text();
   site.className = cursor.text();
   site.functionName = cursor.text();
   site.format = cursor.text();
   const auto count = cursor.plain<U32>();
   if (count > mostKinds) {
      throw DamagedRing{"damaged trace ring: a descriptor of " + std::to_string(count) +
                        " arguments"};
   }
   for (U32 i = 0; i < count; ++i) {
      const auto code = static_cast<char>(cursor.plain<U32>());
      std::string type = cursor.text();
      site.kinds.push_back({code, std::move(type), cursor.text()});
   }
   descriptors_.insert_or_assign(number, std::move(site));
}

void Reader::readBlock(Bytes block, RecordText& texts) {
   const std::size_t used = numberAt<U32>(block, offsetof(BlockHeader, used));
   if (used > blockCapacity) {
      return;
   }
   const auto thread = numberAt<U32>(block, offsetof(BlockHeader, thread));
   Bytes left = block.subspan(sizeof(BlockHeader), used);
   while (left.size() >= sizeof(RecordHeader)) {
      const auto record = numberAt<RecordHeader>(left, 0);
      if (record.size < sizeof record || record.size > left.size()) {
         return; // the rest of this block cannot be told apart
      }
      const auto site = descriptors_.find(record.descriptor);
      if (site != descriptors_.end()) {
         const Bytes arguments = left.subspan(sizeof record, record.size - sizeof record);
         records_.push_back({&site->second, record.ticks, timeOf(record.ticks), thread,
                             texts.format(site->second, arguments)});
      }
      left = left.subspan(record.size);
   }
}

double Reader::timeOf(U64 ticks) const {
   return openedTime_ + difference(ticks, openedTicks_) * secondsPerTick_;
}

} // namespace Ringlog
