#include "Ringlog/Ring.h"

#include "Ringlog/detail/Description.h"
#include "Ringlog/detail/WrittenRing.h"

#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>

namespace Ringlog {

thread_local constinit Writer Detail::writer{};

namespace {

using Detail::WrittenRing;

// How long a thread goes on without reading both clocks again: about a second at 4 GHz. Behind the
// latest pair of readings a reader extrapolates, and the error grows with the distance.
constexpr U64 ticksBetweenClocks = U64{1} << 32;

constinit std::mutex ringMutex;
constinit WrittenRing* openRing = nullptr; // guarded by the mutex; null before the first record
constinit U64 claims = 0;                  // `Writer::claim` of the latest claim; guarded likewise

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

// Makes the ring if there is none, and mends one whose file was truncated. Requires the mutex.
WrittenRing& ringLocked() {
   if (openRing == nullptr) {
      openRing = new WrittenRing;
      ::pthread_key_create(&threadKey, endThread);
      ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
   }
   openRing->mend();
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

// Gives the calling thread the next free block, and the former one back. Requires the mutex.
void claimLocked(WrittenRing& ring, Thread& thread) {
   Writer& writer = Detail::writer;
   ring.release(thread.block, writer.count);
   thread.block = ring.claim();
   BlockHeader* block = thread.block != nullptr ? thread.block : nowhere(thread);
   auto* begin = reinterpret_cast<std::byte*>(block + 1);
   // The present moment goes on in the new block. The numbers of claims are not those of the ring,
   // which begin again with a new ring: marks of texts in the old one must not fit the new one.
   writer = Writer{.next = begin,
                   .end = begin + blockCapacity,
                   .block = block,
                   .claim = ++claims,
                   .moment = writer.moment};
}

// Whether the ring began anew under the thread, which now writes where no reader looks.
bool isBlockLost(const Thread& thread) {
   return thread.block != nullptr && thread.block->claim.load(std::memory_order_relaxed) == 0;
}

// The ring, in which the thread's next record is not lost. `record` calls what calls this before it
// looks for its place in the block, so the block may be another one afterwards. A new one has room
// for any record. Requires the mutex.
WrittenRing& ringOfThreadLocked() {
   WrittenRing& ring = ringLocked();
   if (Thread& thread = threadLocked(); isBlockLost(thread)) {
      claimLocked(ring, thread);
   }
   return ring;
}

constinit U32 nextDescriptor = 1; // guarded by the mutex

} // namespace

U32 Detail::registerCallSite(CallSite& site, std::span<const ArgumentKind> kinds) {
   const std::lock_guard lock{ringMutex};
   if (const U32 known = site.descriptor.load(std::memory_order_relaxed); known != 0) {
      return known; // another thread was first
   }
   WrittenRing& ring = ringOfThreadLocked();
   // A number is used up even when the descriptor finds no room: another site must never get it.
   const U32 descriptor = nextDescriptor++;
   ring.addDescriptor(describe(site.point, descriptor, kinds));
   readClocks(ring.header().latest);
   site.descriptor.store(descriptor, std::memory_order_release);
   return descriptor;
}

void Detail::claimBlock(U64 ticks) {
   const std::lock_guard lock{ringMutex};
   WrittenRing& ring = ringLocked();
   claimLocked(ring, threadLocked());
   readClocks(ring.header().latest);
   writer.dueTicks = ticks + ticksBetweenClocks;
}

void Detail::refreshClocks(U64 ticks) {
   const std::lock_guard lock{ringMutex};
   readClocks(ringOfThreadLocked().header().latest);
   writer.dueTicks = ticks + ticksBetweenClocks;
}

std::vector<std::byte> snapshot() {
   const std::lock_guard lock{ringMutex};
   if (openRing == nullptr) {
      return {};
   }
   WrittenRing& ring = ringLocked();
   Detail::readClocks(ring.header().latest);
   return ring.copy();
}

} // namespace Ringlog
