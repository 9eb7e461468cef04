// `TextParser`: reads the generic value text from left to right. Every failure is a `ParseError`
// that says what was expected and at which character. Used by the text constructors of values.
#pragma once

#include "Kiv/Exception.h"
#include "Pello/Types.h"

#include <string>
#include <string_view>
#include <utility>

namespace Kiv {

class TextParser {
 public:
   // `text` must outlive the parser.
   explicit TextParser(std::string_view text) noexcept : text_{text} {}

   // Reads exactly `token`.
   void expect(std::string_view token);
   // Reads `token` if it is next.
   bool accept(std::string_view token) noexcept;
   // Whether `token` is next.
   bool next(std::string_view token) const noexcept { return rest().starts_with(token); }
   // A decimal number from 0 to `most`, without sign or leading blanks.
   U64 number(U64 most);
   bool boolean();
   // A decimal number with sign, fraction and exponent as far as they are there; `inf` and `nan`
   // too.
   double real();
   // Text in double quotes, with its escapes undone.
   std::string quoted();
   // A name in single quotes, as enumerators are written.
   std::string_view quotedName();
   // Nothing may follow.
   void expectEnd() const;

   std::size_t position() const noexcept { return position_; }
   std::string_view rest() const noexcept { return text_.substr(position_); }

   // Runs `read()`; a failure inside is reported as one of the attribute `name`.
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

   [[noreturn]] void fail(const std::string& reason) const;

 private:
   char escaped();

   std::string_view text_;
   std::size_t position_ = 0;
};

// Appends `text` in double quotes. Backslash and double quote get a backslash, control characters
// become \n, \t, \r or \xHH; everything else, UTF-8 included, stays.
void printQuoted(std::string& out, std::string_view text);

// Appends the shortest decimal text of `value` that `TextParser::real` reads back unchanged.
void printReal(std::string& out, double value);

} // namespace Kiv
