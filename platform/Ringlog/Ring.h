// The writing side of the ring trace: `record` appends one trace of a call site. Always on. Relies
// on the codec for the arguments and on the layout for where they go.
//
// The ring lies in the file that the environment variable RINGLOG_FILE names (so that it outlives
// the process, however that ends), else in memory; a file belongs to the first process that opens
// it until that ends. RINGLOG_SIZE gives the ring's size in KiB, 1024 when it is not set. It is
// made when the first trace is written. A child process made by fork() goes on with pages of its
// own.
#pragma once

#include "Pello/TextTrace.h"
#include "Ringlog/detail/Codec.h"
#include "Ringlog/detail/Layout.h"

#include <atomic>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#if !defined(__x86_64__)
#include <chrono>
#endif

namespace Ringlog {

// A place in the source that traces. One static object per place; the ring gives it a number when
// it is reached for the first time.
struct CallSite {
   Pello::TracePoint point;
   std::atomic<U32> descriptor{0}; // 0: not registered yet
};

// The clock of records: the processor's time stamp counter where there is one.
inline U64 ticksNow() noexcept {
#if defined(__x86_64__)
   // The instruction without <x86intrin.h>, which declares every vector instruction there is.
   return __builtin_ia32_rdtsc();
#else
   return static_cast<U64>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

// Where a thread writes next. Null pointers until its first record.
struct Writer {
   std::byte* next = nullptr;
   std::byte* end = nullptr;
   BlockHeader* block = nullptr;
   U64 moment = 0;   // ticks that records share at the moment; 0: each reads the clock
   U64 dueTicks = 0; // from these ticks on, the ring's clock pair is too old
   U32 count = 0;    // records in the block
};

namespace Detail {
// Defined once in this library; the model spares a call per access from every other library.
[[gnu::tls_model("initial-exec")]] extern thread_local constinit Writer writer;

// Claims a block for this thread, opening the ring if it has to. The block is the thread's own
// until it claims the next one or ends.
void claimBlock();
// Reads both clocks into the ring's header, so that a reader can tell the time of a record of these
// ticks however long the process has been quiet before.
void refreshClocks(U64 ticks);
// Gives the call site its number and writes its descriptor.
U32 registerCallSite(CallSite& site, std::span<const ArgumentKind> kinds);
} // namespace Detail

// Appends one record. Never fails: what cannot be kept is counted as lost in the ring's header.
template <class... Arguments>
void record(CallSite& site, const Arguments&... arguments) {
   static_assert((sizeof(RecordHeader) + ... + largestArgument<Arguments>()) <= blockCapacity,
                 "the arguments of this trace may not fit a block");
   static_assert((0 + ... + Detail::kindCount<Arguments>()) <= mostKinds, "too many arguments");
   U32 descriptor = site.descriptor.load(std::memory_order_relaxed);
   if (descriptor == 0) [[unlikely]] {
      descriptor = Detail::registerCallSite(site, argumentKinds<Arguments...>());
   }
   const std::size_t size = (sizeof(RecordHeader) + ... + argumentSize(arguments));
   Writer& writer = Detail::writer;
   if (static_cast<std::size_t>(writer.end - writer.next) < size) [[unlikely]] {
      Detail::claimBlock();
   }
   const U64 ticks = writer.moment != 0 ? writer.moment : ticksNow();
   if (ticks >= writer.dueTicks) [[unlikely]] {
      Detail::refreshClocks(ticks);
   }
   std::byte* to = writer.next;
   const RecordHeader header{static_cast<U32>(size), descriptor, ticks};
   std::memcpy(to, &header, sizeof header);
   to += sizeof header;
   ((to = writeArgument(to, arguments)), ...);
   writer.next = to;
   ++writer.count;
   const auto* begin = reinterpret_cast<std::byte*>(writer.block + 1);
   writer.block->used.store(static_cast<U32>(to - begin), std::memory_order_release);
}

// While it lives, the records of this thread share one reading of the clock, which costs more than
// the rest of a record. For stretches well below a microsecond per record that are traced densely;
// their records keep their order. Moments nest: the outermost one counts.
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
   U64 outer_;
};

// A copy of this process's ring as it is now; empty before the first record.
std::vector<std::byte> snapshot();

// Writes a line that ends the process, such as a failed assertion.
void recordFatal(std::string_view line);

} // namespace Ringlog
