// `textSize` and `writeText`: how a whole text stands in a record. Relies on the layout.
#pragma once

#include "Ringlog/detail/Layout.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace Ringlog {

// The bytes that `writeText` takes for `text`.
inline std::size_t textSize(std::string_view text) noexcept {
   return padded(sizeof(U32) + std::min(text.size(), longestText));
}

// Copies `size` bytes, from `step` to twice as many, in two steps that may overlap.
template <std::size_t step>
void copyTwice(std::byte* to, const char* from, std::size_t size) noexcept {
   std::memcpy(to, from, step);
   std::memcpy(to + size - step, from + size - step, step);
}

// Copies `size` bytes in steps of fixed size, because compilers turn a memcpy of bounded size into
// a string instruction, whose start costs three times as much as copying a short name. The last
// step overlaps the one before it and needs no loop for the rest.
inline void copyText(std::byte* to, const char* from, std::size_t size) noexcept {
   constexpr std::size_t step = 16;
   if (size >= step) {
      for (std::size_t at = 0; at < size - step; at += step) {
         std::memcpy(to + at, from + at, step);
      }
      std::memcpy(to + size - step, from + size - step, step);
   } else if (size >= 8) {
      copyTwice<8>(to, from, size);
   } else if (size >= 4) {
      copyTwice<4>(to, from, size);
   } else {
      for (std::size_t i = 0; i < size; ++i) {
         to[i] = static_cast<std::byte>(from[i]);
      }
   }
}

// Writes at most `longestText` bytes of `text` and returns where the next argument begins. Requires
// `textSize(text)` bytes at `to`.
inline std::byte* writeText(std::byte* to, std::string_view text) noexcept {
   const auto length = static_cast<U32>(std::min(text.size(), longestText));
   std::memcpy(to, &length, sizeof length);
   copyText(to + sizeof length, text.data(), length);
   return to + padded(sizeof length + length);
}

} // namespace Ringlog
