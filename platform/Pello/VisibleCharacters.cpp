#include "Pello/VisibleCharacters.h"

#include "Pello/Utf8.h"

#include <algorithm>
#include <iterator>

namespace Pello {

namespace {

struct Characters {
   char32_t first;
   char32_t last;
};

// The characters that `isVisible` refuses, as of Unicode 15, in ascending order. Noncharacters that
// end a plane follow from their number.
constexpr Characters invisible[] = {
      {0x0000, 0x001f},     // controls
      {0x007f, 0x00a0},     // controls, no-break space
      {0x00ad, 0x00ad},     // soft hyphen
      {0x034f, 0x034f},     // combining grapheme joiner
      {0x0600, 0x0605},     // Arabic number signs
      {0x061c, 0x061c},     // Arabic letter mark
      {0x06dd, 0x06dd},     // Arabic end of ayah
      {0x070f, 0x070f},     // Syriac abbreviation mark
      {0x0890, 0x0891},     // Arabic mark above
      {0x08e2, 0x08e2},     // Arabic disputed end of ayah
      {0x115f, 0x1160},     // Hangul fillers
      {0x1680, 0x1680},     // Ogham space
      {0x17b4, 0x17b5},     // Khmer inherent vowels
      {0x180b, 0x180f},     // Mongolian variation selectors
      {0x2000, 0x200f},     // spaces, joiners, direction marks
      {0x2028, 0x202f},     // separators, direction, narrow no-break space
      {0x205f, 0x206f},     // mathematical space, isolates, invisible operators
      {0x3000, 0x3000},     // ideographic space
      {0x3164, 0x3164},     // Hangul filler
      {0xd800, 0xf8ff},     // surrogates, private use
      {0xfdd0, 0xfdef},     // noncharacters
      {0xfe00, 0xfe0f},     // variation selectors
      {0xfeff, 0xfeff},     // byte order mark
      {0xffa0, 0xffa0},     // halfwidth Hangul filler
      {0xfff0, 0xfffb},     // interlinear annotation
      {0x110bd, 0x110bd},   // Kaithi number sign
      {0x110cd, 0x110cd},   // Kaithi number sign above
      {0x13430, 0x1343f},   // Egyptian format controls
      {0x1bca0, 0x1bca3},   // shorthand format controls
      {0x1d173, 0x1d17a},   // musical format controls
      {0xe0000, 0xe0fff},   // tags, variation selectors
      {0xf0000, 0xfffff},   // private use
      {0x100000, 0x10ffff}, // private use
};

// Appends `mark` behind a backslash, then the last `digits` hexadecimal digits of `number`.
void appendEscape(std::string& out, char mark, unsigned digits, char32_t number) {
   out += '\\';
   out += mark;
   while (digits-- > 0) {
      out += "0123456789abcdef"[(number >> (4 * digits)) & 0xfU];
   }
}

void appendInvisible(std::string& out, char32_t character) {
   if (character == '\n') {
      out += "\\n";
   } else if (character == '\t') {
      out += "\\t";
   } else if (character <= 0xffff) {
      appendEscape(out, 'u', 4, character);
   } else {
      appendEscape(out, 'U', 8, character);
   }
}

} // namespace

bool isVisible(char32_t character) {
   const Characters* const found =
         std::ranges::lower_bound(invisible, character, {}, &Characters::last);
   const bool listed = found != std::end(invisible) && found->first <= character;
   const bool endsPlane = (character & 0xfffeU) == 0xfffeU;
   return !listed && !endsPlane && character <= 0x10ffff;
}

std::string escaped(std::string_view text) {
   std::string out;
   while (!text.empty()) {
      const Utf8Character decoded = decodeUtf8(text);
      if (!decoded.valid) {
         appendEscape(out, 'x', 2, static_cast<unsigned char>(text.front()));
      } else if (!isVisible(decoded.character)) {
         appendInvisible(out, decoded.character);
      } else {
         out += text.substr(0, decoded.length);
      }
      text.remove_prefix(decoded.length);
   }
   return out;
}

} // namespace Pello
