#include "Kiv/TextParser.h"

#include <charconv>
#include <cstdio>

namespace Kiv {

void TextParser::fail(const std::string& reason) const {
   throw ParseError{reason, position_};
}

bool TextParser::accept(std::string_view token) noexcept {
   if (!next(token)) {
      return false;
   }
   position_ += token.size();
   return true;
}

void TextParser::expect(std::string_view token) {
   if (!accept(token)) {
      fail("expected \"" + std::string{token} + "\"");
   }
}

U64 TextParser::number(U64 most) {
   const std::string_view digits = rest();
   U64 value = 0;
   const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
   if (error == std::errc::invalid_argument) {
      fail("expected a number");
   }
   if (error == std::errc::result_out_of_range || value > most) {
      fail("expected a number from 0 to " + std::to_string(most));
   }
   // Only now, so that a failure is reported where the number begins.
   position_ += static_cast<std::size_t>(end - digits.data());
   return value;
}

bool TextParser::boolean() {
   if (accept("true")) {
      return true;
   }
   if (!accept("false")) {
      fail("expected true or false");
   }
   return false;
}

std::string TextParser::quoted() {
   expect("\"");
   std::string text;
   while (!accept("\"")) {
      if (rest().empty()) {
         fail("expected a closing double quote");
      }
      const char c = text_[position_++];
      text.push_back(c == '\\' ? escaped() : c);
   }
   return text;
}

double TextParser::real() {
   const std::string_view digits = rest();
   double value = 0;
   const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
   if (error != std::errc{}) {
      fail("expected a real number");
   }
   position_ += static_cast<std::size_t>(end - digits.data());
   return value;
}

// The character for what follows a backslash. The inverse of `printQuoted`; other escapes are
// refused, so that none is misread.
char TextParser::escaped() {
   if (rest().empty()) {
      fail("expected a character after the backslash");
   }
   switch (const char c = text_[position_++]) {
   case 'n':
      return '\n';
   case 't':
      return '\t';
   case 'r':
      return '\r';
   case 'x': {
      const std::string_view digits = rest().substr(0, 2);
      unsigned value = 0;
      const char* last = digits.data() + digits.size();
      const auto [end, error] = std::from_chars(digits.data(), last, value, 16);
      if (digits.size() != 2 || error != std::errc{} || end != last) {
         fail("expected two hexadecimal digits");
      }
      position_ += 2;
      return static_cast<char>(value);
   }
   case '\\':
   case '"':
      return c;
   default:
      --position_; // the failure is at the character behind the backslash
      fail("unknown escape");
   }
}

std::string_view TextParser::quotedName() {
   expect("'");
   const std::size_t length = rest().find('\'');
   if (length == std::string_view::npos) {
      fail("expected a closing single quote");
   }
   const std::string_view name = rest().substr(0, length);
   position_ += length + 1;
   return name;
}

void TextParser::expectEnd() const {
   if (!rest().empty()) {
      fail("expected the end of the text");
   }
}

namespace {

void printControl(std::string& out, unsigned char c) {
   switch (c) {
   case '\n':
      out += "\\n";
      break;
   case '\t':
      out += "\\t";
      break;
   case '\r':
      out += "\\r";
      break;
   default: {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned>(c));
      out += hex;
   }
   }
}

} // namespace

void printReal(std::string& out, double value) {
   char digits[32];
   const auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
   out.append(digits, end);
   static_cast<void>(error); // the shortest text of a double has at most 24 characters
}

void printQuoted(std::string& out, std::string_view text) {
   out.push_back('"');
   for (const char c : text) {
      // A `char` may be signed: bytes of UTF-8 would be less than 0x20.
      const auto byte = static_cast<unsigned char>(c);
      if (byte < 0x20 || byte == 0x7f) {
         printControl(out, byte);
         continue;
      }
      if (c == '"' || c == '\\') {
         out.push_back('\\');
      }
      out.push_back(c);
   }
   out.push_back('"');
}

} // namespace Kiv
