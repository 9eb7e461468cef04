// `IpGenPrefix`: an IP prefix of either address family, or of none. Relies on IpAddressText for its
// text.
//
// Bits behind the length are always zero, so that prefixes are equal exactly when their bytes are.
#pragma once

#include "Kiv/TypeData.h"
#include "Kiv/Value.h"
#include "Orlix/AddressFamily.h"
#include "Pello/Types.h"

#include <array>
#include <compare>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

namespace Orlix {

class IpGenPrefix {
 public:
   // A value with a text of its own (Kiv::TextualValue): its generic text is `stringValue()` in
   // double quotes.
   static constexpr bool kivTextual = true;
   // Bytes that no constructor makes can be printed as well (Kiv::anyBytes). With a family that
   // does not exist they print as the unset prefix.
   static constexpr bool kivAnyBytes = true;
   static constexpr std::string_view kivTypeName = "Orlix::IpGenPrefix";
   static const Kiv::TypeData& kivTypeData();

   // Unset: no family, length 0.
   constexpr IpGenPrefix() noexcept = default;

   // From `address/length`, or from an address alone, which means its full length; bits behind the
   // length are cleared. The empty text is the unset prefix. Numbers have no leading zeros, and
   // nothing may stand before or behind. Throws ParseError.
   explicit IpGenPrefix(std::string_view text);

   // From an address in network order; bits behind `length` are cleared. Throws RangeError when
   // `address` is not of the size of the family, or `length` is more than its bits.
   IpGenPrefix(AddressFamily family, std::span<const U8> address, unsigned length);

   // Every address of `family`: length 0.
   static constexpr IpGenPrefix every(AddressFamily family) noexcept {
      IpGenPrefix prefix;
      prefix.family_ = family;
      return prefix;
   }

   constexpr AddressFamily family() const noexcept { return family_; }
   // In bits.
   constexpr U8 length() const noexcept { return length_; }
   // The first address, in network order: 4 or 16 bytes, none when unset. Valid as long as this
   // object is.
   constexpr std::span<const U8> address() const& noexcept {
      return std::span{bytes_}.first(addressSize(family_));
   }
   std::span<const U8> address() const&& = delete;

   // Whether `address`, in network order, lies in the prefix. An address of another size never
   // does, and the unset prefix contains nothing.
   bool contains(std::span<const U8> address) const noexcept;

   // `address/length`, the address as a dotted quad or as RFC 5952 recommends; empty when unset.
   // The constructor from text reads it back to an equal prefix.
   std::string stringValue() const;
   U64 hash(U64 seed) const noexcept;

   friend constexpr bool operator==(const IpGenPrefix&, const IpGenPrefix&) noexcept = default;
   // By family (unset, IPv4, IPv6), then address, then length.
   friend std::strong_ordering operator<=>(const IpGenPrefix& a, const IpGenPrefix& b) noexcept;
   // Writes `stringValue()`.
   friend std::ostream& operator<<(std::ostream& out, const IpGenPrefix& prefix);

 private:
   void clearHostBits() noexcept;

   AddressFamily family_ = AddressFamily::none;
   U8 length_ = 0;              // in bits
   std::array<U8, 16> bytes_{}; // in network order; zero behind the length
};

} // namespace Orlix
