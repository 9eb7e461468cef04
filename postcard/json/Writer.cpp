#include "postcard/json/Writer.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <utility>

namespace Postcard::Json {

namespace {

// Whether a byte stands for itself between the quotes of a string: printable ASCII but for quote
// and backslash, and DEL, which JSON allows.
constexpr auto plainBytes = [] {
   std::array<bool, 256> plain{};
   for (std::size_t byte = 0x20; byte < 0x80; ++byte) {
      plain[byte] = byte != '"' && byte != '\\';
   }
   return plain;
}();

std::size_t plainLength(std::string_view text) {
   std::size_t length = 0;
   while (length < text.size() && plainBytes[static_cast<unsigned char>(text[length])]) {
      ++length;
   }
   return length;
}

// How the bytes of a character of several bytes begin (Unicode 15, table 3-7).
struct Form {
   std::size_t length;        // in bytes; 0 when no such character begins with the byte
   unsigned char low = 0x80;  // the second byte is at least this
   unsigned char high = 0xbf; // and at most this; further bytes are 0x80 to 0xbf
};

Form formOf(unsigned char first) {
   if (first < 0xc2 || first > 0xf4) {
      return {0};
   }
   if (first < 0xe0) {
      return {2};
   }
   if (first < 0xf0) {
      // Less would be overlong; more would be a surrogate.
      return {3, static_cast<unsigned char>(first == 0xe0 ? 0xa0 : 0x80),
              static_cast<unsigned char>(first == 0xed ? 0x9f : 0xbf)};
   }
   // Less would be overlong; more would be past U+10FFFF.
   return {4, static_cast<unsigned char>(first == 0xf0 ? 0x90 : 0x80),
           static_cast<unsigned char>(first == 0xf4 ? 0x8f : 0xbf)};
}

struct Bytes {
   std::size_t length; // at least 1
   bool valid;
};

// The first character of `text`, which does not begin with ASCII. When it is invalid, `length` says
// how many bytes one U+FFFD replaces: the longest beginning of a character (Unicode 15, section
// 3.9, "maximal subparts"), as the JSON library does it.
Bytes characterOf(std::string_view text) {
   const Form form = formOf(static_cast<unsigned char>(text.front()));
   if (form.length == 0) {
      return {1, false};
   }
   for (std::size_t at = 1; at < form.length; ++at) {
      const unsigned char low = at == 1 ? form.low : 0x80;
      const unsigned char high = at == 1 ? form.high : 0xbf;
      // A missing byte reads as 0, which continues no character.
      const auto byte = at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
      if (byte < low || byte > high) {
         return {at, false};
      }
   }
   return {form.length, true};
}

// The escape of an ASCII character that is not plain. The view into `buffer` is valid as long as
// `buffer`.
std::string_view escapeOf(char character, std::array<char, 6>& buffer) {
   constexpr std::string_view letters = "b\bf\fn\nr\rt\t\"\"\\\\";
   constexpr std::string_view digits = "0123456789abcdef";
   buffer[0] = '\\';
   for (std::size_t at = 0; at < letters.size(); at += 2) {
      if (letters[at + 1] == character) {
         buffer[1] = letters[at];
         return {buffer.data(), 2};
      }
   }
   const auto byte = static_cast<unsigned char>(character);
   buffer = {'\\', 'u', '0', '0', digits[byte >> 4U], digits[byte & 0x0fU]};
   return {buffer.data(), 6};
}

} // namespace

Writer::Writer(Sink sink) : sink_{std::move(sink)}, piece_{new char[pieceSize]} {}

Writer::~Writer() = default;

void Writer::flush() {
   // Before the call: a sink that throws must not be given the same text again.
   const std::size_t size = std::exchange(used_, 0);
   sink_({piece_.get(), size});
}

void Writer::put(char character) {
   if (used_ == pieceSize) {
      flush();
   }
   piece_[used_++] = character;
}

void Writer::put(std::string_view text) {
   while (text.size() > pieceSize - used_) {
      const std::size_t part = pieceSize - used_;
      text.copy(piece_.get() + used_, part);
      used_ = pieceSize;
      text.remove_prefix(part);
      flush();
   }
   // Not memcpy, which must not be given the null pointer of an empty view.
   used_ += text.copy(piece_.get() + used_, text.size());
}

void Writer::putQuoted(std::string_view text) {
   put('"');
   while (true) {
      const std::size_t plain = plainLength(text);
      put(text.substr(0, plain));
      text.remove_prefix(plain);
      if (text.empty()) {
         break;
      }
      if (static_cast<unsigned char>(text.front()) < 0x80) {
         std::array<char, 6> buffer;
         put(escapeOf(text.front(), buffer));
         text.remove_prefix(1);
         continue;
      }
      const Bytes bytes = characterOf(text);
      put(bytes.valid ? text.substr(0, bytes.length) : "\xef\xbf\xbd");
      text.remove_prefix(bytes.length);
   }
   put('"');
}

void Writer::newLine() {
   constexpr std::string_view blanks = "                                ";
   put('\n');
   for (std::size_t left = 2 * depth_; left > 0;) {
      const std::size_t part = std::min(left, blanks.size());
      put(blanks.substr(0, part));
      left -= part;
   }
}

// Begins an element of a list, or a member of an object.
void Writer::beginElement() {
   if (!empty_) {
      put(',');
   }
   empty_ = false;
   newLine();
}

void Writer::beginValue() {
   // The value of a member stands on the line of the member's name; that of the document, first.
   if (!std::exchange(afterMember_, false) && depth_ > 0) {
      beginElement();
   }
}

void Writer::begin(char bracket) {
   beginValue();
   put(bracket);
   ++depth_;
   empty_ = true;
}

void Writer::end(char bracket) {
   --depth_;
   if (!empty_) {
      newLine();
   }
   put(bracket);
   empty_ = false; // the container around has at least this element
}

void Writer::null() {
   beginValue();
   put("null");
}

void Writer::boolean(bool value) {
   beginValue();
   put(value ? "true" : "false");
}

void Writer::number(U64 value) {
   beginValue();
   char digits[20]; // those of 2^64 - 1
   const auto end = std::to_chars(digits, std::end(digits), value).ptr;
   put(std::string_view{digits, static_cast<std::size_t>(end - digits)});
}

void Writer::real(double value) {
   beginValue();
   put(nlohmann::ordered_json(value).dump());
}

void Writer::text(std::string_view value) {
   beginValue();
   putQuoted(value);
}

void Writer::beginObject() {
   begin('{');
}

void Writer::member(std::string_view name) {
   beginElement();
   putQuoted(name);
   put(": ");
   afterMember_ = true;
}

void Writer::endObject() {
   end('}');
}
void Writer::beginList() {
   begin('[');
}
void Writer::endList() {
   end(']');
}

void Writer::value(const nlohmann::ordered_json& value) {
   beginValue();
   const std::string whole =
         value.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
   std::string_view text{whole};
   // A line feed never stands in a string of JSON text, so each one ends a line.
   for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
      put(text.substr(0, end));
      newLine();
      text.remove_prefix(end + 1);
   }
   put(text);
}

void Writer::finish() {
   put('\n');
   flush();
}

} // namespace Postcard::Json
