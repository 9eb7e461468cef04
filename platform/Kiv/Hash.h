// How the framework hashes: `hashBytes` for one value, `HashState` for several. The mixer is XXH3;
// nothing depends on the numbers it yields, and they may differ between versions.
#pragma once

#include "Pello/Types.h"

#include <cstddef>
#include <string_view>
#include <type_traits>

namespace Kiv {

U64 hashBytes(const void* data, std::size_t size, U64 seed) noexcept;

// The hash of text.
inline U64 hashString(std::string_view text, U64 seed) noexcept {
   return hashBytes(text.data(), text.size(), seed);
}

// The hash of a single number; much cheaper than `hashBytes`.
constexpr U64 hashNumber(U64 number, U64 seed) noexcept {
   // The finaliser of SplitMix64 (Steele, Lea, Flood 2014): every input bit reaches every output
   // bit.
   U64 mixed = number + seed * 0x9e3779b97f4a7c15U + 0x9e3779b97f4a7c15U;
   mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9U;
   mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebU;
   return mixed ^ (mixed >> 31);
}

// Mixes several hashes or numbers; their order counts.
class HashState {
 public:
   constexpr explicit HashState(U64 seed) noexcept : state_{seed} {}
   constexpr HashState& mix(U64 number) noexcept {
      state_ = hashNumber(number, state_);
      return *this;
   }
   constexpr U64 result() const noexcept { return state_; }

 private:
   U64 state_;
};

// A number drawn once per process, so that nobody can prepare colliding keys.
U64 processHashSeed() noexcept;

// Fixes that number, for a process whose output must be the same every time. Has an effect only
// before the first collection asks for it.
void processHashSeedIs(U64 seed) noexcept;

} // namespace Kiv
