// `String`: immutable text of eight bytes that shares its characters. Copying counts a reference,
// never characters, so a rule's name costs its characters once however many tables hold it. Relies
// on the slab and the switched counter.
#pragma once

#include "Pello/ThreadSafety.h"
#include "Pello/Types.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace Pello {

class String {
 public:
   // The empty string.
   constexpr String() noexcept = default;
   // Copies the characters. At most 2^32-1; more throws `std::length_error`.
   String(std::string_view text) : rep_{make({text})} {}
   String(const std::string& text) : String{std::string_view{text}} {}
   // `text` must end in a null character.
   String(const char* text) : String{std::string_view{text}} {}
   String(const String& other) noexcept : rep_{other.rep_} { hold(); }
   String(String&& other) noexcept : rep_{std::exchange(other.rep_, nullptr)} {}
   String& operator=(String other) noexcept {
      std::swap(rep_, other.rep_);
      return *this;
   }
   ~String() { drop(); }

   // The pieces one after another, in one allocation.
   static String join(std::initializer_list<std::string_view> pieces) {
      String joined;
      joined.rep_ = make(pieces);
      return joined;
   }

   // Valid as long as some `String` shares these characters.
   std::string_view view() const noexcept {
      return rep_ == nullptr ? std::string_view{} : std::string_view{chars(rep_), rep_->size};
   }
   operator std::string_view() const noexcept { return view(); }
   std::string str() const { return std::string{view()}; }
   // Null-terminated; an inner null character ends it early for C functions.
   const char* c_str() const noexcept { return rep_ == nullptr ? "" : chars(rep_); }
   std::size_t size() const noexcept { return rep_ == nullptr ? 0 : rep_->size; }
   bool empty() const noexcept { return rep_ == nullptr; }
   // Whether `text` occurs anywhere.
   bool contains(std::string_view text) const noexcept {
      return view().find(text) != std::string_view::npos;
   }

   friend bool operator==(const String& a, const String& b) noexcept {
      return a.rep_ == b.rep_ || a.view() == b.view();
   }
   // With any other text, without copying it.
   template <std::convertible_to<std::string_view> Text>
   friend bool operator==(const String& a, const Text& b) noexcept {
      return a.view() == std::string_view{b};
   }
   // By bytes, as unsigned numbers.
   friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept {
      return a.view() <=> b.view();
   }
   template <std::convertible_to<std::string_view> Text>
   friend std::strong_ordering operator<=>(const String& a, const Text& b) noexcept {
      return a.view() <=> std::string_view{b};
   }
   friend std::ostream& operator<<(std::ostream& out, const String& text) {
      return out << text.view();
   }

 private:
   struct Rep {
      SwitchedCounter<U32> references;
      U32 size;
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

template <>
struct std::hash<Pello::String> {
   std::size_t operator()(const Pello::String& text) const noexcept {
      return std::hash<std::string_view>{}(text.view());
   }
};
