#include "Kiv/Hash.h"

#include <random>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace Kiv {

U64 hashBytes(const void* data, std::size_t size, U64 seed) noexcept {
   return XXH3_64bits_withSeed(data, size, seed);
}

U64 processHashSeed() noexcept {
   static const U64 seed = [] {
      std::random_device source;
      return (U64{source()} << 32) | source();
   }();
   return seed;
}

} // namespace Kiv
