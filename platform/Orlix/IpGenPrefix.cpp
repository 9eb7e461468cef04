#include "Orlix/IpGenPrefix.h"

#include "Kiv/Hash.h"
#include "Kiv/Reflection.h"
#include "Kiv/TextParser.h"
#include "Orlix/IpAddressText.h"

#include <algorithm>
#include <tuple>
#include <type_traits>

KIV_DEFINE_VALUE(Orlix::IpGenPrefix)

namespace Orlix {

// Copying a rule copies its prefixes, so that has to be cheap. Hashing reads the bytes of the
// object, so there must be no padding, whose bytes would differ between equal prefixes.
static_assert(std::is_trivially_copyable_v<IpGenPrefix> && sizeof(IpGenPrefix) == 18);
static_assert(std::has_unique_object_representations_v<IpGenPrefix>);

namespace {

constexpr unsigned bitsOf(AddressFamily family) {
   return static_cast<unsigned>(8 * addressSize(family));
}

// The mask of the bits in byte number `index` that belong to the first `length` bits of an address.
constexpr U8 byteMask(std::size_t index, unsigned length) {
   const auto before = static_cast<unsigned>(8 * index);
   const unsigned fixed = length <= before ? 0 : std::min(length - before, 8U);
   // The upper eight bits of the constant move into the byte; the rest is cut off.
   return static_cast<U8>(0xff00U >> fixed);
}

// Reads what follows the address: "/" and a length, or nothing, which stands for `most`.
unsigned parseLength(Kiv::TextParser& parser, unsigned most) {
   if (parser.rest().empty()) {
      return most;
   }
   if (!parser.accept("/")) {
      parser.fail("expected \"/\" or the end of the text");
   }
   const std::string_view digits = parser.rest();
   if (digits.size() > 1 && digits[0] == '0' && digits[1] >= '0' && digits[1] <= '9') {
      parser.fail("expected a number without leading zeros");
   }
   const auto length = static_cast<unsigned>(parser.number(most));
   parser.expectEnd();
   return length;
}

// Checked before anything is copied: a longer address would not fit into the array.
void requireAddress(AddressFamily family, std::span<const U8> address, unsigned length) {
   const std::string type{IpGenPrefix::kivTypeName};
   if (address.size() != addressSize(family)) {
      throw Kiv::RangeError{type + ": an address of family " + stringValue(family) + " has " +
                            std::to_string(addressSize(family)) + " bytes, not " +
                            std::to_string(address.size())};
   }
   if (length > bitsOf(family)) {
      throw Kiv::RangeError{type + ": length " + std::to_string(length) + " is more than " +
                            std::to_string(bitsOf(family))};
   }
}

} // namespace

IpGenPrefix::IpGenPrefix(std::string_view text) {
   if (text.empty()) {
      return;
   }
   Kiv::TextParser parser{text};
   family_ = parseAddress(parser, bytes_);
   length_ = static_cast<U8>(parseLength(parser, bitsOf(family_)));
   clearHostBits();
}

IpGenPrefix::IpGenPrefix(AddressFamily family, std::span<const U8> address, unsigned length)
   : family_{family} {
   requireAddress(family, address, length);
   length_ = static_cast<U8>(length);
   std::ranges::copy(address, bytes_.begin());
   clearHostBits();
}

void IpGenPrefix::clearHostBits() noexcept {
   for (std::size_t index = 0; index < bytes_.size(); ++index) {
      bytes_[index] &= byteMask(index, length_);
   }
}

bool IpGenPrefix::contains(std::span<const U8> address) const noexcept {
   if (family_ == AddressFamily::none || address.size() != addressSize(family_)) {
      return false;
   }
   for (std::size_t index = 0; index < address.size(); ++index) {
      if ((address[index] & byteMask(index, length_)) != bytes_[index]) {
         return false;
      }
   }
   return true;
}

std::string IpGenPrefix::stringValue() const {
   std::string text;
   if (!address().empty()) {
      printAddress(text, address());
      text += '/';
      text += std::to_string(length_);
   }
   return text;
}

U64 IpGenPrefix::hash(U64 seed) const noexcept {
   return Kiv::hashBytes(this, sizeof *this, seed);
}

std::strong_ordering operator<=>(const IpGenPrefix& a, const IpGenPrefix& b) noexcept {
   // Not in the order of the members: a prefix comes directly before those that it contains.
   return std::tie(a.family_, a.bytes_, a.length_) <=> std::tie(b.family_, b.bytes_, b.length_);
}

std::ostream& operator<<(std::ostream& out, const IpGenPrefix& prefix) {
   return out << prefix.stringValue();
}

} // namespace Orlix
