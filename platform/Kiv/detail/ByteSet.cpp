#include "Kiv/detail/ByteSet.h"

#include <bitset>

namespace Kiv {

namespace {

using Block = std::bitset<256>;
static_assert(alignof(Block) >= 2, "the lowest bit of a block's address is zero");

// The word of a wide set is the address of its block, shifted right by one to make room for the
// mark in the highest bit. So a set is one word in every rule, and only a rule with an unusual
// action pays for a block.
Block& blockOf(U64 word) noexcept {
   return *reinterpret_cast<Block*>(word << 1U); // NOLINT(performance-no-int-to-ptr)
}

U64 wordOf(const Block* block) noexcept {
   return reinterpret_cast<U64>(block) >> 1U | U64{1} << 63U;
}

} // namespace

U64 ByteSet::copyOf(U64 wideWord) {
   return wordOf(new Block{blockOf(wideWord)});
}

std::size_t ByteSet::wideSize() const noexcept {
   return blockOf(word_).count();
}

bool ByteSet::wideHas(U8 number) const noexcept {
   return blockOf(word_)[number];
}

bool ByteSet::wideInsert(U8 number) {
   if (!isWide()) {
      // The members so far are the low bits of the word, and become those of the block.
      word_ = wordOf(new Block{word_});
   }
   Block& block = blockOf(word_);
   const bool isNew = !block[number];
   block.set(number);
   return isNew;
}

bool ByteSet::wideErase(U8 number) noexcept {
   Block& block = blockOf(word_);
   const bool wasThere = block[number];
   block.reset(number);
   return wasThere;
}

U32 ByteSet::wideNext(U32 from) const noexcept {
   const Block& block = blockOf(word_);
   while (from < end && !block[from]) {
      ++from;
   }
   return from < end ? from : end;
}

void ByteSet::freeWide() noexcept {
   delete &blockOf(word_);
}

} // namespace Kiv
