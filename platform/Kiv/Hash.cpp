#include "Kiv/Hash.h"

#include <optional>
#include <random>

// Compiles the hash function into this source, so that no library has to be linked.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace Kiv {

U64 hashBytes(const void* data, std::size_t size, U64 seed) noexcept {
   return XXH3_64bits_withSeed(data, size, seed);
}

namespace {

// What `processHashSeedIs` has set, if anything.
std::optional<U64> fixedSeed;

U64 drawSeed() {
   // The system's entropy, 32 bits at a time: a peer cannot guess it, as it could a clock.
   std::random_device source;
   return (U64{source()} << 32) | source();
}

} // namespace

U64 processHashSeed() noexcept {
   static const U64 seed = fixedSeed ? *fixedSeed : drawSeed();
   return seed;
}

void processHashSeedIs(U64 seed) noexcept {
   fixedSeed = seed;
}

} // namespace Kiv
