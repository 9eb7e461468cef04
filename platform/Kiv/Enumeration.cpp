#include "Kiv/Enumeration.h"

#include <algorithm>
#include <charconv>
#include <ostream>

namespace Kiv {

namespace {

// For messages, so that whoever has mistyped a name sees the right ones.
std::string expectedNames(const EnumTable& table) {
   std::string names;
   for (const Enumerator& enumerator : table.enumerators) {
      names += names.empty() ? "" : ", ";
      names += enumerator.name;
   }
   return names;
}

} // namespace

std::ostream& writeText(std::ostream& out, std::string_view text) {
   return out << text;
}

std::string enumName(const EnumTable& table, U8 value) {
   const auto found = std::ranges::find(table.enumerators, value, &Enumerator::value);
   return found == table.enumerators.end() ? std::to_string(value) : std::string{found->name};
}

U8 enumByNumber(const EnumTable& table, U32 number) {
   const auto found = std::ranges::find_if(table.enumerators, [&](const Enumerator& enumerator) {
      return enumerator.value == number;
   });
   if (found == table.enumerators.end()) {
      throw RangeError{std::string{table.typeName} + " has no enumerator of number " +
                       std::to_string(number)};
   }
   return found->value;
}

U8 enumByName(const EnumTable& table, std::string_view name) {
   const auto found = std::ranges::find(table.enumerators, name, &Enumerator::name);
   if (found == table.enumerators.end()) {
      throw ParseError{std::string{table.typeName} + " has no enumerator '" + std::string{name} +
                             "' (expected one of: " + expectedNames(table) + ")",
                       0};
   }
   return found->value;
}

U8 enumByPrintedName(const EnumTable& table, std::string_view name) {
   U8 number = 0;
   const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
   // Comparing with what would be printed refuses the digits of a number that has a name, leading
   // zeros, and anything behind the digits.
   if (error == std::errc{} && enumName(table, number) == name) {
      return number;
   }
   return enumByName(table, name);
}

} // namespace Kiv
