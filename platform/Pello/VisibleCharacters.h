// `isVisible` and `escaped`: text of strangers in a line that a person reads. Relies on Utf8.
#pragma once

#include <string>
#include <string_view>

namespace Pello {

// Whether a reader who sees `character` can tell that it is there, and where. The blank U+0020 is
// visible. Not visible are, by their properties in the Unicode Character Database:
//
// - control and format characters (general categories Cc and Cf), among them those that change the
//   direction of the text around them, such as U+202E;
// - line and paragraph separators (Zl, Zp), and every blank but U+0020 (Zs);
// - characters that may be left out when text is shown (Default_Ignorable_Code_Point), such as
//   U+200B, fillers, variation selectors and tags;
// - characters whose look is not defined: surrogates (Cs), private use (Co) and noncharacters.
//
// A character that Unicode has not assigned yet is visible, unless it is reserved for the above: so
// what is visible stays so.
bool isVisible(char32_t character);

// `text` on one line, with every character that is not visible as an escape: \n, \t, \uXXXX with
// four hexadecimal digits or \UXXXXXXXX with eight. A byte that is not UTF-8 becomes \xXX.
// Backslashes stay as they are, so the result is for people and cannot be read back.
std::string escaped(std::string_view text);

} // namespace Pello
