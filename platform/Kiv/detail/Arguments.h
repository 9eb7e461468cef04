// `argumentAs<T>`: takes an argument of a call by name, or a value for an attribute, out of its
// `std::any`. Relies on type names.
#pragma once

#include "Kiv/Exception.h"
#include "Kiv/detail/TypeNames.h"
#include "Pello/Ptr.h"

#include <any>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kiv {

// A copy of the `T` in `value`. There are no conversions, because `std::any` has none; only where
// `T` is a `Pello::Ptr<const U>`, a `Pello::Ptr<U>` serves as well. Throws NameError for anything
// else: "argument 'name' of owner: expected T", where `what` is the first word.
template <class T>
T argumentAs(const std::any& value, std::string_view what, std::string_view name,
             std::string_view owner) {
   if (const auto* exact = std::any_cast<T>(&value)) {
      return *exact;
   }
   if constexpr (requires { typename T::Element; }) {
      using Generous = Pello::Ptr<std::remove_const_t<typename T::Element>>;
      if (const auto* generous = std::any_cast<Generous>(&value)) {
         return *generous;
      }
   }
   throw NameError{std::string{what} + " '" + std::string{name} + "' of " + std::string{owner} +
                   ": expected " + typeNameOf<T>()};
}

} // namespace Kiv
