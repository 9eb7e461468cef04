// What `Orlix::IpGenPrefix` refuses, why, and at which character.
#include "Kiv/Exception.h"
#include "Orlix/IpGenPrefix.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Orlix {
namespace {

const std::string noNumber = "expected a number";
const std::string octet = "expected a number from 0 to 255";
const std::string leadingZero = "expected a number without leading zeros";
const std::string dot = "expected \".\"";
const std::string slash = "expected \"/\" or the end of the text";
const std::string hex = "expected 1 to 4 hexadecimal digits";
const std::string eight = "expected eight groups or \"::\"";
const std::string secondGap = "expected no second \"::\"";
const std::string end = "expected the end of the text";
const std::string length4 = "expected a number from 0 to 32";
const std::string length6 = "expected a number from 0 to 128";

struct Wrong {
   std::string text;
   std::string reason;
   std::size_t position;
};

void expectRefused(const std::vector<Wrong>& table) {
   for (const auto& [text, reason, position] : table) {
      try {
         const IpGenPrefix prefix{text};
         ADD_FAILURE() << '"' << text << "\" was read as " << prefix;
      } catch (const Kiv::ParseError& error) {
         EXPECT_EQ(error.reason(), reason) << text;
         EXPECT_EQ(error.position(), position) << text;
         EXPECT_EQ(error.what(), reason + " at position " + std::to_string(position));
      }
   }
}

TEST(IpGenPrefixErrors, ipv4) {
   expectRefused({
         {" ", noNumber, 0},
         {"/", noNumber, 0},
         {"/8", noNumber, 0},
         {"x", noNumber, 0},
         {" 10.0.0.0", noNumber, 0},
         {"-1.0.0.0", noNumber, 0},
         {"+1.0.0.0", noNumber, 0},
         {"10", dot, 2},
         {"10/8", dot, 2},
         {"10.1.2", dot, 6},
         {"10.1.2.", noNumber, 7},
         {"10..2.3", noNumber, 3},
         {"10. 1.2.3", noNumber, 3},
         {"10.1.2.3.4", slash, 8},
         {"10.1.2.3 ", slash, 8},
         {"10.1.2.3\n", slash, 8},
         {std::string{"10.1.2.3\0", 9}, slash, 8},
         {"256.0.0.0", octet, 0},
         {"10.1.2.256", octet, 7},
         {"10.1.2.99999999999999999999999", octet, 7},
         {"010.0.0.0", leadingZero, 0},
         {"10.00.0.0", leadingZero, 3},
         {"10.0.0.01/8", leadingZero, 7},
         {"0x0a.0.0.0", dot, 1},
         {"10.1.2.3a", slash, 8},
   });
}

TEST(IpGenPrefixErrors, length) {
   expectRefused({
         {"10.0.0.0/", noNumber, 9},
         {"10.0.0.0/33", length4, 9},
         {"10.0.0.0/256", length4, 9},
         {"10.0.0.0/4294967304", length4, 9},
         {"10.0.0.0/99999999999999999999999", length4, 9},
         {"10.0.0.0/-1", noNumber, 9},
         {"10.0.0.0/+8", noNumber, 9},
         {"10.0.0.0/ 8", noNumber, 9},
         {"10.0.0.0/08", leadingZero, 9},
         {"10.0.0.0/00", leadingZero, 9},
         {"10.0.0.0/8 ", end, 10},
         {"10.0.0.0/8/8", end, 10},
         {"10.0.0.0/255.0.0.0", length4, 9},
         {"10.0.0.0/8.0", end, 10},
         {"10.0.0.0/::", noNumber, 9},
         {"::/129", length6, 3},
         {"::/", noNumber, 3},
         {"::/064", leadingZero, 3},
         {"::/6x", end, 4},
   });
}

TEST(IpGenPrefixErrors, ipv6) {
   expectRefused({
         {":", hex, 0},
         {":1", hex, 0},
         {":/8", hex, 0},
         {":::", hex, 2},
         {"1", dot, 1},
         {"1:", hex, 2},
         {"1:2", eight, 3},
         {"1:2/64", eight, 3},
         {"1:2:3:4:5:6:7", eight, 13},
         {"1:2:3:4:5:6:7:", hex, 14},
         {"1:2:3:4:5:6:7/64", eight, 13},
         {"1:2:3:4:5:6:7:8:9", slash, 15},
         {"1:2:3:4:5:6:7:8::", slash, 15},
         {"::1:2:3:4:5:6:7:8", slash, 15},
         {"1::2:3:4:5:6:7:8", slash, 14},
         {"1::2::3", secondGap, 4},
         {"::1::", secondGap, 3},
         {"12345::", hex, 0},
         {"::12345", hex, 2},
         {"::00000", hex, 2},
         {"::g", hex, 2},
         {"::-1", hex, 2},
         {"fe80::1%eth0", slash, 7},
         {"[::1]", hex, 0},
         {" ::1", hex, 0},
         {"::1 ", slash, 3},
         {"::%", hex, 2},
   });
}

TEST(IpGenPrefixErrors, mixedNotation) {
   expectRefused({
         {"::ffff:192.0.2", dot, 14},
         {"::ffff:192.0.2.256", octet, 15},
         {"::ffff:192.0.02.1", leadingZero, 13},
         {"::ffff:192.0.2.1.1", slash, 16},
         {"::192.0.2.1:1", slash, 11},
         {"192.0.2.1::", eight, 9},
         {"1:2:3:4:5:192.0.2.1", eight, 19},
         {"1:2:3:4:5:6:7:192.0.2.1", slash, 17},
         {"1:2:3:4:5:6::192.0.2.1", slash, 16},
         {"::ff.0.2.1", noNumber, 2},
         {"::.0.2.1", hex, 2},
   });
}

std::string messageOf(AddressFamily family, std::size_t size, unsigned length) {
   try {
      const IpGenPrefix prefix{family, std::vector<U8>(size), length};
      return prefix.stringValue() + " was made";
   } catch (const Kiv::RangeError& error) {
      return error.what();
   }
}

TEST(IpGenPrefixErrors, addressesOfTheWrongSizeAndLengths) {
   const std::string type = "Orlix::IpGenPrefix: ";
   EXPECT_EQ(messageOf(AddressFamily::ipv4, 16, 8),
             type + "an address of family ipv4 has 4 bytes, not 16");
   EXPECT_EQ(messageOf(AddressFamily::ipv6, 4, 8),
             type + "an address of family ipv6 has 16 bytes, not 4");
   EXPECT_EQ(messageOf(AddressFamily::none, 4, 8),
             type + "an address of family none has 0 bytes, not 4");
   EXPECT_EQ(messageOf(AddressFamily::ipv4, 4, 33), type + "length 33 is more than 32");
   EXPECT_EQ(messageOf(AddressFamily::ipv4, 4, 256), type + "length 256 is more than 32");
   EXPECT_EQ(messageOf(AddressFamily::ipv6, 16, 129), type + "length 129 is more than 128");
   EXPECT_EQ(messageOf(AddressFamily::none, 0, 1), type + "length 1 is more than 0");
   EXPECT_EQ(messageOf(AddressFamily::ipv4, 4, 32), "0.0.0.0/32 was made");
}

} // namespace
} // namespace Orlix
