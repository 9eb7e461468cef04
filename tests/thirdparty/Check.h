#pragma once

#include <concepts>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace thirdparty {

// The checks of one program. A failed check is printed and the program goes on, so that one run
// shows everything that is wrong.
class Tally {
 public:
   static Tally& instance() {
      static Tally tally{};
      return tally;
   }

   void note(bool held, const char* file, int line, const std::string& what) {
      if (held) {
         ++passed_;
         return;
      }
      ++failed_;
      std::cout << file << ':' << line << ": " << what << '\n';
   }

   int report() const {
      if (failed_ != 0) {
         std::cout << failed_ << " checks failed\n";
      }
      std::cout << passed_ << " checks passed\n";
      return failed_ == 0 ? 0 : 1;
   }

 private:
   unsigned passed_{0};
   unsigned failed_{0};
};

// A group of checks that enters itself in the program it is linked to.
class Subject {
 public:
   using Run = void (*)();

   Subject(const char* name, Run run) { all().push_back({name, run}); }

   static std::vector<std::pair<const char*, Run>>& all() {
      static std::vector<std::pair<const char*, Run>> subjects{};
      return subjects;
   }
};

template <typename Value>
concept PlainInteger =
      std::integral<Value> && !std::same_as<Value, bool> && !std::same_as<Value, char>;

template <typename Left, typename Right>
bool equal(const Left& left, const Right& right) {
   if constexpr (PlainInteger<Left> && PlainInteger<Right>) {
      return std::cmp_equal(left, right);
   } else {
      return static_cast<bool>(left == right);
   }
}

template <typename Value>
std::string shown(const Value& value) {
   if constexpr (requires(std::ostream& out) { out << value; }) {
      std::ostringstream out{};
      out << value;
      return out.str();
   } else {
      return "(a value without text)";
   }
}

template <typename Left, typename Right>
void noteEqual(const Left& left, const Right& right, const char* file, int line,
               const std::string& what) {
   const bool held{equal(left, right)};
   std::string const detail{
         held ? "" : "\n   is:       " + shown(left) + "\n   expected: " + shown(right)};
   Tally::instance().note(held, file, line, what + detail);
}

// Two references to the same object, whatever their constness.
template <typename Left, typename Right>
bool same(const Left& left, const Right& right) {
   return static_cast<bool>(left) && static_cast<bool>(right) &&
          static_cast<const void*>(std::addressof(*left)) ==
                static_cast<const void*>(std::addressof(*right));
}

inline bool contains(std::string_view whole, std::string_view part) {
   return whole.find(part) != std::string_view::npos;
}

} // namespace thirdparty

// Variadic, so that braces with commas may stand in the expression.
#define CHECK(...)                                                                                 \
   ::thirdparty::Tally::instance().note(static_cast<bool>(__VA_ARGS__), __FILE__, __LINE__,        \
                                        #__VA_ARGS__)
#define CHECK_EQ(...)                                                                              \
   ::thirdparty::noteEqual(__VA_ARGS__, __FILE__, __LINE__, "CHECK_EQ(" #__VA_ARGS__ ")")
