// `String`: immutable text. An object is one pointer to characters that its copies share: copying
// counts a reference, so a rule's name costs its characters once, however many tables hold it.
// Relies on the slab and the switched counter.
//
// The text is bytes; nothing here interprets UTF-8, and null characters are allowed. While the
// thread-safety switch is on, threads may share characters, each through a `String` of its own.
#pragma once

#include "Pello/ThreadSafety.h"
#include "Pello/Types.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

namespace Pello {

class String {
 public:
   // The empty string, which allocates nothing.
   constexpr String() noexcept = default;
   // Copies the characters. Throws `std::length_error` for more than 2^32 - 1 of them, and
   // `std::bad_alloc`. Implicit, so that any text can be passed where a `String` is expected.
   String(std::string_view text) : rep_{make({text})} {}
   String(const std::string& text) : String{std::string_view{text}} {}
   // `text` must not be null, and must end in a null character.
   String(const char* text) : String{std::string_view{text}} {}
   String(const String& other) noexcept : rep_{other.rep_} { hold(); }
   String(String&& other) noexcept : rep_{std::exchange(other.rep_, nullptr)} {}
   String& operator=(String other) noexcept {
      std::swap(rep_, other.rep_);
      return *this;
   }
   ~String() { drop(); }

   // The pieces one after another, in one allocation. Throws as the constructor from text.
   static String join(std::initializer_list<std::string_view> pieces) {
      String joined;
      joined.rep_ = make(pieces);
      return joined;
   }

   // The characters, not copied. Valid as long as some `String` shares them.
   std::string_view view() const noexcept {
      return rep_ == nullptr ? std::string_view{} : std::string_view{chars(rep_), rep_->size};
   }
   // Both conversions are implicit, so that a `String` goes wherever text is taken. A function that
   // is overloaded for both types has to be told which one is meant: `view()` or `str()`.
   operator std::string_view() const noexcept { return view(); }
   operator std::string() const { return str(); }
   // A copy of the characters.
   std::string str() const { return std::string{view()}; }
   // The characters with a null character behind them; never null. Valid as `view()` is. C
   // functions see only what stands before the first null character in the text.
   const char* c_str() const noexcept { return rep_ == nullptr ? "" : chars(rep_); }

   // How many bytes the text has. `length` is another name of `size`.
   std::size_t size() const noexcept { return rep_ == nullptr ? 0 : rep_->size; }
   std::size_t length() const noexcept { return size(); }
   bool empty() const noexcept { return rep_ == nullptr; }

   // The byte at `index`, which must be less than `size()`. Valid as `view()` is.
   const char& operator[](std::size_t index) const noexcept { return view()[index]; }
   const char* begin() const noexcept { return c_str(); }
   const char* end() const noexcept { return c_str() + size(); }

   // `find` returns it for "not found", `substr` takes it for "to the end".
   static constexpr std::size_t npos = std::string_view::npos;
   // The index of the first occurrence that begins at `from` or later, or `npos`. Empty text occurs
   // everywhere.
   std::size_t find(std::string_view text, std::size_t from = 0) const noexcept {
      return view().find(text, from);
   }
   std::size_t find(char character, std::size_t from = 0) const noexcept {
      return view().find(character, from);
   }
   // Whether `text` occurs anywhere.
   bool contains(std::string_view text) const noexcept { return find(text) != npos; }
   // A copy of at most `count` bytes from `from` on; it shares nothing with this text. Throws
   // `std::out_of_range` when `from` is more than `size()`.
   String substr(std::size_t from, std::size_t count = npos) const {
      return String{view().substr(from, count)};
   }

   // The characters of both, one after the other. For more than two pieces `join` copies less.
   // Throws as `join`.
   friend String operator+(const String& a, const String& b) { return join({a.view(), b.view()}); }
   template <std::convertible_to<std::string_view> Text>
   friend String operator+(const String& a, const Text& b) {
      return join({a.view(), std::string_view{b}});
   }
   template <std::convertible_to<std::string_view> Text>
   friend String operator+(const Text& a, const String& b) {
      return join({std::string_view{a}, b.view()});
   }

   friend bool operator==(const String& a, const String& b) noexcept {
      return a.rep_ == b.rep_ || a.view() == b.view();
   }
   // Compares with any other text without copying it.
   template <std::convertible_to<std::string_view> Text>
   friend bool operator==(const String& a, const Text& b) noexcept {
      return a.view() == std::string_view{b};
   }
   // Compares byte by byte, as unsigned numbers; no locale has an influence.
   friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept {
      return a.view() <=> b.view();
   }
   template <std::convertible_to<std::string_view> Text>
   friend std::strong_ordering operator<=>(const String& a, const Text& b) noexcept {
      return a.view() <=> std::string_view{b};
   }
   // Writes the characters as they are, padded to the stream's width.
   friend std::ostream& operator<<(std::ostream& out, const String& text);

 private:
   // What stands before the characters, in the same allocation.
   struct Rep {
      SwitchedCounter<U32> references;
      U32 size; // in bytes, without the null character at the end
   };

   static char* chars(Rep* rep) noexcept { return reinterpret_cast<char*>(rep + 1); }
   static Rep* make(std::initializer_list<std::string_view> pieces);
   static void destroy(Rep* rep) noexcept;

   void hold() const noexcept {
      if (rep_ != nullptr) {
         rep_->references.add(1);
      }
   }
   void drop() noexcept {
      if (rep_ != nullptr && rep_->references.subtract(1) == 0) {
         destroy(rep_);
      }
   }

   Rep* rep_ = nullptr; // null for the empty string
};

} // namespace Pello

// For standard containers. Equal to the hash of a `std::string_view` of the same text, so that one
// can look up the other.
template <>
struct std::hash<Pello::String> {
   std::size_t operator()(const Pello::String& text) const noexcept {
      return std::hash<std::string_view>{}(text.view());
   }
};
