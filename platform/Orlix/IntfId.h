// `IntfId`: an interface, as a number that stands for its name in this process. Relies on a table
// of all names ever seen, which only grows: a number is never given to another name.
#pragma once

#include "Kiv/Hash.h"
#include "Kiv/TypeData.h"
#include "Kiv/Value.h"
#include "Pello/String.h"
#include "Pello/Types.h"

#include <compare>
#include <iosfwd>
#include <string_view>

namespace Orlix {

class IntfId {
 public:
   // Its generic text is the name in double quotes.
   static constexpr bool kivTextual = true;
   static constexpr std::string_view kivTypeName = "Orlix::IntfId";
   static const Kiv::TypeData& kivTypeData();

   // No interface: the empty name, number 0.
   constexpr IntfId() noexcept = default;
   // The interface of that name; the first mention of a name gives it the next number. Any text is
   // accepted. May be called by several threads when `Pello::threadSafe()` is on.
   explicit IntfId(std::string_view name);

   // Means nothing outside this process.
   constexpr U32 number() const noexcept { return number_; }
   // Valid until the process ends.
   const Pello::String& stringValue() const;
   U64 hash(U64 seed) const noexcept { return Kiv::hashNumber(number_, seed); }

   friend constexpr bool operator==(IntfId, IntfId) noexcept = default;
   // By number: in the order in which the names were first mentioned, not by name.
   friend constexpr std::strong_ordering operator<=>(IntfId, IntfId) noexcept = default;
   // The bare name.
   friend std::ostream& operator<<(std::ostream& out, IntfId intf) {
      return out << intf.stringValue();
   }

 private:
   U32 number_ = 0;
};

} // namespace Orlix
