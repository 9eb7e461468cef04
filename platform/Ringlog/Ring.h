// The writing side of the ring trace: `record` appends one trace of a call site. The ring trace has
// no switch: every process that traces has a ring. Relies on the codec for the bytes of arguments
// and on the layout for their place.
//
// The first record makes the ring. Two environment variables are read then:
//
//   RINGLOG_FILE   the file that holds the ring, so that the ring outlives the process however the
//                  process ends. Not set or empty: the ring lies in memory.
//   RINGLOG_SIZE   the size of all blocks in KiB, from 128 to 4194304, rounded down to whole
//                  blocks; 1024 when it is not set. Any other value is reported on standard error
//                  and ignored.
//
// The file must not exist, be empty or hold a ring, which the new one replaces. It gets mode 0600.
// The process locks it, flock(2). What else the name may stand for is left as it is: a file with
// other content, one that another process has locked or another user owns, a link, a device. Then,
// and when there is no room for the whole ring, one line on standard error says why and what to
// do, an old ring in the file stays, and the ring lies in memory.
//
// A process with a ring file has a handler for SIGBUS from its first record on (BusGuard.h), so
// that truncating the file does not end it. The traces in the file are lost then, standard error
// says so once, and a new ring begins in the file, at the latest with the first trace of a thread
// that comes a second or two later. A process without a ring file has no handler of ours.
//
// Threads: any thread may call any function here at any time, but not from a signal handler, which
// may have interrupted a record half written. A child process made by fork(2) writes to memory
// of its own from then on; the file stays the parent's.
#pragma once

#include "Pello/TextTrace.h"
#include "Ringlog/detail/Codec.h"
#include "Ringlog/detail/Layout.h"
#include "Ringlog/detail/Writer.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#if !defined(__x86_64__)
#include <chrono>
#endif

namespace Ringlog {

// A place in the source that traces. Requires static storage and one object per place: `record`
// keeps the number of the place in it. RINGLOG_TRACE declares it.
struct CallSite {
   Pello::TracePoint point;
   // The number of the site in this process's ring, given by its first record. 0: none yet.
   std::atomic<U32> descriptor{0};
};

// The clock of records: on x86-64 the processor's time stamp counter, elsewhere the steady clock.
// The unit is not known here. A reader derives it from the clock readings in the ring's header.
inline U64 ticksNow() noexcept {
#if defined(__x86_64__)
   // The instruction without <x86intrin.h>, which declares every vector instruction there is.
   return __builtin_ia32_rdtsc();
#else
   return static_cast<U64>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

namespace Detail {
// Claims the next free block for this thread and makes the ring if there is none. The thread is the
// only writer of the block until it claims the next one or ends. Without a free block, the thread
// gets memory outside the ring: its records are lost, and the ring's header counts the loss. Reads
// both clocks as `refreshClocks` does.
void claimBlock(U64 ticks);
// Reads both clocks into the ring's header. `ticks` are those of the record about to be written.
// `record` calls it when the clocks were last read a few seconds ago, so that the times of records
// are right after hours of silence. May give the thread another block.
void refreshClocks(U64 ticks);
// Gives the call site its number, unless another thread was faster, and writes its descriptor.
// Returns the number, never 0.
U32 registerCallSite(CallSite& site, std::span<const ArgumentKind> kinds);

// Writes the header of a record that has `size` bytes with a whole header, and returns where its
// arguments begin. Leaves out ticks that are those of the record before.
inline std::byte* writeHeader(std::byte* to, U32 size, U32 descriptor, U64 ticks) noexcept {
   if (ticks == writer.latest) {
      constexpr U32 leftOut = sizeof(RecordHeader) - shortHeaderSize;
      const std::array<U32, 2> header{(size - leftOut) | ticksLeftOut, descriptor};
      static_assert(sizeof header == shortHeaderSize);
      std::memcpy(to, header.data(), sizeof header);
      return to + sizeof header;
   }
   writer.latest = ticks;
   const RecordHeader header{size, descriptor, ticks};
   std::memcpy(to, &header, sizeof header);
   return to + sizeof header;
}
} // namespace Detail

// Appends one record of `site` with these arguments. Text is cut to `longestText` bytes.
//
// Throws only std::bad_alloc: the first record of a process, of a thread and of a call site needs
// memory. Records that find no place in the ring are counted in its header. The types of the
// arguments are those of Codec.h and must be the same at every call for one site. Does not compile
// when the longest possible arguments do not fit a block.
template <class... Arguments>
void record(CallSite& site, const Arguments&... arguments) {
   static_assert((sizeof(RecordHeader) + ... + largestArgument<Arguments>()) <= blockCapacity,
                 "the arguments of this trace may not fit a block");
   static_assert((0 + ... + Detail::kindCount<Arguments>()) <= mostKinds, "too many arguments");
   U32 descriptor = site.descriptor.load(std::memory_order_relaxed);
   if (descriptor == 0) [[unlikely]] {
      descriptor = Detail::registerCallSite(site, argumentKinds<Arguments...>());
   }
   Writer& writer = Detail::writer;
   const U64 ticks = writer.moment != 0 ? writer.moment : ticksNow();
   if (ticks >= writer.dueTicks) [[unlikely]] {
      Detail::refreshClocks(ticks);
   }
   // Computed for the present block: a text may refer to another one in it.
   std::size_t size = (sizeof(RecordHeader) + ... + argumentSize(arguments));
   if (static_cast<std::size_t>(writer.end - writer.next) < size) [[unlikely]] {
      Detail::claimBlock(ticks);
      size = (sizeof(RecordHeader) + ... + argumentSize(arguments));
   }
   std::byte* to = Detail::writeHeader(writer.next, static_cast<U32>(size), descriptor, ticks);
   ((to = writeArgument(to, arguments)), ...);
   writer.next = to;
   ++writer.count;
   // Last, and released: a reader that sees the new number of bytes sees the whole record. A
   // process that is killed before this line leaves no half record behind.
   writer.block->used.store(static_cast<U32>(to - Detail::recordsOf(writer)),
                            std::memory_order_release);
}

// While a `SharedMoment` lives, the records of its thread share one reading of the clock, because
// the reading costs more than the rest of a record. Meant for code that writes several records
// within a microsecond or so: the times of all of them are that of the first. The records keep
// their order. Moments may be nested; the outermost one gives the time. Must be destroyed by the
// thread that made it, so it is a local variable.
class SharedMoment {
 public:
   SharedMoment() noexcept : outer_{Detail::writer.moment} {
      if (outer_ == 0) {
         Detail::writer.moment = ticksNow();
      }
   }
   SharedMoment(const SharedMoment&) = delete;
   SharedMoment& operator=(const SharedMoment&) = delete;
   ~SharedMoment() { Detail::writer.moment = outer_; }

 private:
   U64 outer_; // the moment of the enclosing object; 0: there is none
};

// A copy of this process's ring as it is now, in the layout of a ring file; empty before the first
// record. Other threads may go on writing meanwhile: the copy holds the records that were complete
// when their block was copied.
std::vector<std::byte> snapshot();

// Records the line of a failed assertion, at level 0 of the source "Ringlog". The process ends
// after the call; this function does not end it.
void recordFatal(std::string_view line);

} // namespace Ringlog
