// `VrfName`: the name of a routing instance (VRF, RFC 4364). Relies on `Pello::String`: copies of a
// name share its characters.
#pragma once

#include "Kiv/Hash.h"
#include "Kiv/TypeData.h"
#include "Kiv/Value.h"
#include "Pello/String.h"

#include <compare>
#include <iosfwd>
#include <string_view>
#include <utility>

namespace L3 {

class VrfName {
 public:
   // The type framework takes the value's text from `stringValue`. The generic text is the name in
   // double quotes.
   static constexpr bool kivTextual = true;
   static constexpr std::string_view kivTypeName = "L3::VrfName";
   static const Kiv::TypeData& kivTypeData();

   // The empty name: no routing instance has been named.
   VrfName() noexcept = default;
   // Any text is accepted; what makes a good name is up to whoever configures it.
   explicit VrfName(Pello::String name) noexcept : name_{std::move(name)} {}

   // The name. The reference is valid as long as this object.
   const Pello::String& stringValue() const noexcept { return name_; }
   // The hash of the characters; equal names have equal hashes for one `seed`.
   U64 hash(U64 seed) const noexcept { return Kiv::hashString(name_, seed); }

   friend bool operator==(const VrfName&, const VrfName&) noexcept = default;
   // By bytes, compared as unsigned numbers: no language's alphabet.
   friend std::strong_ordering operator<=>(const VrfName&, const VrfName&) noexcept = default;
   // Writes the bare name.
   friend std::ostream& operator<<(std::ostream& out, const VrfName& vrf) {
      return out << vrf.name_;
   }

 private:
   Pello::String name_;
};

} // namespace L3
