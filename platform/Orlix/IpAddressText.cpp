#include "Orlix/IpAddressText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>

namespace Orlix {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdefABCDEF";
constexpr std::size_t groupCount = 8;

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

// ---- Reading ----

U8 parseOctet(Kiv::TextParser& parser) {
   const std::string_view text = parser.rest();
   if (text.size() > 1 && text[0] == '0' && isDigit(text[1])) {
      parser.fail("expected a number without leading zeros"); // some read them as octal
   }
   return static_cast<U8>(parser.number(255));
}

void parseDottedQuad(Kiv::TextParser& parser, std::span<U8> bytes) {
   for (std::size_t index = 0; index < 4; ++index) {
      if (index > 0) {
         parser.expect(".");
      }
      bytes[index] = parseOctet(parser);
   }
}

// The text of IPv6 from left to right: groups, at most one "::", perhaps a dotted quad at the end.
class GroupReader {
 public:
   GroupReader(Kiv::TextParser& parser, std::span<U8, 16> bytes) : parser_{parser}, out_{bytes} {}

   void read() {
      acceptGap();
      while (count_ < limit() && !endsAfterGap()) {
         if (isDottedQuad()) {
            readDottedQuad();
            break;
         }
         readGroup();
         if (count_ == limit() || (!acceptGap() && !parser_.accept(":"))) {
            break;
         }
      }
      spread();
   }

 private:
   // How many groups can be written: "::" stands for at least one.
   std::size_t limit() const { return gap_ ? groupCount - 1 : groupCount; }

   bool acceptGap() {
      if (!parser_.next("::")) {
         return false;
      }
      if (gap_) {
         parser_.fail("expected no second \"::\"");
      }
      parser_.accept("::");
      gap_ = count_;
      return true;
   }

   // "::" is the one separator that nothing needs to follow.
   bool endsAfterGap() const {
      return gap_ == count_ && (parser_.rest().empty() || parser_.next("/"));
   }

   std::size_t digitCount() const {
      const std::size_t end = parser_.rest().find_first_not_of(hexDigits);
      return end == std::string_view::npos ? parser_.rest().size() : end;
   }

   bool isDottedQuad() const {
      const std::size_t digits = digitCount();
      return digits > 0 && count_ + 2 <= limit() && parser_.rest().substr(digits).starts_with('.');
   }

   void readDottedQuad() {
      parseDottedQuad(parser_, std::span{written_}.subspan(2 * count_, 4));
      count_ += 2;
   }

   void readGroup() {
      const std::size_t digits = digitCount();
      if (digits < 1 || digits > 4) {
         parser_.fail("expected 1 to 4 hexadecimal digits");
      }
      const std::string_view text = parser_.rest().substr(0, digits);
      U16 group = 0;
      std::from_chars(text.data(), text.data() + text.size(), group, 16);
      written_[2 * count_] = static_cast<U8>(group >> 8);
      written_[2 * count_ + 1] = static_cast<U8>(group & 0xff);
      ++count_;
      parser_.accept(text);
   }

   // The groups before the gap to the front, those behind it to the end, zeros between them.
   void spread() {
      if (!gap_ && count_ < groupCount) {
         parser_.fail("expected eight groups or \"::\"");
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
   }

   Kiv::TextParser& parser_;
   std::span<U8, 16> out_;
   std::array<U8, 16> written_{};
   std::size_t count_ = 0;          // groups read, a dotted quad counting as two
   std::optional<std::size_t> gap_; // groups before "::"
};

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

struct Run {
   std::size_t begin = groupCount;
   std::size_t size = 0;
};

// The groups that "::" stands for: the longest run of zeros, the first of several; one group alone
// is written out.
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
   const std::string_view text = parser.rest();
   if (text.substr(0, text.find('/')).find(':') == std::string_view::npos) {
      parseDottedQuad(parser, bytes);
      return AddressFamily::ipv4;
   }
   GroupReader{parser, bytes}.read();
   return AddressFamily::ipv6;
}

void printAddress(std::string& out, std::span<const U8> bytes) {
   if (bytes.size() == addressSize(AddressFamily::ipv4)) {
      printDottedQuad(out, bytes);
      return;
   }
   const auto groups = groupsOf(bytes);
   constexpr std::array<U16, 6> mapped{0, 0, 0, 0, 0, 0xffff};
   if (std::equal(mapped.begin(), mapped.end(), groups.begin())) {
      out += "::ffff:";
      printDottedQuad(out, bytes.subspan(12));
      return;
   }
   printGroups(out, groups);
}

} // namespace Orlix
