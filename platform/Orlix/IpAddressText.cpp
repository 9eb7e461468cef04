#include "Orlix/IpAddressText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>
#include <system_error>

namespace Orlix {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdefABCDEF";
constexpr std::size_t groupCount = 8;

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

// ---- Reading ----

// Reads a text from left to right. It keeps the first failure instead of throwing, because a file
// may hold a wrong address at each of a hundred thousand places, and exceptions are slow.
class Scanner {
 public:
   explicit Scanner(std::string_view text) : text_{text} {}

   std::string_view rest() const { return text_.substr(position_); }
   std::size_t position() const { return position_; }
   bool next(std::string_view token) const { return rest().starts_with(token); }
   void skip(std::size_t size) { position_ += size; }
   bool accept(std::string_view token) {
      const bool found = next(token);
      skip(found ? token.size() : 0);
      return found;
   }

   // What was expected at `position()`; null when nothing failed.
   const char* failure() const { return failure_; }
   // Records what was expected. Returns false, so that a caller can write `return scanner.fail(…)`.
   bool fail(const char* reason) {
      failure_ = reason;
      return false;
   }

 private:
   std::string_view text_;
   std::size_t position_ = 0;
   const char* failure_ = nullptr;
};

// Reading functions return whether they succeeded. After a failure the scanner says what was
// expected.

bool readOctet(Scanner& scanner, U8& octet) {
   const std::string_view text = scanner.rest();
   if (text.size() > 1 && text[0] == '0' && isDigit(text[1])) {
      // Some programs read such a number as octal: 010 is 8 to them.
      return scanner.fail("expected a number without leading zeros");
   }
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), octet);
   if (error == std::errc::invalid_argument) {
      return scanner.fail("expected a number");
   }
   if (error == std::errc::result_out_of_range) {
      return scanner.fail("expected a number from 0 to 255");
   }
   scanner.skip(static_cast<std::size_t>(end - text.data()));
   return true;
}

bool readDottedQuad(Scanner& scanner, std::span<U8> bytes) {
   for (std::size_t index = 0; index < 4; ++index) {
      if (index > 0 && !scanner.accept(".")) {
         return scanner.fail("expected \".\"");
      }
      if (!readOctet(scanner, bytes[index])) {
         return false;
      }
   }
   return true;
}

// Reads the text of an IPv6 address: groups, at most one "::", perhaps a dotted quad at the end.
// How many groups "::" stands for is known only at the end, so all groups are collected first.
class GroupReader {
 public:
   GroupReader(Scanner& scanner, std::span<U8, 16> bytes) : scanner_{scanner}, out_{bytes} {}

   bool read() {
      acceptGap();
      while (count_ < limit() && !endsAfterGap()) {
         if (isDottedQuad()) {
            if (!readQuad()) {
               return false;
            }
            break;
         }
         if (!readGroup()) {
            return false;
         }
         if (count_ == limit() || !acceptSeparator()) {
            break;
         }
      }
      return scanner_.failure() == nullptr && spread();
   }

 private:
   // How many groups the text may have. "::" stands for at least one, so it leaves seven.
   std::size_t limit() const { return gap_ ? groupCount - 1 : groupCount; }

   bool acceptGap() {
      if (!scanner_.next("::")) {
         return false;
      }
      if (gap_) {
         return scanner_.fail("expected no second \"::\"");
      }
      scanner_.accept("::");
      gap_ = count_;
      return true;
   }

   // Whether another group may follow; false also after a failure.
   bool acceptSeparator() {
      return acceptGap() || (scanner_.failure() == nullptr && scanner_.accept(":"));
   }

   // Whether the text ends behind "::", the only separator that may be the last. "/" begins the
   // length of a prefix.
   bool endsAfterGap() const {
      return gap_ == count_ && (scanner_.rest().empty() || scanner_.next("/"));
   }

   std::size_t digitCount() const {
      const std::size_t end = scanner_.rest().find_first_not_of(hexDigits);
      return end == std::string_view::npos ? scanner_.rest().size() : end;
   }

   // A dotted quad stands for two groups; the digits before its first dot look like a group.
   bool isDottedQuad() const {
      const std::size_t digits = digitCount();
      return digits > 0 && count_ + 2 <= limit() && scanner_.rest().substr(digits).starts_with('.');
   }

   bool readQuad() {
      const bool good = readDottedQuad(scanner_, std::span{written_}.subspan(2 * count_, 4));
      count_ += 2;
      return good;
   }

   bool readGroup() {
      const std::size_t digits = digitCount();
      if (digits < 1 || digits > 4) {
         return scanner_.fail("expected 1 to 4 hexadecimal digits");
      }
      const std::string_view text = scanner_.rest().substr(0, digits);
      U16 group = 0;
      std::from_chars(text.data(), text.data() + text.size(), group, 16);
      written_[2 * count_] = static_cast<U8>(group >> 8);
      written_[2 * count_ + 1] = static_cast<U8>(group & 0xff);
      ++count_;
      scanner_.skip(digits);
      return true;
   }

   // Writes the groups before the gap to the front, those behind it to the end, and zeros in
   // between.
   bool spread() {
      if (!gap_ && count_ < groupCount) {
         return scanner_.fail("expected eight groups or \"::\"");
      }
      const std::size_t before = 2 * gap_.value_or(groupCount);
      for (std::size_t index = 0; index < 16; ++index) {
         const std::size_t fromEnd = 16 - index;
         const std::size_t behind = 2 * count_ - before;
         if (index < before) {
            out_[index] = written_[index];
         } else {
            out_[index] = fromEnd > behind ? U8{0} : written_[2 * count_ - fromEnd];
         }
      }
      return true;
   }

   Scanner& scanner_;
   std::span<U8, 16> out_;
   std::array<U8, 16> written_{};   // the groups as read, without the zeros of "::"
   std::size_t count_ = 0;          // groups read, a dotted quad counting as two
   std::optional<std::size_t> gap_; // groups before "::"
};

// Reads the address and returns its family; nothing after a failure.
std::optional<AddressFamily> scanAddress(Scanner& scanner, std::span<U8, 16> bytes) {
   const std::string_view text = scanner.rest();
   // A colon decides. Behind "/" stands a prefix length, where a colon is a failure of another
   // kind.
   if (text.substr(0, text.find('/')).find(':') == std::string_view::npos) {
      return readDottedQuad(scanner, bytes) ? std::optional{AddressFamily::ipv4} : std::nullopt;
   }
   return GroupReader{scanner, bytes}.read() ? std::optional{AddressFamily::ipv6} : std::nullopt;
}

// ---- Writing ----

void printNumber(std::string& out, unsigned number, int base) {
   std::array<char, 8> digits;
   const auto end = std::to_chars(digits.begin(), digits.end(), number, base).ptr;
   out.append(digits.begin(), end);
}

void printDottedQuad(std::string& out, std::span<const U8> bytes) {
   for (std::size_t index = 0; index < 4; ++index) {
      out += index == 0 ? "" : ".";
      printNumber(out, bytes[index], 10);
   }
}

// Adjacent groups; by default none, with a beginning that no group has.
struct Run {
   std::size_t begin = groupCount;
   std::size_t size = 0;
};

// The groups that "::" stands for (RFC 5952, section 4.2): the longest run of zeros, the first of
// several equally long ones. A single zero group is written out.
Run longestZeroRun(std::span<const U16> groups) {
   Run longest;
   Run current;
   for (std::size_t index = 0; index < groups.size(); ++index) {
      if (groups[index] != 0) {
         current = {};
         continue;
      }
      current = {current.size == 0 ? index : current.begin, current.size + 1};
      longest = current.size > longest.size ? current : longest;
   }
   return longest.size > 1 ? longest : Run{};
}

void printGroups(std::string& out, std::span<const U16> groups) {
   const Run gap = longestZeroRun(groups);
   for (std::size_t index = 0; index < groups.size(); ++index) {
      if (index == gap.begin) {
         out += "::";
         index += gap.size - 1;
         continue;
      }
      out += index == 0 || index == gap.begin + gap.size ? "" : ":";
      printNumber(out, groups[index], 16);
   }
}

std::array<U16, groupCount> groupsOf(std::span<const U8> bytes) {
   std::array<U16, groupCount> groups;
   for (std::size_t index = 0; index < groupCount; ++index) {
      groups[index] = static_cast<U16>(bytes[2 * index] << 8 | bytes[2 * index + 1]);
   }
   return groups;
}

} // namespace

AddressFamily parseAddress(Kiv::TextParser& parser, std::span<U8, 16> bytes) {
   Scanner scanner{parser.rest()};
   const auto family = scanAddress(scanner, bytes);
   // Moves the parser to where the scanner stopped, so that a failure is reported there.
   parser.accept(parser.rest().substr(0, scanner.position()));
   if (!family) {
      parser.fail(scanner.failure());
   }
   return *family;
}

std::optional<AddressFamily> readAddress(std::string_view text, std::span<U8, 16> bytes) {
   Scanner scanner{text};
   const auto family = scanAddress(scanner, bytes);
   return scanner.rest().empty() ? family : std::nullopt;
}

void printAddress(std::string& out, std::span<const U8> bytes) {
   if (bytes.size() == addressSize(AddressFamily::ipv4)) {
      printDottedQuad(out, bytes);
      return;
   }
   const auto groups = groupsOf(bytes);
   // IPv4-mapped addresses (RFC 4291, section 2.5.5.2) are more readable with a dotted quad, which
   // RFC 5952, section 5 recommends.
   constexpr std::array<U16, 6> mapped{0, 0, 0, 0, 0, 0xffff};
   if (std::equal(mapped.begin(), mapped.end(), groups.begin())) {
      out += "::ffff:";
      printDottedQuad(out, bytes.subspan(12));
      return;
   }
   printGroups(out, groups);
}

} // namespace Orlix
