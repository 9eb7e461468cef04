// `Pello::isVisible` at the bounds of every range, and `Pello::escaped`.
#include "Pello/VisibleCharacters.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace Pello {
namespace {

struct Bounds {
   char32_t first;
   char32_t last;
};

TEST(VisibleCharacters, invisibleRangesEndWhereTheySay) {
   const Bounds rows[] = {
         {0x7f, 0xa0},       {0xad, 0xad},       {0x34f, 0x34f},     {0x600, 0x605},
         {0x61c, 0x61c},     {0x6dd, 0x6dd},     {0x70f, 0x70f},     {0x890, 0x891},
         {0x8e2, 0x8e2},     {0x115f, 0x1160},   {0x1680, 0x1680},   {0x17b4, 0x17b5},
         {0x180b, 0x180f},   {0x2000, 0x200f},   {0x2028, 0x202f},   {0x205f, 0x206f},
         {0x3000, 0x3000},   {0x3164, 0x3164},   {0xd800, 0xf8ff},   {0xfdd0, 0xfdef},
         {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},   {0xffa0, 0xffa0},   {0xfff0, 0xfffb},
         {0xfffe, 0xffff},   {0x110bd, 0x110bd}, {0x110cd, 0x110cd}, {0x13430, 0x1343f},
         {0x1bca0, 0x1bca3}, {0x1d173, 0x1d17a}, {0x1fffe, 0x1ffff}, {0x2fffe, 0x2ffff},
   };
   for (const Bounds& row : rows) {
      for (char32_t character = row.first; character <= row.last; ++character) {
         EXPECT_FALSE(isVisible(character)) << static_cast<std::uint32_t>(character);
      }
      EXPECT_TRUE(isVisible(row.first - 1)) << static_cast<std::uint32_t>(row.first);
      EXPECT_TRUE(isVisible(row.last + 1)) << static_cast<std::uint32_t>(row.last);
   }
}

TEST(VisibleCharacters, firstAndLastPlanes) {
   EXPECT_FALSE(isVisible(0));
   EXPECT_FALSE(isVisible(0x1f));
   EXPECT_TRUE(isVisible(' '));
   EXPECT_TRUE(isVisible('~'));
   EXPECT_TRUE(isVisible(0xdfffd));
   for (const char32_t character :
        {0xe0000U, 0xe0fffU, 0xf0000U, 0x10ffffU, 0x110000U, 0xffffffffU}) {
      EXPECT_FALSE(isVisible(character)) << static_cast<std::uint32_t>(character);
   }
}

TEST(VisibleCharacters, charactersOfNames) {
   for (const char32_t character :
        {U'ü', U'…', U'名', U'\U0001f600', U'\u0301', U'\u05d0', U'\ufffd', U'\u0378'}) {
      EXPECT_TRUE(isVisible(character)) << static_cast<std::uint32_t>(character);
   }
}

TEST(VisibleCharacters, escapes) {
   const struct {
      const char* text;
      const char* escaped;
   } rows[] = {
         {"", ""},
         {"a b\\n", "a b\\n"},
         {"ü…名", "ü…名"},
         {"a\nb\tc\rd", "a\\nb\\tc\\u000dd"},
         {"\x1b[31m\x7f", "\\u001b[31m\\u007f"},
         {"\u202Eevil", "\\u202eevil"},
         {"a\u200Bb", "a\\u200bb"},
         {"\u00a0", "\\u00a0"},
         {"\U000e0041", "\\U000e0041"},
         {"\xff\xc3(\xe2\x80", "\\xff\\xc3(\\xe2\\x80"},
   };
   for (const auto& row : rows) {
      EXPECT_EQ(escaped(row.text), row.escaped);
   }
}

} // namespace
} // namespace Pello
