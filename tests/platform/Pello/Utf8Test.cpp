// `Pello::decodeUtf8` and `Pello::isPrintable`: at the bounds of every form.
#include "Pello/Utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Pello {
namespace {

TEST(Utf8, decodesTheFirstCharacter) {
   const struct {
      std::string_view bytes;
      char32_t character;
      std::size_t length;
      bool valid;
   } rows[] = {
         {"a", 'a', 1, true},
         {"ab", 'a', 1, true},
         {{"\0", 1}, 0, 1, true},
         {"\x7f", 0x7f, 1, true},
         {"\xc2\x80", 0x80, 2, true},
         {"\xdf\xbf", 0x7ff, 2, true},
         {"\xe0\xa0\x80", 0x800, 3, true},
         {"\xef\xbf\xbd", replacementCharacter, 3, true},
         {"\xef\xbf\xbf", 0xffff, 3, true},
         {"\xf0\x90\x80\x80", 0x10000, 4, true},
         {"\xf4\x8f\xbf\xbf", 0x10ffff, 4, true},
         {"\x80", replacementCharacter, 1, false},         // a continuation alone
         {"\xc3", replacementCharacter, 1, false},         // cut
         {"\xe2\x82", replacementCharacter, 1, false},     // cut
         {"\xc3(", replacementCharacter, 1, false},        // no continuation
         {"\xc1\xbf", replacementCharacter, 1, false},     // overlong
         {"\xe0\x9f\xbf", replacementCharacter, 1, false}, // overlong
         {"\xed\xa0\x80", replacementCharacter, 1, false}, // surrogate
         {"\xf4\x90\x80\x80", replacementCharacter, 1, false},
         {"\xf8\x88\x80\x80\x80", replacementCharacter, 1, false},
         {"\xff", replacementCharacter, 1, false},
   };
   for (const auto& row : rows) {
      const Utf8Character decoded = decodeUtf8(row.bytes);
      EXPECT_EQ(decoded.character, row.character) << row.bytes;
      EXPECT_EQ(decoded.length, row.length) << row.bytes;
      EXPECT_EQ(decoded.valid, row.valid) << row.bytes;
   }
}

TEST(Utf8, printableCharacters) {
   for (const char32_t character : {U' ', U'~', U'\u00a0', U'ü', U'…', U'\ue000', U'\U0001f600'}) {
      EXPECT_TRUE(isPrintable(character)) << static_cast<std::uint32_t>(character);
   }
   for (const char32_t character : {0x0U, 0x9U, 0x1fU, 0x7fU, 0x80U, 0x85U, 0x9fU, 0x2028U, 0x2029U,
                                    0xfeffU, 0xfffeU, 0xffffU, 0x1ffffU}) {
      EXPECT_FALSE(isPrintable(character)) << static_cast<std::uint32_t>(character);
   }
}

} // namespace
} // namespace Pello
