// Scalars to numbers, ranges, names and prefixes. See `PolicyFileValues.h`.

#include "postcard/policy/file/Values.h"

#include "Pello/Utf8.h"

#include <arpa/inet.h>
#include <charconv>
#include <limits>
#include <sys/socket.h>

namespace Postcard::Policy::File {

namespace {

// The longest text that can be a prefix or a range; bounds the work for garbage.
constexpr std::size_t longestValue = 64;

std::optional<std::uint64_t> parseDigits(std::string_view digits, int base) {
   std::uint64_t number = 0;
   const char* end = digits.data() + digits.size();
   const auto [stop, error] = std::from_chars(digits.data(), end, number, base);
   if (stop != end || error == std::errc::invalid_argument) {
      return std::nullopt;
   }
   return error == std::errc::result_out_of_range ? std::numeric_limits<std::uint64_t>::max()
                                                  : number;
}

int systemFamily(Family family) {
   return family == Family::ipv4 ? AF_INET : AF_INET6;
}

unsigned int bitsOf(Family family) {
   return family == Family::ipv4 ? 32 : 128;
}

Family otherFamily(Family family) {
   return family == Family::ipv4 ? Family::ipv6 : Family::ipv4;
}

std::string_view displayName(Family family) {
   return family == Family::ipv4 ? "IPv4" : "IPv6";
}

// The address in network order, an IPv4 one in the first four bytes.
std::optional<std::array<std::uint8_t, 16>> parseAddress(std::string_view text, Family family) {
   std::array<std::uint8_t, 16> address{};
   if (text.size() > longestValue ||
       ::inet_pton(systemFamily(family), std::string(text).c_str(), address.data()) != 1) {
      return std::nullopt;
   }
   return address;
}

void clearHostBits(Prefix& prefix) {
   for (std::size_t byte = 0; byte < prefix.address.size(); ++byte) {
      const std::size_t firstBit = 8 * byte;
      const std::size_t kept = prefix.length > firstBit ? prefix.length - firstBit : 0;
      const unsigned int mask = kept >= 8 ? 0xffU : 0xff00U >> kept & 0xffU;
      prefix.address[byte] = static_cast<std::uint8_t>(prefix.address[byte] & mask);
   }
}

std::string canonicalText(const Prefix& prefix) {
   std::array<char, INET6_ADDRSTRLEN> buffer{};
   ::inet_ntop(systemFamily(prefix.family), prefix.address.data(), buffer.data(),
               static_cast<socklen_t>(buffer.size()));
   return fmt::format("{}/{}", buffer.data(), prefix.length);
}

// Why `text` is not a prefix of `family`.
std::string prefixProblem(std::string_view text, std::string_view what, Family family) {
   const std::size_t slash = text.find('/');
   const std::string_view address = text.substr(0, slash);
   if (parseAddress(address, otherFamily(family))) {
      return fmt::format("{} is an {} prefix in an {} filter", inQuotes(text),
                         displayName(otherFamily(family)), displayName(family));
   }
   if (!parseAddress(address, family)) {
      return fmt::format("expected an {} prefix such as {} for {}, found {}", displayName(family),
                         family == Family::ipv4 ? "192.0.2.0/24" : "2001:db8::/32", what,
                         inQuotes(text));
   }
   if (slash == std::string_view::npos) {
      return fmt::format("prefix {} has no length (expected {}/{} for a single address)",
                         inQuotes(text), address, bitsOf(family));
   }
   return fmt::format("prefix {} has a bad length (expected a number from 0 to {})", inQuotes(text),
                      bitsOf(family));
}

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

// The first character that may not stand in a name.
std::optional<char32_t> unprintableIn(std::string_view text) {
   while (!text.empty()) {
      const Pello::Utf8Character decoded = Pello::decodeUtf8(text);
      if (!Pello::isPrintable(decoded.character)) {
         return decoded.character;
      }
      text.remove_prefix(decoded.length);
   }
   return std::nullopt;
}

std::string nameProblem(std::string_view text, std::string_view what) {
   if (text.empty()) {
      return fmt::format("{} is empty (expected 1 to {} bytes)", what, Values::maxName);
   }
   if (text.size() > Values::maxName) {
      return fmt::format("{} {} is {} bytes long (expected 1 to {})", what, inQuotes(text),
                         text.size(), Values::maxName);
   }
   if (const auto character = unprintableIn(text)) {
      return fmt::format("{} {} holds the character U+{:04X} (expected printable ones)", what,
                         inQuotes(text), static_cast<std::uint32_t>(*character));
   }
   return {};
}

} // namespace

std::optional<std::uint64_t> parseNumber(std::string_view text) {
   if (text.starts_with("0x")) {
      return parseDigits(text.substr(2), 16);
   }
   if (text.starts_with("0o")) {
      return parseDigits(text.substr(2), 8);
   }
   const bool leadingZero = text.size() > 1 && text.front() == '0';
   return leadingZero ? std::nullopt : parseDigits(text, 10);
}

std::optional<Prefix> parsePrefix(std::string_view text, Family family) {
   const std::size_t slash = text.find('/');
   if (slash == std::string_view::npos) {
      return std::nullopt;
   }
   const auto address = parseAddress(text.substr(0, slash), family);
   const std::string_view digits = text.substr(slash + 1);
   const bool decimal = digits.find_first_not_of("0123456789") == std::string_view::npos;
   const auto length = decimal ? parseNumber(digits) : std::nullopt;
   if (!address || !length || *length > bitsOf(family)) {
      return std::nullopt;
   }
   Prefix prefix;
   prefix.family = family;
   prefix.address = *address;
   prefix.length = static_cast<std::uint8_t>(*length);
   clearHostBits(prefix);
   prefix.text = canonicalText(prefix);
   return prefix;
}

std::optional<bool> Values::boolean(const Node& node, std::string_view what) const {
   if (node.kind == NodeKind::plain && (node.text == "true" || node.text == "false")) {
      return node.text == "true";
   }
   mismatch(node, "true or false", what);
   return std::nullopt;
}

std::optional<std::uint64_t> Values::number(const Node& node, std::string_view what,
                                            std::uint64_t low, std::uint64_t high) const {
   const auto number = node.kind == NodeKind::plain ? parseNumber(node.text) : std::nullopt;
   if (!number || *number < low || *number > high) {
      mismatch(node, fmt::format("a number from {} to {}", low, high), what);
      return std::nullopt;
   }
   return number;
}

std::optional<NumberRange> Values::range(const Node& node, std::string_view what,
                                         std::uint16_t high) const {
   const std::string_view text = node.text.substr(0, longestValue);
   const std::size_t dash = text.find('-');
   const auto first = parseNumber(text.substr(0, dash));
   const auto last = dash == std::string_view::npos ? first : parseNumber(text.substr(dash + 1));
   if (!node.isScalar() || !first || !last || *first > high || *last > high) {
      mismatch(node, fmt::format("a number or range from 0 to {}", high), what);
      return std::nullopt;
   }
   if (*first > *last) {
      findings().add(node.location, fmt::format("range {} is reversed (expected {}-{})",
                                                inQuotes(node.text), *last, *first));
      return std::nullopt;
   }
   return NumberRange{static_cast<std::uint16_t>(*first), static_cast<std::uint16_t>(*last),
                      node.location};
}

std::optional<Name> Values::name(const Node& node, std::string_view what) const {
   if (!node.isScalar() || node.isNull()) {
      mismatch(node, "text", what);
      return std::nullopt;
   }
   if (std::string problem = nameProblem(node.text, what); !problem.empty()) {
      findings().add(node.location, std::move(problem));
      return std::nullopt;
   }
   return Name{std::string(node.text), node.location};
}

std::optional<Prefix> Values::prefix(const Node& node, std::string_view what, Family family) const {
   if (!node.isScalar() || node.isNull()) {
      mismatch(node, fmt::format("an {} prefix", displayName(family)), what);
      return std::nullopt;
   }
   auto prefix = parsePrefix(node.text, family);
   if (prefix) {
      prefix->location = node.location;
   } else {
      findings().add(node.location, prefixProblem(node.text, what, family));
   }
   return prefix;
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
      findings().add(node.location,
                     fmt::format("expected {} for {}, found {}", expected, what, found(node)));
   }
}

} // namespace Postcard::Policy::File
