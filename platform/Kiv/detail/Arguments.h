// `argumentAs<T>`: takes a value that came by name out of its `std::any`, or says what was
// expected. Relies on type names.
#pragma once

#include "Kiv/Exception.h"
#include "Kiv/detail/TypeNames.h"
#include "Pello/Ptr.h"

#include <any>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kiv {

// The `T` in `value`, exactly; a reference to a changeable object serves where a read-only one is
// wanted. Throws NameError for anything else: "`what` 'name' of owner: expected T".
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
