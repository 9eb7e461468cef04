// `bench-Framework`: what publication, counted references and objects cost, each beside a floor in
// the same run.
#include "Kiv/Entity.h"
#include "Kiv/Operation.h"
#include "Kiv/Reflection.h"
#include "Pello/ThreadSafety.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace Bench {

// One attribute, with nobody watching and published.
class Silent : public Kiv::Entity {
   KIV_ENTITY(Silent, Kiv::Entity, "Bench::Silent");
   KIV_ATTRIBUTE(130, U32, value);
};
class Published : public Kiv::Entity {
   KIV_ENTITY(Published, Kiv::Entity, "Bench::Published");
   KIV_PUBLISHED;
   KIV_ATTRIBUTE(130, U32, value);
};

} // namespace Bench

KIV_DEFINE_ENTITY(Bench::Silent)
KIV_DEFINE_ENTITY(Bench::Published)

namespace {

void loop(benchmark::State& state) {
   for ([[maybe_unused]] const auto step : state) {
      benchmark::ClobberMemory();
   }
}
BENCHMARK(loop);

// Publication -----------------------------------------------------------------------------------

void storeFloor(benchmark::State& state) {
   U32 value = 0;
   U32 next = 0;
   benchmark::DoNotOptimize(&value);
   for ([[maybe_unused]] const auto step : state) {
      value = ++next;
      benchmark::ClobberMemory();
   }
}
BENCHMARK(storeFloor);

void setUnpublished(benchmark::State& state) {
   const Bench::Silent::Ptr object = new Bench::Silent;
   benchmark::DoNotOptimize(object.get());
   U32 next = 0;
   for ([[maybe_unused]] const auto step : state) {
      object->valueIs(++next);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(setUnpublished);

// As many calls through std::function as there are subscribers, and nothing else.
void callFloor(benchmark::State& state) {
   U64 heard = 0;
   const std::vector<std::function<void(U32)>> callbacks(static_cast<std::size_t>(state.range(0)),
                                                         [&](U32 value) { heard += value; });
   U32 next = 0;
   for ([[maybe_unused]] const auto step : state) {
      ++next;
      for (const auto& callback : callbacks) {
         callback(next);
      }
      benchmark::ClobberMemory();
   }
   benchmark::DoNotOptimize(heard);
}
BENCHMARK(callFloor)->Arg(0)->Arg(1)->Arg(8);

void setPublished(benchmark::State& state) {
   const Bench::Published::Ptr object = new Bench::Published;
   U64 heard = 0;
   std::vector<Pello::Publisher::Subscription> subscriptions;
   for (std::int64_t i = 0; i < state.range(0); ++i) {
      subscriptions.push_back(object->publisher()->subscribe(
            [&](const Pello::Change& change) { heard += *change.oldValue.as<U32>(); }));
   }
   U32 next = 0;
   for ([[maybe_unused]] const auto step : state) {
      object->valueIs(++next);
      benchmark::ClobberMemory();
   }
   benchmark::DoNotOptimize(heard);
}
BENCHMARK(setPublished)->Arg(0)->Arg(1)->Arg(8);

// Counting --------------------------------------------------------------------------------------

// A counter's plain increment and decrement in memory.
void countFloor(benchmark::State& state) {
   U32 count = 0;
   benchmark::DoNotOptimize(&count);
   for ([[maybe_unused]] const auto step : state) {
      ++count;
      benchmark::ClobberMemory();
      --count;
      benchmark::ClobberMemory();
   }
}
BENCHMARK(countFloor);

// The argument is the thread-safety switch.
void copyReference(benchmark::State& state) {
   Pello::threadSafeIs(state.range(0) != 0);
   const Bench::Silent::Ptr object = new Bench::Silent;
   for ([[maybe_unused]] const auto step : state) {
      const Bench::Silent::Ptr copy = object;
      benchmark::ClobberMemory();
   }
   Pello::threadSafeIs(false);
}
BENCHMARK(copyReference)->Arg(0)->Arg(1);

// The heap's own way, and the object's through its tracker and the slab.
void newFloor(benchmark::State& state) {
   for ([[maybe_unused]] const auto step : state) {
      auto* memory = ::operator new(sizeof(Bench::Silent));
      benchmark::DoNotOptimize(memory);
      ::operator delete(memory, sizeof(Bench::Silent));
   }
}
BENCHMARK(newFloor);

void makeObject(benchmark::State& state) {
   Pello::threadSafeIs(state.range(0) != 0);
   for ([[maybe_unused]] const auto step : state) {
      const Bench::Silent::Ptr object = new Bench::Silent;
      benchmark::DoNotOptimize(object.get());
   }
   Pello::threadSafeIs(false);
}
BENCHMARK(makeObject)->Arg(0)->Arg(1);

} // namespace

int main(int argumentCount, char** arguments) {
   benchmark::Initialize(&argumentCount, arguments);
   if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) {
      return 2;
   }
   benchmark::RunSpecifiedBenchmarks();
   return 0;
}
