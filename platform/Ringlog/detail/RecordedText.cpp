#include "Ringlog/detail/RecordedText.h"

#include <algorithm>

namespace Ringlog::Detail {

namespace {

// A text as it stands in a record.
struct Stored {
   std::size_t common = 0;          // bytes that an earlier text has
   std::size_t place = 0;           // where that one stands in the block; unused without such bytes
   std::span<const std::byte> rest; // the bytes behind those
   std::size_t size() const { return common + rest.size(); }
};

Stored readStored(Cursor& cursor) {
   Stored stored;
   const auto lengths = cursor.plain<U32>();
   // With other bits than a reference has, it is a length that no text has.
   constexpr U32 bits =
         TextReference::isReference | ((U32{1} << 2 * TextReference::lengthBits) - 1);
   if ((lengths & TextReference::isReference) == 0 || (lengths & ~bits) != 0) {
      stored.rest = cursor.take(cursor.checkedLength(lengths));
      cursor.take(padded(sizeof lengths + stored.rest.size()) - sizeof lengths -
                  stored.rest.size());
      return stored;
   }
   stored.common = lengths >> TextReference::lengthBits & TextReference::lengthMask;
   stored.place = std::size_t{cursor.plain<U16>()} * 8;
   stored.rest = cursor.take(lengths & TextReference::lengthMask);
   cursor.take(padded(textReferenceSize + stored.rest.size()) - textReferenceSize -
               stored.rest.size());
   cursor.checkedLength(stored.size());
   return stored;
}

// The text at `place`, which must lie in `earlier`. A text cannot reach beyond the record that
// refers to it, because `earlier` ends there.
Stored storedAt(std::span<const std::byte> earlier, std::size_t place) {
   if (place >= earlier.size()) {
      throw DamagedRing{"the record refers to a text that is not before it"};
   }
   Cursor cursor{earlier.subspan(place), "an earlier record"};
   return readStored(cursor);
}

} // namespace

// From the end to the beginning, because each reference gives the beginning of the text so far.
std::string recordedText(Cursor& cursor, std::span<const std::byte> earlier) {
   Stored stored = readStored(cursor);
   std::string text(stored.size(), '\0');
   std::size_t missing = text.size(); // how many bytes at the beginning are not copied yet
   for (unsigned references = 0;; ++references) {
      const std::size_t taken = missing - std::min(missing, stored.common);
      std::ranges::transform(stored.rest.first(taken),
                             text.begin() + static_cast<std::ptrdiff_t>(missing - taken),
                             [](std::byte byte) { return static_cast<char>(byte); });
      missing -= taken;
      if (missing == 0) {
         return text;
      }
      if (references == mostReferences) {
         throw DamagedRing{"the record refers to too many texts"};
      }
      // Each text refers to one before it, so the search ends also without the limit.
      const std::size_t place = stored.place;
      stored = storedAt(earlier, place);
      earlier = earlier.first(place);
      if (stored.size() < missing) {
         throw DamagedRing{"the record refers to a text that is too short"};
      }
   }
}

} // namespace Ringlog::Detail
