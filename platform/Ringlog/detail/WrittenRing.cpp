#include "Ringlog/detail/WrittenRing.h"

#include "Pello/VisibleCharacters.h"
#include "Ringlog/Ring.h"
#include "Ringlog/detail/BusGuard.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Ringlog::Detail {

namespace {

// RINGLOG_SIZE in blocks. At least two: with a single block, each claim would erase all records.
std::size_t blocksWanted() {
   const char* setting = std::getenv("RINGLOG_SIZE");
   if (setting == nullptr) {
      return defaultBlocks;
   }
   std::size_t kibibytes = 0;
   const char* last = setting + std::strlen(setting);
   const auto [end, error] = std::from_chars(setting, last, kibibytes);
   constexpr std::size_t least = 2 * blockSize / 1024;
   constexpr std::size_t most = mostBlocks * blockSize / 1024;
   if (error != std::errc{} || end != last || kibibytes < least || kibibytes > most) {
      std::fprintf(stderr, "RINGLOG_SIZE=%s ignored: expected a number of KiB from %zu to %zu\n",
                   Pello::escaped(setting).c_str(), least, most);
      return defaultBlocks;
   }
   return kibibytes * 1024 / blockSize;
}

U64 nanosecondsNow() {
   timespec now{};
   ::clock_gettime(CLOCK_REALTIME, &now);
   return static_cast<U64>(now.tv_sec) * 1'000'000'000U + static_cast<U64>(now.tv_nsec);
}

BlockHeader* blockIn(std::byte* ring, std::size_t number) {
   return reinterpret_cast<BlockHeader*>(ring + ringSize(number));
}

// Null when nothing could be mapped. `at` null: anywhere.
std::byte* mapped(std::byte* at, std::size_t size, int flags, int file) {
   void* begin =
         ::mmap(at, size, PROT_READ | PROT_WRITE, flags | (at != nullptr ? MAP_FIXED : 0), file, 0);
   return begin == MAP_FAILED ? nullptr : static_cast<std::byte*>(begin);
}

} // namespace

void readClocks(ClockPair& pair) {
   pair.ticks.store(ticksNow(), std::memory_order_relaxed);
   pair.nanoseconds.store(nanosecondsNow(), std::memory_order_relaxed);
}

WrittenRing::WrittenRing() : blocks_{blocksWanted()}, held_(blocks_, false), counts_(blocks_, 0) {
   const char* path = std::getenv("RINGLOG_FILE");
   if (path != nullptr && *path != '\0') {
      file_.emplace(path, ringSize(blocks_));
      if (!file_->open()) {
         file_.reset();
      }
   }
   map();
   begin();
}

// Maps the file where the ring lies, or anywhere when it lies nowhere yet. Memory takes the place
// of a file that cannot be mapped.
void WrittenRing::map() {
   const bool isFirst = base_ == nullptr;
   const std::size_t size = ringSize(blocks_);
   if (file_) {
      if (std::byte* at = mapped(base_, size, MAP_SHARED, file_->descriptor())) {
         base_ = at;
         if (isFirst) {
            guardRing(base_, size, file_->descriptor(), file_->path());
         }
         return;
      }
      std::fprintf(stderr, "RINGLOG_FILE=%s ignored: it cannot be mapped. Traces stay in memory\n",
                   Pello::escaped(file_->path()).c_str());
      file_.reset();
   }
   base_ = mapped(base_, size, MAP_PRIVATE | MAP_ANONYMOUS, -1);
   if (base_ == nullptr) {
      throw std::bad_alloc{};
   }
}

// Fills in the header, the descriptors that are known, and empty blocks. Requires that the ring is
// mapped and was filled with zeros, apart from the mark, when it was.
void WrittenRing::begin() {
   header_ = reinterpret_cast<RingHeader*>(base_);
   header_->magic = ringInTheMaking;
   for (std::size_t number = 0; number < blocks_; ++number) {
      counts_[number] = 0;
      if (held_[number]) { // its thread may have written to it since the ring was mapped
         block(number)->claim.store(0, std::memory_order_relaxed);
      }
   }
   std::ranges::copy(descriptors_, base_ + headerSize);
   header_->blockCount = static_cast<U32>(blocks_);
   header_->processId = static_cast<U32>(::getpid());
   header_->lostDescriptors.store(lostDescriptors_, std::memory_order_relaxed);
   header_->descriptorBytes.store(static_cast<U32>(descriptors_.size()), std::memory_order_relaxed);
   readClocks(header_->opened);
   readClocks(header_->latest);
   // The magic number is written last: a reader that finds it finds everything else in place.
   std::atomic_thread_fence(std::memory_order_release);
   header_->magic = ringMagic;
}

// The handler of the fault has put memory in place of the file. Threads may have written to it
// since, so `map` replaces it even when the ring stays in memory.
void WrittenRing::mend() {
   const Loss loss = takeLoss();
   if (loss == Loss::none) {
      return;
   }
   if (file_ && (loss == Loss::failed || !file_->takeAgain())) {
      guardedFileIs(-1);
      file_.reset();
   }
   map();
   begin();
}

void WrittenRing::addDescriptor(std::span<const std::byte> descriptor) {
   const std::size_t used = descriptors_.size();
   if (used + descriptor.size() > descriptorAreaSize) {
      header_->lostDescriptors.store(++lostDescriptors_, std::memory_order_relaxed);
      return;
   }
   descriptors_.insert(descriptors_.end(), descriptor.begin(), descriptor.end());
   // First the bytes, then their number: a reader decodes no half descriptor.
   std::memcpy(base_ + headerSize + used, descriptor.data(), descriptor.size());
   header_->descriptorBytes.store(static_cast<U32>(descriptors_.size()), std::memory_order_release);
}

// The counter of claims grows also when a block is passed over, so claim n is always for block n
// modulo the number of blocks.
BlockHeader* WrittenRing::claim() {
   for (std::size_t tried = 0; tried < blocks_; ++tried) {
      const U64 claim = header_->claims.fetch_add(1, std::memory_order_relaxed);
      const std::size_t number = claim % blocks_;
      if (!held_[number]) {
         held_[number] = true;
         empty(number, claim);
         return block(number);
      }
   }
   header_->lostBlocks.fetch_add(1, std::memory_order_relaxed);
   return nullptr;
}

void WrittenRing::release(const BlockHeader* block, U32 count) {
   if (block != nullptr) {
      const std::size_t number = numberOf(*block);
      held_[number] = false;
      // Without a claim, the block was lost together with its file, and no reader has counted it.
      counts_[number] = block->claim.load(std::memory_order_relaxed) == 0 ? 0 : count;
   }
}

// Of each block, only the bytes that `used` calls complete are copied. Everything else changes only
// under the mutex.
std::vector<std::byte> WrittenRing::copy() {
   std::vector<std::byte> bytes(ringSize(blocks_));
   std::memcpy(bytes.data(), base_, ringSize(0));
   for (std::size_t number = 0; number < blocks_; ++number) {
      const BlockHeader& from = *block(number);
      const U32 used = from.used.load(std::memory_order_acquire);
      auto* to = new (blockIn(bytes.data(), number)) BlockHeader{};
      to->claim.store(from.claim.load(std::memory_order_relaxed), std::memory_order_relaxed);
      to->used.store(used, std::memory_order_relaxed);
      to->thread = from.thread;
      std::memcpy(static_cast<void*>(to + 1), &from + 1, used);
   }
   return bytes;
}

// A private mapping replaces the shared one at the same address, because the threads' writers
// and `header_` point there.
void WrittenRing::becomeChilds(const BlockHeader* block) {
   held_.assign(blocks_, false);
   if (block != nullptr) {
      held_[numberOf(*block)] = true;
   }
   if (file_) {
      guardedFileIs(-1);
      if (mapped(base_, ringSize(blocks_), MAP_PRIVATE, file_->descriptor()) == nullptr) {
         std::abort(); // the pages may be unmapped; the next trace would be a stray write
      }
      file_.reset();
   }
   header_->processId = static_cast<U32>(::getpid());
}

BlockHeader* WrittenRing::block(std::size_t number) {
   return blockIn(base_, number);
}

std::size_t WrittenRing::numberOf(const BlockHeader& block) const {
   const auto* at = reinterpret_cast<const std::byte*>(&block);
   return (static_cast<std::size_t>(at - base_) - ringSize(0)) / blockSize;
}

// A process that reads the file may look at any moment. The claim is 0 while the other members
// change, and the fence keeps them from changing before it is. The number is stored plus one,
// because claims begin with 0.
void WrittenRing::empty(std::size_t number, U64 claim) {
   BlockHeader& emptied = *block(number);
   emptied.claim.store(0, std::memory_order_relaxed);
   std::atomic_thread_fence(std::memory_order_seq_cst);
   header_->overwritten.fetch_add(counts_[number], std::memory_order_relaxed);
   counts_[number] = 0;
   emptied.used.store(0, std::memory_order_relaxed);
   emptied.thread = static_cast<U32>(::syscall(SYS_gettid));
   emptied.claim.store(claim + 1, std::memory_order_release);
}

} // namespace Ringlog::Detail
