#include "Pello/String.h"

#include "Pello/Slab.h"

#include <cstring>
#include <limits>
#include <new>
#include <ostream>
#include <stdexcept>

namespace Pello {

namespace {

// Copies `size` bytes in steps of fixed size, the last of which overlaps the one before it. A call
// of `memcpy` takes as long as copying a rule's name.
void copyCharacters(char* to, const char* from, std::size_t size) noexcept {
   constexpr std::size_t step = 16;
   if (size < step || size > 16 * step) {
      std::memcpy(to, from, size);
      return;
   }
   for (std::size_t at = 0; at < size - step; at += step) {
      std::memcpy(to + at, from + at, step);
   }
   std::memcpy(to + size - step, from + size - step, step);
}

} // namespace

String::Rep* String::make(std::initializer_list<std::string_view> pieces) {
   std::size_t size = 0;
   for (const std::string_view piece : pieces) {
      size += piece.size();
   }
   if (size == 0) {
      // The only form of the empty string, so that `empty()` and equality need not look further.
      return nullptr;
   }
   if (size > std::numeric_limits<U32>::max()) {
      throw std::length_error{"a string of more than 4294967295 characters"};
   }
   Rep* rep = new (slabAllocate(sizeof(Rep) + size + 1))
         Rep{SwitchedCounter<U32>{1}, static_cast<U32>(size)};
   char* end = chars(rep);
   for (const std::string_view piece : pieces) {
      // An empty view may have a null pointer, which `memcpy` does not allow even for no bytes.
      if (!piece.empty()) {
         copyCharacters(end, piece.data(), piece.size());
         end += piece.size();
      }
   }
   *end = '\0';
   return rep;
}

void String::destroy(Rep* rep) noexcept {
   slabFree(rep, sizeof(Rep) + rep->size + 1);
}

std::ostream& operator<<(std::ostream& out, const String& text) {
   return out << text.view();
}

} // namespace Pello
