// `AddressFamily`: the version of an IP address; `addressSize` is its size. Relies on the
// enumeration support of the framework.
#pragma once

#include "Kiv/Enumeration.h"
#include "Pello/Types.h"

#include <cstddef>

namespace Orlix {

// The numbers are those in the version field, the first four bits of a packet (RFC 791, RFC 8200).
enum class AddressFamily : U8 {
   none = 0, // no address
   ipv4 = 4,
   ipv6 = 6,
};
KIV_ENUM(AddressFamily, AddressFamilyInstance)

// How many bytes an address has: 4, 16, or 0 for `none` and for a number without a name.
constexpr std::size_t addressSize(AddressFamily family) noexcept {
   switch (family) {
   case AddressFamily::ipv4:
      return 4;
   case AddressFamily::ipv6:
      return 16;
   case AddressFamily::none:
      break;
   }
   return 0;
}

} // namespace Orlix
