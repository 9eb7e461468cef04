// How the framework hashes: `hashBytes` and `hashNumber` for one value, `HashState` for several. A
// hash is for tables in this process: it must not be stored or sent, because it may differ between
// versions and machines. Relies on xxHash, in its source only.
#pragma once

#include "Pello/Types.h"

#include <cstddef>
#include <string_view>
#include <type_traits>

namespace Kiv {

// The XXH3 hash of the `size` bytes at `data`, which may be null when `size` is 0.
U64 hashBytes(const void* data, std::size_t size, U64 seed) noexcept;

// The hash of the bytes of `text`.
inline U64 hashString(std::string_view text, U64 seed) noexcept {
   return hashBytes(text.data(), text.size(), seed);
}

// The hash of one number, in a few instructions and without a call.
constexpr U64 hashNumber(U64 number, U64 seed) noexcept {
   // The finaliser of SplitMix64 (Steele, Lea, Flood: Fast Splittable Pseudorandom Number
   // Generators, 2014): every input bit influences every output bit.
   U64 mixed = number + seed * 0x9e3779b97f4a7c15U + 0x9e3779b97f4a7c15U;
   mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9U;
   mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebU;
   return mixed ^ (mixed >> 31);
}

// Mixes several numbers or hashes into one; their order counts.
class HashState {
 public:
   constexpr explicit HashState(U64 seed) noexcept : state_{seed} {}
   constexpr HashState& mix(U64 number) noexcept {
      state_ = hashNumber(number, state_);
      return *this;
   }
   // The hash of everything mixed in so far.
   constexpr U64 result() const noexcept { return state_; }

 private:
   U64 state_;
};

// The hash seed of the process: drawn at the first call and the same ever after. It keeps a peer
// from sending keys that were prepared to collide. May be called from several threads.
U64 processHashSeed() noexcept;

// Sets the hash seed, for a process whose output must be the same at every run: the order of a hash
// set depends on the seed. Has no effect once `processHashSeed` has been called, as a collection
// that hashes per process does when it is made. Must not be called while other threads use either.
void processHashSeedIs(U64 seed) noexcept;

} // namespace Kiv
