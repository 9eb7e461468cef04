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

// How long a thread goes on without reading both clocks again: about a second at 4 GHz. Behind the
// latest pair of readings a reader extrapolates, and the error grows with the distance.
constexpr U64 ticksBetweenClocks = U64{1} << 32;

void readClocks(ClockPair& pair) {
   pair.ticks.store(ticksNow(), std::memory_order_relaxed);
   pair.nanoseconds.store(nanosecondsNow(), std::memory_order_relaxed);
}

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
                   setting, least, most);
      return defaultBlocks;
   }
   return kibibytes * 1024 / blockSize;
}

// The ring of this process. Never destroyed or unmapped, because destructors of static objects may
// trace until the process ends. `ringMutex` guards every operation here. The records in a block and
// its `used` are not guarded: only the thread that holds the block writes them.
class Ring {
 public:
   // Maps the file of RINGLOG_FILE, or memory. Throws std::bad_alloc when there is neither.
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
      // The magic number is written last: a reader that finds it finds everything else in place.
      std::atomic_thread_fence(std::memory_order_release);
      header_->magic = ringMagic;
   }

   RingHeader& header() { return *header_; }
   std::byte* descriptors() { return base_ + headerSize; }
   BlockHeader* block(std::size_t number) { return blockIn(base_, number); }
   // A copy without half records. Threads go on adding to their blocks meanwhile. Therefore only
   // the bytes that `used` calls complete are copied of each block. Everything else changes only
   // under the mutex, which the caller holds.
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

   // Empties the next block in turn that no thread holds and returns it. The calling thread holds
   // it until `release`. Null when threads hold all blocks.
   //
   // The counter of claims grows also when a block is passed over, so claim n is always for block n
   // modulo the number of blocks.
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
   // Frees a block that has `count` records in it. Null, for a thread that has written outside the
   // ring, does nothing.
   void release(const BlockHeader* block, U32 count) {
      if (block != nullptr) {
         held_[numberOf(*block)] = false;
         counts_[numberOf(*block)] = count;
      }
   }

   // Detaches the child of a fork from its parent's file. A private mapping replaces the shared one
   // at the same address, because the threads' writers and `header_` point there. Only the forking
   // thread exists in the child, so only its `block` (null: it has none) stays held; the blocks of
   // all other threads would otherwise be lost to the child.
   void becomeChilds(const BlockHeader* block) {
      held_.assign(blocks_, false);
      if (block != nullptr) {
         held_[numberOf(*block)] = true;
      }
      if (file_ >= 0) {
         if (::mmap(base_, ringSize(blocks_), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED,
                    file_, 0) == MAP_FAILED) {
            std::abort(); // the pages may be unmapped; the next trace would be a stray write
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
   // A process that reads the file may look at any moment. The claim is 0 while the other members
   // change, and the fence keeps them from changing before it is. The number is stored plus one,
   // because claims begin with 0.
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

   // Moves a file descriptor above those of the standard streams. A process that has closed
   // standard error gets its number for a file that it opens later, and would print its messages
   // into the ring. Negative when `file` is or when there is no descriptor left, with the reason in
   // `errno`.
   static int aboveStandard(int file) {
      if (file < 0 || file > STDERR_FILENO) {
         return file;
      }
      const int above = ::fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
      ::close(file);
      return above;
   }

   // False, after a message, when the file cannot be used. A symbolic link is refused, because
   // somebody else may have made it and this process would erase the file that it points to.
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

   // Locks the file for this process and fills it with zeros. The lock comes first, so that the
   // ring of another process is not erased. Truncating to 0 erases what is there. Allocating the
   // blocks on the disk now keeps a full disk from ending the process later: a write to a mapped
   // page without a block raises SIGBUS. False with the reason in `errno`.
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
   std::vector<bool> held_ = std::vector<bool>(blocks_, false); // by block: a thread writes it
   std::vector<U32> counts_ = std::vector<U32>(blocks_, 0); // by block: records, when it is free
   int file_ = -1; // kept open for `becomeChilds`; -1: the ring is in memory, or a child's
   std::byte* base_ = nullptr;
   RingHeader* header_ = nullptr;
};

constinit std::mutex ringMutex;
constinit Ring* openRing = nullptr; // guarded by the mutex; null before the first record

// Only the forking thread lives on in the child. If another thread held the mutex at that moment,
// nobody in the child would ever unlock it. Therefore the forking thread takes it before fork(2),
// and both processes unlock it.
void beforeFork() {
   ringMutex.lock();
}

void afterForkInParent() {
   ringMutex.unlock();
}

// What a thread has besides its `Writer`, freed when it ends. Kept under a pthread key and not in a
// thread-local variable: key destructors run after those of thread-local objects, which may trace.
struct Thread {
   BlockHeader* block = nullptr;   // the block that it holds in the ring; null: it holds none
   std::vector<std::byte> nowhere; // the memory it writes to while the ring has no block for it
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

// A trace after this call, from the destructor of another key, claims a block again and sets the
// key again; the C library then calls this function once more.
void endThread(void* ended) {
   const std::unique_ptr<Thread> thread{static_cast<Thread*>(ended)};
   const std::lock_guard lock{ringMutex};
   openRing->release(thread->block, Detail::writer.count);
   Detail::writer = {};
}

// Makes the ring if there is none. Requires the mutex.
Ring& ringLocked() {
   if (openRing == nullptr) {
      openRing = new Ring;
      ::pthread_key_create(&threadKey, endThread);
      ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
   }
   return *openRing;
}

// Requires the mutex and the ring, which comes with the key.
Thread& threadLocked() {
   Thread* thread = thisThread();
   if (thread == nullptr) {
      thread = new Thread;
      ::pthread_setspecific(threadKey, thread);
   }
   return *thread;
}

// A block outside the ring for a thread that got none, so that `record` needs no test for that
// case.
BlockHeader* nowhere(Thread& thread) {
   thread.nowhere.resize(blockSize);
   return new (thread.nowhere.data()) BlockHeader{};
}

// Appends numbers and unpadded text to a descriptor.
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
   out.number(0); // the size, overwritten below
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
   // A number is used up even when the descriptor finds no room: another site must never get it.
   const U32 descriptor = nextDescriptor++;
   const std::vector<std::byte> bytes = describe(site.point, descriptor, kinds);
   RingHeader& header = ring.header();
   const U32 used = header.descriptorBytes.load(std::memory_order_relaxed);
   // First the bytes, then their number: a reader decodes no half descriptor.
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
   // The present moment goes on in the new block. `dueTicks` becomes 0: the next record refreshes
   // the ring's clocks.
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
