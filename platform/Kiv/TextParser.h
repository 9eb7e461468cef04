// `TextParser`: reads the generic value text (detail/ValueOps.h) from left to right; `printQuoted`
// and `printReal` write its parts. Relies on the standard library.
//
// Each reading function begins at `position()` and moves it behind what was read. What cannot be
// read is a `ParseError` that says what was expected and at which byte. A caller that goes on after
// a failure must not rely on the position.
#pragma once

#include "Kiv/Exception.h"
#include "Pello/Types.h"

#include <concepts>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Kiv {

// The two ends of characters that stand side by side: pointers, or iterators of a string. `Begin`
// may be an array, `End` may not, so that two literals are not taken for the ends of a range.
template <class Begin, class End>
concept CharacterRange = std::contiguous_iterator<std::decay_t<Begin>> &&
                         std::same_as<std::iter_value_t<std::decay_t<Begin>>, char> &&
                         std::sized_sentinel_for<End, std::decay_t<Begin>>;

class TextParser {
 public:
   // `text` is borrowed and must outlive the parser.
   explicit TextParser(std::string_view text) noexcept : text_{text} {}

   // Reads `token`, which must be next.
   void expect(std::string_view token);
   // Reads `token` if it is next, and returns whether it was.
   bool accept(std::string_view token) noexcept;
   // Whether `token` is next.
   bool next(std::string_view token) const noexcept { return rest().starts_with(token); }
   // A decimal number from 0 to `most`, without sign or leading blanks; leading zeros are allowed.
   U64 number(U64 most);
   // `true` or `false`.
   bool boolean();
   // A decimal number with minus sign, fraction and exponent as far as they are there, or `inf` or
   // `nan`.
   double real();
   // A text in double quotes, with the escapes of `printQuoted` undone.
   std::string quoted();
   // A name in single quotes, as enumerators are written. The result is part of the parsed text.
   std::string_view quotedName();
   // Fails when anything is left.
   void expectEnd() const;

   // Where the parser stands, in bytes from the beginning of the text.
   std::size_t position() const noexcept { return position_; }
   // What is not read yet. Valid as long as the parsed text.
   std::string_view rest() const noexcept { return text_.substr(position_); }

   // Returns `read()`. A ParseError or RangeError inside is thrown again with the attribute's name
   // in front, so that a failure in a nested value tells the way to it.
   template <class Read>
   auto attribute(std::string_view name, Read&& read) {
      try {
         return std::forward<Read>(read)();
      } catch (const ParseError& error) {
         throw ParseError{"attribute '" + std::string{name} + "': " + error.reason(),
                          error.position()};
      } catch (const RangeError& error) {
         throw RangeError{"attribute '" + std::string{name} + "': " + error.what()};
      }
   }

   // Throws ParseError with `reason` at the present position.
   [[noreturn]] void fail(const std::string& reason) const;

 private:
   char escaped();

   std::string_view text_;
   std::size_t position_ = 0;
};

// Appends `text` in double quotes. Backslash and double quote get a backslash, and ASCII control
// characters become \n, \t, \r or \xHH. Every other byte stays as it is, whether it is UTF-8 or
// not.
void printQuoted(std::string& out, std::string_view text);

// Appends the shortest decimal text of `value` that `TextParser::real` reads back unchanged.
void printReal(std::string& out, double value);

} // namespace Kiv
