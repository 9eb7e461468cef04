// `FoldedRing`: a ring made of few bytes, so that a fuzzer can reach every part of one. Relies on
// the ring's layout. Most of a real ring is zeros; what is folded is the rest.
#pragma once

#include "../Input.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

namespace Fuzz {

// One at a time: all of them use the same memory.
class FoldedRing {
 public:
   static constexpr std::size_t blocks = 3;

   FoldedRing();
   FoldedRing(const FoldedRing&) = delete;
   FoldedRing& operator=(const FoldedRing&) = delete;
   // Makes the memory zeros again.
   ~FoldedRing();

   // Pieces until the input ends. A piece is its area (one byte: 0 the header, 1 the descriptors, 2
   // and more the blocks), a length (two bytes) and that many bytes. Those of the header are pairs
   // of a place (one byte, in words of four bytes) and a word that is put there in the end; all
   // others are appended to what the area has.
   void unfoldPieces(Input& input);

   // Call sites and records until the input ends. All sizes and lengths fit, so that every byte of
   // the input is some content.
   void unfoldTraces(Input& input);

   // Bytes of any of them.
   static std::size_t size();
   // The whole ring. It begins at an odd address and ends with the memory.
   std::span<const std::byte> bytes();

 private:
   // A part of the memory; the first `used` bytes are taken.
   struct Area {
      std::byte* begin = nullptr;
      std::size_t capacity = 0;
      std::size_t used = 0;

      // Appends; what finds no room is dropped.
      void append(const void* bytes, std::size_t size);
      void number(U32 value) { append(&value, sizeof value); }
      void text(std::span<const U8> text);
      void pad();
      // Puts the size of what was appended from `at` on, with the bits of `flag`, at `at`.
      void closeAt(std::size_t at, U32 flag = 0);
   };

   template <class T>
   void headerIs(std::size_t at, T value);
   void site(Input& input);
   void record(Input& input);
   static void reference(Area& block, Input& input);

   Area descriptors_;
   Area blocks_[blocks];
   std::span<const U8> patches_;
};

} // namespace Fuzz
