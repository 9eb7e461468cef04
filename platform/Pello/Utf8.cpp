#include "Pello/Utf8.h"

namespace Pello {

namespace {

// What the first byte says about a character of several bytes.
struct Form {
   std::size_t length;    // in bytes; 0 when no character begins with the byte
   char32_t smallest;     // the smallest character that needs so many bytes
   unsigned char payload; // the bits of the first byte that belong to the character
};

Form formOf(unsigned char first) {
   if ((first & 0xe0U) == 0xc0U) {
      return {2, 0x80, 0x1f};
   }
   if ((first & 0xf0U) == 0xe0U) {
      return {3, 0x800, 0x0f};
   }
   if ((first & 0xf8U) == 0xf0U) {
      return {4, 0x10000, 0x07};
   }
   return {0, 0, 0};
}

} // namespace

Utf8Character decodeUtf8(std::string_view text) {
   constexpr Utf8Character invalid{replacementCharacter, 1, false};
   const auto first = static_cast<unsigned char>(text.front());
   if (first < 0x80) {
      return {first, 1, true};
   }
   const Form form = formOf(first);
   char32_t character = first & form.payload;
   for (std::size_t i = 1; i < form.length; ++i) {
      // A missing byte reads as 0, which continues no character.
      const auto next = i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
      if ((next & 0xc0U) != 0x80U) {
         return invalid;
      }
      character = character << 6U | (next & 0x3fU);
   }
   const bool surrogate = character >= 0xd800 && character <= 0xdfff;
   if (form.length == 0 || character < form.smallest || character > 0x10ffff || surrogate) {
      return invalid;
   }
   return {character, form.length, true};
}

bool isPrintable(char32_t character) {
   if (character < 0xa0) {
      return character >= 0x20 && character < 0x7f;
   }
   const bool separator = character == 0x2028 || character == 0x2029;
   // The last two numbers of each plane, U+xxFFFE and U+xxFFFF.
   const bool noncharacter = (character & 0xfffeU) == 0xfffeU;
   return !separator && !noncharacter && character != 0xfeff;
}

} // namespace Pello
