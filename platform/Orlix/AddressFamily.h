// `AddressFamily`: which kind of IP address, and how large one is. Relies on the enumeration
// support of the framework.
#pragma once

#include "Kiv/Enumeration.h"
#include "Pello/Types.h"

#include <cstddef>

namespace Orlix {

// The numbers are the versions in the first four bits of a packet.
enum class AddressFamily : U8 {
   none = 0, // unset
   ipv4 = 4,
   ipv6 = 6,
};
KIV_ENUM(AddressFamily, AddressFamilyInstance)

// Bytes of an address: 4, 16, or 0 for `none`.
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
