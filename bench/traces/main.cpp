// `bench-Traces`: what a trace point costs, each beside a floor in the same run.
#include "Pello/String.h"
#include "Ringlog/Trace.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <cstring>

namespace {

const Pello::TraceSource traceSource{"Bench"};

// Nothing but a loop.
void emptyFloor(benchmark::State& state) {
   for ([[maybe_unused]] const auto step : state) {
      benchmark::ClobberMemory();
   }
}
BENCHMARK(emptyFloor);

// The time stamp that every record needs.
void timeStampFloor(benchmark::State& state) {
   for ([[maybe_unused]] const auto step : state) {
      benchmark::DoNotOptimize(Ringlog::ticksNow());
   }
}
BENCHMARK(timeStampFloor);

// The bytes of a record without arguments, or with a text of 60 characters, and a time stamp, into
// a buffer of the ring's size that is written round and round.
template <std::size_t textSize>
void rawRecordFloor(benchmark::State& state) {
   static std::array<std::byte, Ringlog::defaultBlocks * Ringlog::blockSize> buffer;
   constexpr std::size_t size =
         sizeof(Ringlog::RecordHeader) + (textSize == 0 ? 0 : Ringlog::padded(4 + textSize));
   const std::array<char, 64> text{};
   std::byte* to = buffer.data();
   for ([[maybe_unused]] const auto step : state) {
      if (buffer.data() + buffer.size() - to < static_cast<std::ptrdiff_t>(size)) {
         to = buffer.data();
      }
      const Ringlog::RecordHeader header{size, 1, Ringlog::ticksNow()};
      std::memcpy(to, &header, sizeof header);
      std::memcpy(to + sizeof header + (textSize == 0 ? 0 : 4), text.data(), textSize);
      to += size;
      benchmark::ClobberMemory();
   }
}
BENCHMARK(rawRecordFloor<0>);
BENCHMARK(rawRecordFloor<60>);

void recordEntry(benchmark::State& state) {
   for ([[maybe_unused]] const auto step : state) {
      RINGLOG_ENTRY();
      benchmark::ClobberMemory();
   }
}
BENCHMARK(recordEntry);

void recordNumber(benchmark::State& state) {
   U32 number = 0;
   for ([[maybe_unused]] const auto step : state) {
      RINGLOG_TRACE(9, "{}", number);
      ++number;
      benchmark::ClobberMemory();
   }
}
BENCHMARK(recordNumber);

void recordName60(benchmark::State& state) {
   const Pello::String name{std::string(60, 'n')};
   for ([[maybe_unused]] const auto step : state) {
      RINGLOG_TRACE(5, "Rule Name : {}", name);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(recordName60);

// The text side of a trace point whose level is off.
void disabledTextTrace(benchmark::State& state) {
   const Pello::String name{std::string(60, 'n')};
   for ([[maybe_unused]] const auto step : state) {
      if (traceSource.enabled(5)) [[unlikely]] {
         static constinit Ringlog::CallSite site{{&traceSource, __LINE__, "", __func__, "{}", 5}};
         Ringlog::formatText<Pello::String>(site, "{}", name);
      }
      benchmark::ClobberMemory();
   }
}
BENCHMARK(disabledTextTrace);

} // namespace

int main(int argumentCount, char** arguments) {
   ::unsetenv("RINGLOG_FILE");
   ::unsetenv("RINGLOG_SIZE");
   Pello::traceLevelsIs("");
   benchmark::Initialize(&argumentCount, arguments);
   if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) {
      return 2;
   }
   benchmark::RunSpecifiedBenchmarks();
   return 0;
}
