#include "Kiv/detail/ByteSet.h"

#include <algorithm>

namespace Kiv {

std::unique_ptr<ByteSet::High> ByteSet::copyOf(const std::unique_ptr<High>& other) {
   return other == nullptr ? nullptr : std::make_unique<High>(*other);
}

bool ByteSet::highHas(U8 number) const noexcept {
   return (*high_)[number - lowEnd];
}

bool ByteSet::highInsert(U8 number) {
   if (high_ == nullptr) {
      high_ = std::make_unique<High>();
   }
   const bool isNew = !highHas(number);
   high_->set(number - lowEnd);
   return isNew;
}

void ByteSet::highInsertAll(const High& other) {
   if (high_ == nullptr) {
      high_ = std::make_unique<High>();
   }
   *high_ |= other;
}

bool ByteSet::highErase(U8 number) noexcept {
   const bool wasThere = high_ != nullptr && highHas(number);
   if (wasThere) {
      high_->reset(number - lowEnd);
   }
   return wasThere;
}

U32 ByteSet::highNext(U32 from) const noexcept {
   U32 at = std::max(from, lowEnd);
   while (at < end && !(*high_)[at - lowEnd]) {
      ++at;
   }
   return at;
}

} // namespace Kiv
