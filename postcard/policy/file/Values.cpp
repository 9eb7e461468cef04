#include "postcard/policy/file/Values.h"

#include "Orlix/IpAddressText.h"
#include "Pello/Utf8.h"
#include "Pello/VisibleCharacters.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <limits>
#include <span>

namespace Postcard::Policy::File {

namespace {

// A longer text is no number, no range and no prefix, even if it is only padded with zeros. The
// limit bounds the work for garbage, which an alias may repeat at every node.
constexpr std::size_t longestScalar = 64;

// ---- Numbers ----

// A number that is too large becomes the greatest one, so that the message is the one about its
// size.
std::optional<U64> parseDigits(std::string_view digits, int base) {
   U64 number = 0;
   const char* end = digits.data() + digits.size();
   const auto [stop, error] = std::from_chars(digits.data(), end, number, base);
   if (stop != end || error == std::errc::invalid_argument) {
      return std::nullopt;
   }
   return error == std::errc::result_out_of_range ? std::numeric_limits<U64>::max() : number;
}

// ---- Prefixes ----

Orlix::AddressFamily addressFamily(Family family) {
   return family == Family::ipv4 ? Orlix::AddressFamily::ipv4 : Orlix::AddressFamily::ipv6;
}

std::size_t bitsOf(Family family) {
   return 8 * Orlix::addressSize(addressFamily(family));
}

std::string_view displayName(Family family) {
   return family == Family::ipv4 ? "IPv4" : "IPv6";
}

// The address `text` as a prefix of full length; nothing when it is no address.
std::optional<Orlix::IpGenPrefix> parseAddress(std::string_view text) {
   if (text.size() > longestScalar) {
      return std::nullopt;
   }
   std::array<U8, 16> bytes{};
   const auto family = Orlix::readAddress(text, bytes);
   if (!family) {
      return std::nullopt;
   }
   const std::size_t size = Orlix::addressSize(*family);
   return Orlix::IpGenPrefix{*family, std::span{bytes}.first(size),
                             static_cast<unsigned>(8 * size)};
}

// A prefix cut into its two parts, so that a message can tell which of them is wrong.
struct WrittenPrefix {
   std::string_view addressText;
   std::optional<Orlix::IpGenPrefix> address; // of full length; nothing: no address
   std::optional<std::string_view> length;    // nothing: no slash

   explicit WrittenPrefix(std::string_view text)
      : addressText{text.substr(0, text.substr(0, longestScalar).find('/'))},
        address{parseAddress(addressText)} {
      if (addressText.size() < text.size()) {
         length = text.substr(addressText.size() + 1);
      }
   }
};

std::optional<Orlix::IpGenPrefix> prefixOf(const WrittenPrefix& written, Family family) {
   if (!written.address || written.address->family() != addressFamily(family) || !written.length) {
      return std::nullopt;
   }
   // `parseNumber` would also take a length such as 0x18.
   const bool decimal = written.length->find_first_not_of("0123456789") == std::string_view::npos;
   const auto length = decimal ? parseNumber(*written.length) : std::nullopt;
   if (!length || *length > bitsOf(family)) {
      return std::nullopt;
   }
   return Orlix::IpGenPrefix{addressFamily(family), written.address->address(),
                             static_cast<unsigned>(*length)};
}

// That `text` is a prefix of the other family than `family`.
std::string wrongFamilyProblem(std::string_view text, Family family) {
   const Family other = family == Family::ipv4 ? Family::ipv6 : Family::ipv4;
   return fmt::format("{} is an {} prefix in an {} filter", inQuotes(text), displayName(other),
                      displayName(family));
}

// Why `text` is not a prefix of `family`. `written` is made of `text`; `what` names it in the
// message.
std::string prefixProblem(std::string_view text, const WrittenPrefix& written,
                          std::string_view what, Family family) {
   if (!written.address) {
      return fmt::format("expected an {} prefix such as {} for {}, found {}", displayName(family),
                         family == Family::ipv4 ? "192.0.2.0/24" : "2001:db8::/32", what,
                         inQuotes(text));
   }
   if (written.address->family() != addressFamily(family)) {
      return wrongFamilyProblem(text, family);
   }
   if (!written.length) {
      return fmt::format("prefix {} has no length (expected {}/{} for a single address)",
                         inQuotes(text), written.addressText, bitsOf(family));
   }
   return fmt::format("prefix {} has a bad length (expected a number from 0 to {})", inQuotes(text),
                      bitsOf(family));
}

// The kind of that problem.
FindingCode prefixCode(const WrittenPrefix& written, Family family) {
   const bool otherFamily = written.address && written.address->family() != addressFamily(family);
   return otherFamily ? FindingCode::wrongFamily : FindingCode::badPrefix;
}

// ---- Messages ----

// What stands at the node, for messages. `Values::mismatch` does not ask about refused nodes.
std::string found(const Node& node) {
   switch (node.kind) {
   case NodeKind::plain:
      return node.isNull() ? "nothing" : inQuotes(node.text);
   case NodeKind::quoted:
      return fmt::format("the text {}", inQuotes(node.text));
   case NodeKind::sequence:
      return "a list";
   default:
      return "a mapping";
   }
}

// The first character of `text` that may not stand in a name; escapes of a quoted scalar can make
// any.
std::optional<char32_t> invisibleIn(std::string_view text) {
   while (!text.empty()) {
      const Pello::Utf8Character decoded = Pello::decodeUtf8(text);
      if (!Pello::isVisible(decoded.character)) {
         return decoded.character;
      }
      text.remove_prefix(decoded.length);
   }
   return std::nullopt;
}

// Why `text` is no name; empty when it is one.
std::string nameProblem(std::string_view text, std::string_view what) {
   if (text.empty()) {
      return fmt::format("{} is empty (expected 1 to {} bytes)", what, Values::maxName);
   }
   if (text.size() > Values::maxName) {
      return fmt::format("{} {} is {} bytes long (expected 1 to {})", what, inQuotes(text),
                         text.size(), Values::maxName);
   }
   if (const auto character = invisibleIn(text)) {
      return fmt::format("{} {} holds the character U+{:04X} (expected printable ones)", what,
                         inQuotes(text), static_cast<U32>(*character));
   }
   return {};
}

} // namespace

std::string rangeText(unsigned low, unsigned high) {
   return low == high ? fmt::format("{}", low) : fmt::format("{}-{}", low, high);
}

std::optional<U64> parseNumber(std::string_view text) {
   if (text.size() > longestScalar) {
      return std::nullopt;
   }
   if (text.starts_with("0x")) {
      return parseDigits(text.substr(2), 16);
   }
   if (text.starts_with("0o")) {
      return parseDigits(text.substr(2), 8);
   }
   const bool leadingZero = text.size() > 1 && text.front() == '0';
   return leadingZero ? std::nullopt : parseDigits(text, 10);
}

std::optional<Orlix::IpGenPrefix> parsePrefix(std::string_view text, Family family) {
   return prefixOf(WrittenPrefix{text}, family);
}

std::optional<bool> Values::boolean(const Node& node, std::string_view what) const {
   if (node.kind == NodeKind::plain && (node.text == "true" || node.text == "false")) {
      return node.text == "true";
   }
   mismatch(node, "true or false", what);
   return std::nullopt;
}

std::optional<U64> Values::number(const Node& node, std::string_view what, U64 low,
                                  U64 high) const {
   const auto number = node.kind == NodeKind::plain ? parseNumber(node.text) : std::nullopt;
   if (!number || *number < low || *number > high) {
      mismatch(node, fmt::format("a number from {} to {}", low, high), what);
      return std::nullopt;
   }
   return number;
}

std::optional<NumberRange> Values::range(const Node& node, std::string_view what, U16 high) const {
   // `parseNumber` refuses an empty text.
   const std::string_view text = node.text.size() <= longestScalar ? node.text : std::string_view{};
   const std::size_t dash = text.find('-');
   const auto first = parseNumber(text.substr(0, dash));
   const auto last = dash == std::string_view::npos ? first : parseNumber(text.substr(dash + 1));
   if (!node.isScalar() || !first || !last || *first > high || *last > high) {
      mismatch(node, fmt::format("a number or range from 0 to {}", high), what);
      return std::nullopt;
   }
   if (*first > *last) {
      findings().add(node.location, FindingCode::reversedRange,
                     fmt::format("range {} is reversed (expected {}-{})", inQuotes(node.text),
                                 *last, *first));
      return std::nullopt;
   }
   return NumberRange{static_cast<U16>(*first), static_cast<U16>(*last), node.location};
}

std::optional<Name> Values::name(const Node& node, std::string_view what) const {
   if (!node.isScalar() || node.isNull()) {
      mismatch(node, "text", what);
      return std::nullopt;
   }
   if (std::string problem = nameProblem(node.text, what); !problem.empty()) {
      findings().add(node.location, FindingCode::badName, std::move(problem));
      return std::nullopt;
   }
   return Name{std::string{node.text}, node.location};
}

std::optional<Orlix::IpGenPrefix> Values::address(const Node& node, std::string_view what) const {
   // No address is longer; what is read becomes no longer than this.
   constexpr std::size_t longest = 45; // of an IPv6 address that ends as one of IPv4
   if (node.isScalar() && node.text.size() <= longest) {
      const std::string text{node.text};
      const bool colons = text.find(':') != std::string::npos;
      if (const auto host = parsePrefix(text + (colons ? "/128" : "/32"),
                                        colons ? Family::ipv6 : Family::ipv4)) {
         return host;
      }
   }
   mismatch(node, "an address such as 192.0.2.10 or 2001:db8::10", what);
   return std::nullopt;
}

std::optional<Prefix> Values::prefix(const Node& node, std::string_view what, Family family) const {
   if (!node.isScalar() || node.isNull()) {
      mismatch(node, fmt::format("an {} prefix", displayName(family)), what);
      return std::nullopt;
   }
   const WrittenPrefix written{node.text};
   if (const auto prefix = prefixOf(written, family)) {
      return Prefix{*prefix, node.location};
   }
   findings().add(node.location, prefixCode(written, family),
                  prefixProblem(node.text, written, what, family));
   return std::nullopt;
}

std::optional<Prefix> Values::prefixOfAnyFamily(const Node& node, std::string_view what) const {
   if (!node.isScalar() || node.isNull()) {
      mismatch(node, "a prefix", what);
      return std::nullopt;
   }
   const WrittenPrefix written{node.text};
   if (!written.address) {
      findings().add(node.location, FindingCode::badPrefix,
                     fmt::format("expected a prefix such as 192.0.2.0/24 or 2001:db8::/32 for {}, "
                                 "found {}",
                                 what, inQuotes(node.text)));
      return std::nullopt;
   }
   const bool isIpv4 = written.address->family() == Orlix::AddressFamily::ipv4;
   return prefix(node, what, isIpv4 ? Family::ipv4 : Family::ipv6);
}

bool Values::isOfFamily(const Node& node, const Prefix& prefix, Family family) const {
   if (prefix.value.family() == addressFamily(family)) {
      return true;
   }
   findings().add(node.location, FindingCode::wrongFamily,
                  wrongFamilyProblem(node.text, family) + fmt::format(" (defined at {}:{})",
                                                                      prefix.location.line,
                                                                      prefix.location.column));
   return false;
}

bool Values::fitsMask(const Node& node, std::string_view what, unsigned bits, unsigned mask) const {
   if ((bits & ~mask) == 0) {
      return true;
   }
   findings().add(node.location, FindingCode::outsideMask,
                  fmt::format("{} {:#x} has bits outside the mask {:#x}, so nothing can match",
                              what, bits, mask));
   return false;
}

bool Values::isList(const Node& node, std::string_view what) const {
   if (node.kind == NodeKind::sequence) {
      return true;
   }
   mismatch(node, "a list", what);
   return false;
}

void Values::mismatch(const Node& node, std::string_view expected, std::string_view what) const {
   if (node.kind != NodeKind::refused) {
      findings().add(node.location, FindingCode::wrongValue,
                     fmt::format("expected {} for {}, found {}", expected, what, found(node)));
   }
}

} // namespace Postcard::Policy::File
