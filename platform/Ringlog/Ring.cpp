#include "Ringlog/Ring.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sys/file.h>
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

// How long a pair of clock readings is good for: a second or a few. The rates of the two clocks are
// known from pairs; what follows the last one is only as good as that.
constexpr U64 ticksBetweenClocks = U64{1} << 32;

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
   constexpr std::size_t most = mostBlocks * blockSize / 1024;
   if (error != std::errc{} || end != last || kibibytes < least || kibibytes > most) {
      std::fprintf(stderr, "RINGLOG_SIZE=%s ignored: expected a number of KiB from %zu to %zu\n",
                   setting, least, most);
      return defaultBlocks;
   }
   return kibibytes * 1024 / blockSize;
}

// The mapped ring of this process. Never unmapped: traces are written until the very end. The
// ring's mutex guards everything here but the insides of blocks.
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
   BlockHeader* block(std::size_t number) { return blockIn(base_, number); }
   // A copy with no half record in it. Threads go on adding to their blocks meanwhile, so of each
   // block only what `used` says is complete is read; everything else changes under the mutex only.
   std::vector<std::byte> copy() {
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

   // The next block in turn that no other thread writes; null when there is none. The caller holds
   // it until `release`.
   BlockHeader* claim() {
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
   // Takes a block back that has `count` records in it. Null is allowed.
   void release(const BlockHeader* block, U32 count) {
      if (block != nullptr) {
         held_[numberOf(*block)] = false;
         counts_[numberOf(*block)] = count;
      }
   }

   // The child of a fork writes into pages of its own from now on. Of all threads only the one that
   // writes `block` (null for none) has come along.
   void becomeChilds(const BlockHeader* block) {
      held_.assign(blocks_, false);
      if (block != nullptr) {
         held_[numberOf(*block)] = true;
      }
      if (file_ >= 0) {
         if (::mmap(base_, ringSize(blocks_), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED,
                    file_, 0) == MAP_FAILED) {
            std::abort(); // the pages may be gone; the next trace would be a stray write
         }
         ::close(file_);
         file_ = -1;
      }
      header_->processId = static_cast<U32>(::getpid());
   }

 private:
   static BlockHeader* blockIn(std::byte* ring, std::size_t number) {
      return reinterpret_cast<BlockHeader*>(ring + ringSize(number));
   }
   std::size_t numberOf(const BlockHeader& block) const {
      const auto* at = reinterpret_cast<const std::byte*>(&block);
      return (static_cast<std::size_t>(at - base_) - ringSize(0)) / blockSize;
   }
   // A reader of the file may look at any moment: the claim is 0 while the rest changes.
   void empty(std::size_t number, U64 claim) {
      BlockHeader& emptied = *block(number);
      emptied.claim.store(0, std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_seq_cst);
      header_->overwritten.fetch_add(counts_[number], std::memory_order_relaxed);
      counts_[number] = 0;
      emptied.used.store(0, std::memory_order_relaxed);
      emptied.thread = static_cast<U32>(::syscall(SYS_gettid));
      emptied.claim.store(claim + 1, std::memory_order_release);
   }

   // The same file under a number behind those of the standard streams. In a process that has
   // closed one of these, what it prints would go into the ring.
   static int aboveStandard(int file) {
      if (file < 0 || file > STDERR_FILENO) {
         return file;
      }
      const int above = ::fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
      ::close(file);
      return above;
   }

   bool mapFile(const char* path) {
      file_ = aboveStandard(::open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
      if (file_ >= 0 && prepareFile() && map(MAP_SHARED)) {
         return true;
      }
      const char* reason =
            errno == EWOULDBLOCK ? "another process traces into it" : std::strerror(errno);
      std::fprintf(stderr, "RINGLOG_FILE=%s ignored: %s\n", path, reason);
      if (file_ >= 0) {
         ::close(file_);
      }
      file_ = -1;
      return false;
   }

   // Takes the file for this process, and makes it zeros with room on the disk: a page that is cut
   // off, or that the disk cannot hold, would end the process that writes to it. False with the
   // reason in `errno`.
   bool prepareFile() {
      const auto size = static_cast<off_t>(ringSize(blocks_));
      if (::flock(file_, LOCK_EX | LOCK_NB) != 0 || ::ftruncate(file_, 0) != 0) {
         return false;
      }
      errno = ::posix_fallocate(file_, 0, size);
      return errno == 0;
   }

   void mapMemory() {
      if (!map(MAP_PRIVATE | MAP_ANONYMOUS)) {
         throw std::bad_alloc{};
      }
   }

   bool map(int flags) {
      void* at = ::mmap(nullptr, ringSize(blocks_), PROT_READ | PROT_WRITE, flags, file_, 0);
      base_ = at == MAP_FAILED ? nullptr : static_cast<std::byte*>(at);
      return base_ != nullptr;
   }

   std::size_t blocks_;
   std::vector<bool> held_ = std::vector<bool>(blocks_, false); // blocks that a thread writes
   std::vector<U32> counts_ = std::vector<U32>(blocks_, 0); // records in blocks that none writes
   int file_ = -1; // -1: the ring is in memory, or a child's
   std::byte* base_ = nullptr;
   RingHeader* header_ = nullptr;
};

constinit std::mutex ringMutex;
constinit Ring* openRing = nullptr; // guarded by the mutex

// The child of a fork must find the mutex free and the ring in order.
void beforeFork() {
   ringMutex.lock();
}

void afterForkInParent() {
   ringMutex.unlock();
}

// What a thread writes besides its `Writer`; freed when the thread ends.
struct Thread {
   BlockHeader* block = nullptr;   // its own, in the ring; null for none
   std::vector<std::byte> nowhere; // written while the ring has no block for it
};

constinit pthread_key_t threadKey = 0; // made together with the ring

Thread* thisThread() {
   return static_cast<Thread*>(::pthread_getspecific(threadKey));
}

void afterForkInChild() {
   const Thread* thread = thisThread();
   openRing->becomeChilds(thread == nullptr ? nullptr : thread->block);
   ringMutex.unlock();
}

void endThread(void* ended) {
   const std::unique_ptr<Thread> thread{static_cast<Thread*>(ended)};
   const std::lock_guard lock{ringMutex};
   openRing->release(thread->block, Detail::writer.count);
   Detail::writer = {};
}

// Call with the mutex held.
Ring& ringLocked() {
   if (openRing == nullptr) {
      openRing = new Ring;
      ::pthread_key_create(&threadKey, endThread);
      ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
   }
   return *openRing;
}

// Call with the mutex held.
Thread& threadLocked() {
   Thread* thread = thisThread();
   if (thread == nullptr) {
      thread = new Thread;
      ::pthread_setspecific(threadKey, thread);
   }
   return *thread;
}

// Where a thread without a block writes.
BlockHeader* nowhere(Thread& thread) {
   thread.nowhere.resize(blockSize);
   return new (thread.nowhere.data()) BlockHeader{};
}

// Appends numbers and text to a descriptor.
class DescriptorWriter {
 public:
   void number(U32 value) {
      const auto* bytes = reinterpret_cast<const std::byte*>(&value);
      bytes_.insert(bytes_.end(), bytes, bytes + sizeof value);
   }
   void text(std::string_view text) {
      text = text.substr(0, longestText);
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
   Thread& thread = threadLocked();
   ring.release(thread.block, writer.count);
   thread.block = ring.claim();
   BlockHeader* block = thread.block != nullptr ? thread.block : nowhere(thread);
   auto* begin = reinterpret_cast<std::byte*>(block + 1);
   writer = Writer{begin, begin + blockCapacity, block, writer.moment};
}

void Detail::refreshClocks(U64 ticks) {
   const std::lock_guard lock{ringMutex};
   readClocks(ringLocked().header().latest);
   writer.dueTicks = ticks + ticksBetweenClocks;
}

std::vector<std::byte> snapshot() {
   const std::lock_guard lock{ringMutex};
   if (openRing == nullptr) {
      return {};
   }
   readClocks(openRing->header().latest);
   return openRing->copy();
}

} // namespace Ringlog
