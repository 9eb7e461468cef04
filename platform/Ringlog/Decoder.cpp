#include "Ringlog/Decoder.h"

#include <cstring>
#include <optional>
#include <tuple>
#include <utility>

namespace Ringlog {

namespace {

// The number at `offset`, which must lie inside `bytes`. Copied, because the bytes of a file need
// not be aligned in memory.
template <class T>
T numberAt(std::span<const std::byte> bytes, std::size_t offset) {
   T number{};
   std::memcpy(&number, bytes.data() + offset, sizeof number);
   return number;
}

// The difference of two readings of a clock. Negative when the clock was set back in between, and
// for a record that was written before the ring's first clock reading.
double difference(U64 later, U64 earlier) {
   return static_cast<double>(static_cast<std::int64_t>(later - earlier));
}

// Checks everything in the header that is later used as a size. The order matters for the message:
// a text file should be called no ring, not a damaged one.
void requireRing(std::span<const std::byte> header, std::size_t ringBytes) {
   if (ringBytes < ringSize(0)) {
      throw DamagedRing{"not a trace ring: only " + std::to_string(ringBytes) + " bytes"};
   }
   if (const auto magic = numberAt<U64>(header, offsetof(RingHeader, magic));
       magic != ringMagic && magic != ringMagicOfWholeTexts) {
      throw DamagedRing{"not a trace ring: the first bytes are not those of one"};
   }
   const std::size_t blocks = numberAt<U32>(header, offsetof(RingHeader, blockCount));
   if (blocks == 0 || blocks > mostBlocks || ringSize(blocks) != ringBytes) {
      throw DamagedRing{"damaged trace ring: " + std::to_string(blocks) + " blocks in " +
                        std::to_string(ringBytes) + " bytes"};
   }
   if (numberAt<U32>(header, offsetof(RingHeader, descriptorBytes)) > descriptorAreaSize) {
      throw DamagedRing{"damaged trace ring: its descriptors are longer than their area"};
   }
}

// The beginning of a record.
struct RecordBounds {
   std::size_t size;         // bytes, including the header
   std::size_t headerSize;   // bytes
   U32 descriptor;           // the number of the call site's descriptor
   std::optional<U64> ticks; // nothing: those of the record before
};

// Decodes the header of the record with which `bytes` begins. Nothing when no record can have the
// size that it says.
std::optional<RecordBounds> boundsOf(std::span<const std::byte> bytes) {
   if (bytes.size() < shortHeaderSize) {
      return std::nullopt;
   }
   const U32 word = numberAt<U32>(bytes, offsetof(RecordHeader, size));
   const std::size_t size = word & ~ticksLeftOut;
   const bool hasTicks = (word & ticksLeftOut) == 0;
   const std::size_t header = hasTicks ? sizeof(RecordHeader) : shortHeaderSize;
   if (size < header || size > bytes.size()) {
      return std::nullopt;
   }
   RecordBounds bounds{size, header, numberAt<U32>(bytes, offsetof(RecordHeader, descriptor)), {}};
   if (hasTicks) {
      bounds.ticks = numberAt<U64>(bytes, offsetof(RecordHeader, ticks));
   }
   return bounds;
}

} // namespace

bool RingFacts::sameRing(const RingFacts& other) const noexcept {
   return std::tie(blocks, processId, openedTicks, openedTime) ==
          std::tie(other.blocks, other.processId, other.openedTicks, other.openedTime);
}

// The members are copied one by one: a `RingHeader` has atomic members and cannot be copied whole.
RingFacts readFacts(std::span<const std::byte> header, std::size_t ringBytes) {
   requireRing(header, ringBytes);
   constexpr std::size_t opened = offsetof(RingHeader, opened);
   constexpr std::size_t latest = offsetof(RingHeader, latest);
   constexpr std::size_t clock = offsetof(ClockPair, nanoseconds);
   return {
         .blocks = numberAt<U32>(header, offsetof(RingHeader, blockCount)),
         .descriptorBytes = numberAt<U32>(header, offsetof(RingHeader, descriptorBytes)),
         .processId = numberAt<U32>(header, offsetof(RingHeader, processId)),
         .lostDescriptors = numberAt<U32>(header, offsetof(RingHeader, lostDescriptors)),
         .lostBlocks = numberAt<U32>(header, offsetof(RingHeader, lostBlocks)),
         .overwritten = numberAt<U64>(header, offsetof(RingHeader, overwritten)),
         .openedTicks = numberAt<U64>(header, opened),
         .openedTime = numberAt<U64>(header, opened + clock),
         .latestTicks = numberAt<U64>(header, latest),
         .latestTime = numberAt<U64>(header, latest + clock),
   };
}

BlockFacts readBlockFacts(std::span<const std::byte> header) {
   return {.claim = numberAt<U64>(header, offsetof(BlockHeader, claim)),
           .used = numberAt<U32>(header, offsetof(BlockHeader, used)),
           .thread = numberAt<U32>(header, offsetof(BlockHeader, thread))};
}

void Decoder::clocksAre(const RingFacts& facts) {
   openedTicks_ = facts.openedTicks;
   openedTime_ = static_cast<double>(facts.openedTime) / 1e9;
   const double ticks = difference(facts.latestTicks, facts.openedTicks);
   const double elapsed = difference(facts.latestTime, facts.openedTime);
   // Right after the ring was made both pairs are the same, and a wall clock that was set back
   // gives no rate either. A nanosecond per tick is then of the right order of magnitude.
   secondsPerTick_ = ticks > 0 && elapsed > 0 ? elapsed / ticks / 1e9 : 1e-9;
}

void Decoder::addDescriptors(Bytes area) {
   while (!area.empty()) {
      const auto size = Cursor{area, "damaged trace ring: a descriptor"}.plain<U32>();
      // A size of 0 would never end the loop.
      if (size < sizeof(U32) || size > area.size()) {
         throw DamagedRing{"damaged trace ring: a descriptor of " + std::to_string(size) +
                           " bytes"};
      }
      addDescriptor(area.first(size));
      area = area.subspan(size);
   }
}

void Decoder::addDescriptor(Bytes bytes) {
   Cursor cursor{bytes, "damaged trace ring: a descriptor"};
   cursor.plain<U32>(); // the size, which the caller has read
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

Decoder::Extent Decoder::addRecords(Bytes block, U32 thread, Progress& progress, RecordText& texts,
                                    std::vector<Record>& to) {
   Extent extent{0, true};
   while (progress.bytes < block.size()) {
      const std::optional<RecordBounds> record = boundsOf(block.subspan(progress.bytes));
      // The records behind an impossible size cannot be found: only the sizes say where they begin.
      if (!record) {
         return {extent.records, false};
      }
      ++extent.records;
      progress.ticks = record->ticks.value_or(progress.ticks);
      const auto site = descriptors_.find(record->descriptor);
      if (site != descriptors_.end()) {
         const RecordText::Place place{block, progress.bytes, record->headerSize, record->size};
         to.push_back({&site->second, progress.ticks, timeOf(progress.ticks), thread,
                       texts.format(site->second, place)});
      } else {
         ++undescribed_;
      }
      progress.bytes += record->size;
   }
   return extent;
}

double Decoder::timeOf(U64 ticks) const {
   return openedTime_ + difference(ticks, openedTicks_) * secondsPerTick_;
}

} // namespace Ringlog
