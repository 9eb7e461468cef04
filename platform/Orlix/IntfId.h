// `IntfId`: an interface, as a number that stands for its name in this process. Relies on a table
// of all names that the process has mentioned. The table only grows, so a number never gets another
// name. Four bytes are cheaper to compare and to copy than a name.
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
   // A value with a text of its own (Kiv::TextualValue): its generic text is the name in double
   // quotes.
   static constexpr bool kivTextual = true;
   static constexpr std::string_view kivTypeName = "Orlix::IntfId";
   static const Kiv::TypeData& kivTypeData();

   // No interface: the empty name, number 0.
   constexpr IntfId() noexcept = default;
   // The interface `name`; the first mention of a name gives it the next number. Any text is
   // accepted, and nothing asks whether the system has such an interface; empty text is no
   // interface. Throws `std::bad_alloc`. May be called from several threads while the thread-safety
   // switch is on.
   explicit IntfId(std::string_view name);

   // 0 for no interface, else counted from 1. Means nothing outside of this process: it is not the
   // interface index of the kernel.
   constexpr U32 number() const noexcept { return number_; }
   // The name; empty for no interface. Valid until the process ends. Threads as for the
   // constructor.
   const Pello::String& stringValue() const;
   U64 hash(U64 seed) const noexcept { return Kiv::hashNumber(number_, seed); }

   friend constexpr bool operator==(IntfId, IntfId) noexcept = default;
   // By number, thus in the order in which the names were first mentioned.
   friend constexpr std::strong_ordering operator<=>(IntfId, IntfId) noexcept = default;
   // Writes the bare name.
   friend std::ostream& operator<<(std::ostream& out, IntfId intf) {
      return out << intf.stringValue();
   }

 private:
   U32 number_ = 0;
};

} // namespace Orlix
