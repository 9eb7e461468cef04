// `Input`: what a fuzz target is given, taken apart into numbers and pieces. Relies on nothing.
#pragma once

#include "Pello/Types.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>

namespace Fuzz {

// Reads from left to right; behind the end there are zeros.
class Input {
 public:
   explicit Input(std::span<const U8> bytes) : left_{bytes} {}

   bool empty() const { return left_.empty(); }
   std::size_t size() const { return left_.size(); }
   template <class T>
   T number() {
      T value{};
      const auto taken = take(sizeof value);
      if (!taken.empty()) {
         std::memcpy(&value, taken.data(), taken.size());
      }
      return value;
   }
   // As many as there are, up to `size`.
   std::span<const U8> take(std::size_t size) {
      const auto taken = left_.first(std::min(size, left_.size()));
      left_ = left_.subspan(taken.size());
      return taken;
   }
   std::string text(std::size_t size) {
      const auto taken = take(size);
      return {taken.begin(), taken.end()};
   }

 private:
   std::span<const U8> left_;
};

} // namespace Fuzz
