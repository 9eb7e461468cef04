#include "Ringlog/Ring.h"

#include "Pello/Assert.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <optional>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Ringlog {

thread_local constinit Writer Detail::writer{};

namespace {

U64 nanosecondsNow() {
   timespec now{};
   ::clock_gettime(CLOCK_REALTIME, &now);
   return static_cast<U64>(now.tv_sec) * 1'000'000'000U + static_cast<U64>(now.tv_nsec);
}

void readClocks(ClockPair& pair) {
   pair.ticks.store(ticksNow(), std::memory_order_relaxed);
   pair.nanoseconds.store(nanosecondsNow(), std::memory_order_relaxed);
}

// RINGLOG_SIZE in blocks, at least two: one to read while the other is written.
std::size_t blocksWanted() {
   const char* setting = std::getenv("RINGLOG_SIZE");
   if (setting == nullptr) {
      return defaultBlocks;
   }
   std::size_t kibibytes = 0;
   const char* last = setting + std::strlen(setting);
   const auto [end, error] = std::from_chars(setting, last, kibibytes);
   constexpr std::size_t least = 2 * blockSize / 1024;
   constexpr std::size_t most = std::size_t{4} * 1024 * 1024;
   if (error != std::errc{} || end != last || kibibytes < least || kibibytes > most) {
      std::fprintf(stderr, "RINGLOG_SIZE=%s ignored: expected a number of KiB from %zu to %zu\n",
                   setting, least, most);
      return defaultBlocks;
   }
   return kibibytes * 1024 / blockSize;
}

// The mapped ring of this process. Never unmapped: traces are written until the very end.
class Ring {
 public:
   // The file when one is wanted and can be had, else memory.
   Ring() : blocks_{blocksWanted()} {
      const char* path = std::getenv("RINGLOG_FILE");
      if (path == nullptr || *path == '\0' || !mapFile(path)) {
         mapMemory();
      }
      header_ = new (base_) RingHeader{};
      header_->blockCount = static_cast<U32>(blocks_);
      header_->processId = static_cast<U32>(::getpid());
      readClocks(header_->opened);
      readClocks(header_->latest);
      // Last: a reader that finds the magic number finds everything else.
      std::atomic_thread_fence(std::memory_order_release);
      header_->magic = ringMagic;
   }

   RingHeader& header() { return *header_; }
   std::byte* descriptors() { return base_ + headerSize; }
   std::span<const std::byte> bytes() const { return {base_, ringSize(blocks_)}; }
   BlockHeader* block(U64 claim) {
      std::byte* blocks = base_ + headerSize + descriptorAreaSize;
      return reinterpret_cast<BlockHeader*>(blocks + claim % blocks_ * blockSize);
   }

   // The child of a fork writes into pages of its own from now on.
   void becomePrivate() {
      if (file_ >= 0) {
         ::mmap(base_, ringSize(blocks_), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file_,
                0);
      }
   }

 private:
   bool mapFile(const char* path) {
      file_ = ::open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
      const std::size_t size = ringSize(blocks_);
      if (file_ < 0 || ::ftruncate(file_, static_cast<off_t>(size)) != 0 || !map(MAP_SHARED)) {
         std::fprintf(stderr, "RINGLOG_FILE=%s ignored: %s\n", path, std::strerror(errno));
         if (file_ >= 0) {
            ::close(file_);
         }
         file_ = -1;
         return false;
      }
      return true;
   }

   void mapMemory() {
      if (!map(MAP_PRIVATE | MAP_ANONYMOUS)) {
         throw std::bad_alloc{};
      }
   }

   bool map(int flags) {
      void* at =
         ::mmap(nullptr, ringSize(blocks_), PROT_READ | PROT_WRITE, flags, file_, 0);
      base_ = at == MAP_FAILED ? nullptr : static_cast<std::byte*>(at);
      return base_ != nullptr;
   }

   std::size_t blocks_;
   int file_ = -1; // -1: the ring is in memory
   std::byte* base_ = nullptr;
   RingHeader* header_ = nullptr;
};

constinit std::mutex ringMutex;
constinit Ring* openRing = nullptr; // guarded by the mutex

// Call with the mutex held.
Ring& ringLocked() {
   if (openRing == nullptr) {
      openRing = new Ring;
      ::pthread_atfork(nullptr, nullptr, [] { openRing->becomePrivate(); });
   }
   return *openRing;
}

// Appends numbers and text to a descriptor.
class DescriptorWriter {
 public:
   void number(U32 value) {
      const auto* bytes = reinterpret_cast<const std::byte*>(&value);
      bytes_.insert(bytes_.end(), bytes, bytes + sizeof value);
   }
   void text(std::string_view text) {
      number(static_cast<U32>(text.size()));
      const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
      bytes_.insert(bytes_.end(), bytes, bytes + text.size());
   }
   std::vector<std::byte>& bytes() { return bytes_; }

 private:
   std::vector<std::byte> bytes_;
};

std::vector<std::byte> describe(const Pello::TracePoint& point, U32 descriptor,
                                std::span<const ArgumentKind> kinds) {
   DescriptorWriter out;
   out.number(0); // the size, known at the end
   out.number(descriptor);
   out.number(point.line);
   out.number(point.level);
   out.text(point.source->name());
   out.text(point.className);
   out.text(point.functionName);
   out.text(point.format);
   out.number(static_cast<U32>(kinds.size()));
   for (const ArgumentKind& kind : kinds) {
      out.number(static_cast<unsigned char>(kind.code));
      out.text(kind.type);
      out.text(kind.name);
   }
   const auto size = static_cast<U32>(out.bytes().size());
   std::memcpy(out.bytes().data(), &size, sizeof size);
   return out.bytes();
}

constinit U32 nextDescriptor = 1; // guarded by the mutex

} // namespace

U32 Detail::registerCallSite(CallSite& site, std::span<const ArgumentKind> kinds) {
   const std::lock_guard lock{ringMutex};
   if (const U32 known = site.descriptor.load(std::memory_order_relaxed); known != 0) {
      return known; // another thread was first
   }
   Ring& ring = ringLocked();
   const U32 descriptor = nextDescriptor++;
   const std::vector<std::byte> bytes = describe(site.point, descriptor, kinds);
   RingHeader& header = ring.header();
   const U32 used = header.descriptorBytes.load(std::memory_order_relaxed);
   if (used + bytes.size() <= descriptorAreaSize) {
      std::memcpy(ring.descriptors() + used, bytes.data(), bytes.size());
      header.descriptorBytes.store(used + static_cast<U32>(bytes.size()),
                                   std::memory_order_release);
   } else {
      header.lostDescriptors.fetch_add(1, std::memory_order_relaxed);
   }
   readClocks(header.latest);
   site.descriptor.store(descriptor, std::memory_order_release);
   return descriptor;
}

void Detail::claimBlock() {
   const std::lock_guard lock{ringMutex};
   Ring& ring = ringLocked();
   const U64 claim = ring.header().claims.fetch_add(1, std::memory_order_relaxed);
   BlockHeader* block = ring.block(claim);
   // A reader that copies this block meanwhile sees the claim change and drops its copy.
   block->claim.store(0, std::memory_order_relaxed);
   std::atomic_thread_fence(std::memory_order_seq_cst);
   block->used.store(0, std::memory_order_relaxed);
   block->thread = static_cast<U32>(::syscall(SYS_gettid));
   block->claim.store(claim + 1, std::memory_order_release);
   readClocks(ring.header().latest);
   auto* begin = reinterpret_cast<std::byte*>(block + 1);
   writer = Writer{begin, begin + blockCapacity, block};
}

std::vector<std::byte> snapshot() {
   const std::lock_guard lock{ringMutex};
   if (openRing == nullptr) {
      return {};
   }
   readClocks(openRing->header().latest);
   const std::span<const std::byte> bytes = openRing->bytes();
   return {bytes.begin(), bytes.end()};
}

} // namespace Ringlog
