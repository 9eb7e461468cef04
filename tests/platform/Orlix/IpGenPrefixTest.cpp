// `Orlix::IpGenPrefix`: texts, order, hash, membership; against the C library and bit by bit.
#include "Orlix/IpGenPrefix.h"

#include "Kiv/Exception.h"
#include "Kiv/Format.h"
#include "Orlix/IpAddressText.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <arpa/inet.h>
#include <array>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace Orlix {
namespace {

using Bytes = std::vector<U8>;

static_assert(sizeof(IpGenPrefix) == 18);
static_assert(std::is_trivially_copyable_v<IpGenPrefix>);
static_assert(Kiv::TextualValue<IpGenPrefix>);
static_assert(IpGenPrefix{}.family() == AddressFamily::none);

Bytes addressOf(const IpGenPrefix& prefix) {
   return {prefix.address().begin(), prefix.address().end()};
}

TEST(IpGenPrefix, defaultHasNoFamily) {
   const IpGenPrefix unset;
   EXPECT_EQ(unset.length(), 0);
   EXPECT_TRUE(unset.address().empty());
   EXPECT_EQ(unset.stringValue(), "");
   EXPECT_EQ(unset, IpGenPrefix{""});
   EXPECT_EQ(unset, (IpGenPrefix{AddressFamily::none, {}, 0}));
   EXPECT_EQ(Kiv::valueText(unset), "\"\"");
   EXPECT_NE(unset, IpGenPrefix{"0.0.0.0/0"});
   EXPECT_NE(unset, IpGenPrefix{"::/0"});
}

struct Text {
   std::string written;
   std::string shown;
};

TEST(IpGenPrefix, hasOneText) {
   for (const auto& [written, shown] : {
              Text{"0.0.0.0/0", "0.0.0.0/0"},
              Text{"10.1.2.3/8", "10.0.0.0/8"},
              Text{"10.1.2.3", "10.1.2.3/32"},
              Text{"255.255.255.255/32", "255.255.255.255/32"},
              Text{"192.0.2.129/25", "192.0.2.128/25"},
              Text{"192.0.2.129/31", "192.0.2.128/31"},
              Text{"255.255.255.255/1", "128.0.0.0/1"},
              Text{"255.255.255.255/0", "0.0.0.0/0"},
              Text{"::/0", "::/0"},
              Text{"::", "::/128"},
              Text{"::1", "::1/128"},
              Text{"1::", "1::/128"},
              Text{"0:0:0:0:0:0:0:0/64", "::/64"},
              Text{"2001:DB8::/32", "2001:db8::/32"},
              Text{"2001:db8:ffff::1/33", "2001:db8:8000::/33"},
              Text{"2001:0db8:0000:0001:0001:0001:0001:0001", "2001:db8:0:1:1:1:1:1/128"},
              Text{"2001:db8::1:0:0:1", "2001:db8::1:0:0:1/128"},
              Text{"2001:0:0:1::1", "2001:0:0:1::1/128"},
              Text{"1:0:0:2:0:0:0:3", "1:0:0:2::3/128"},
              Text{"::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8/128"},
              Text{"1:2:3:4:5:6:7::", "1:2:3:4:5:6:7:0/128"},
              Text{"1:2:3::5:6:7:8", "1:2:3:0:5:6:7:8/128"},
              Text{"::ffff:c000:0201", "::ffff:192.0.2.1/128"},
              Text{"::ffff:192.0.2.1/120", "::ffff:192.0.2.0/120"},
              Text{"::FFFF:0:0/96", "::ffff:0.0.0.0/96"},
              Text{"::ffff:0:0/95", "::fffe:0:0/95"},
              Text{"::192.0.2.1", "::c000:201/128"},
              Text{"64:ff9b::192.0.2.33/96", "64:ff9b::/96"},
              Text{"1:2:3:4:5:6:1.2.3.4", "1:2:3:4:5:6:102:304/128"},
              Text{"1:2:3:4:5::1.2.3.4", "1:2:3:4:5:0:102:304/128"},
        }) {
      EXPECT_EQ(IpGenPrefix{written}.stringValue(), shown) << written;
      EXPECT_EQ(IpGenPrefix{written}, IpGenPrefix{shown}) << written;
   }
}

TEST(IpGenPrefix, isShownBareOrQuoted) {
   const IpGenPrefix prefix{"10.0.0.0/8"};
   std::ostringstream out;
   out << prefix;
   EXPECT_EQ(out.str(), "10.0.0.0/8");
   EXPECT_EQ(fmt::format("{:>11}", prefix), " 10.0.0.0/8");
   EXPECT_EQ(Kiv::valueText(prefix), "\"10.0.0.0/8\"");
}

TEST(IpGenPrefix, isMadeOfFamilyAddressAndLength) {
   const IpGenPrefix prefix{AddressFamily::ipv4, Bytes{10, 1, 2, 3}, 15};
   EXPECT_EQ(prefix.family(), AddressFamily::ipv4);
   EXPECT_EQ(prefix.length(), 15);
   EXPECT_EQ(addressOf(prefix), (Bytes{10, 0, 0, 0}));
   Bytes address(16, 0xff);
   const IpGenPrefix six{AddressFamily::ipv6, address, 100};
   EXPECT_EQ(six.stringValue(), "ffff:ffff:ffff:ffff:ffff:ffff:f000:0/100");
   EXPECT_EQ(addressOf(six).size(), 16U);
}

TEST(IpGenPrefix, isOrderedByFamilyAddressAndLength) {
   const std::vector<std::string> ascending{
         "",           "0.0.0.0/0",   "0.0.0.0/1",   "0.0.0.0/32", "0.0.0.1/32", "10.0.0.0/8",
         "10.0.0.0/9", "10.1.0.0/16", "128.0.0.0/1", "::/0",       "::/128",     "::1/128",
         "1::/16",     "1::/17",      "1::1/128",    "ff00::/8"};
   for (std::size_t a = 0; a < ascending.size(); ++a) {
      for (std::size_t b = 0; b < ascending.size(); ++b) {
         const IpGenPrefix first{ascending[a]};
         const IpGenPrefix second{ascending[b]};
         EXPECT_EQ(first <=> second, a <=> b) << first << " and " << second;
         EXPECT_EQ(first == second, a == b) << first << " and " << second;
         EXPECT_EQ(first.hash(0) == second.hash(0), a == b) << first << " and " << second;
      }
   }
}

TEST(IpGenPrefix, hashDependsOnTheSeed) {
   const IpGenPrefix prefix{"10.0.0.0/8"};
   EXPECT_NE(prefix.hash(0), prefix.hash(1));
   EXPECT_EQ(Kiv::hashOf(prefix, 1), prefix.hash(1));
}

struct Membership {
   std::string prefix;
   Bytes address;
   bool isIn;
};

TEST(IpGenPrefix, containsAddressesOfItsFamily) {
   const Bytes zeros(16, 0);
   for (const auto& [prefix, address, isIn] : {
              Membership{"0.0.0.0/0", {255, 0, 0, 1}, true},
              Membership{"0.0.0.0/0", zeros, false},
              Membership{"::/0", zeros, true},
              Membership{"::/0", {0, 0, 0, 0}, false},
              Membership{"10.0.0.0/8", {10, 255, 255, 255}, true},
              Membership{"10.0.0.0/8", {11, 0, 0, 0}, false},
              Membership{"192.0.2.128/25", {192, 0, 2, 128}, true},
              Membership{"192.0.2.128/25", {192, 0, 2, 127}, false},
              Membership{"192.0.2.1/32", {192, 0, 2, 1}, true},
              Membership{"192.0.2.1/32", {192, 0, 2, 0}, false},
              Membership{"::1", zeros, false},
              Membership{"", {0, 0, 0, 0}, false},
              Membership{"", {}, false},
              Membership{"0.0.0.0/0", {}, false},
              Membership{"0.0.0.0/0", {0, 0, 0}, false},
        }) {
      EXPECT_EQ(IpGenPrefix{prefix}.contains(address), isIn) << prefix;
   }
}

// ---- Against naive oracles ----

// Addresses of a few byte values, with zeros in long runs.
rc::Gen<Bytes> drawAddress() {
   const auto six = rc::gen::container<Bytes>(
         16, rc::gen::elementOf(std::vector<U8>{0, 0, 0, 0, 1, 0x10, 0xff}));
   const auto paired = rc::gen::map(six, [](Bytes bytes) { // whole groups of zeros
      for (std::size_t index = 0; index < 16; index += 2) {
         bytes[index] = bytes[index + 1] == 0xff ? U8{0xff} : U8{0};
      }
      return bytes;
   });
   const auto mapped = rc::gen::map(six, [](Bytes bytes) {
      for (std::size_t index = 0; index < 12; ++index) {
         bytes[index] = index < 10 ? U8{0} : U8{0xff};
      }
      return bytes;
   });
   const auto four = rc::gen::map(six, [](Bytes bytes) {
      bytes.resize(4);
      return bytes;
   });
   return rc::gen::oneOf(four, six, paired, mapped);
}

AddressFamily familyOf(const Bytes& address) {
   return address.size() == 4 ? AddressFamily::ipv4 : AddressFamily::ipv6;
}

rc::Gen<unsigned> drawLength(const Bytes& address) {
   const auto bits = static_cast<unsigned>(8 * address.size());
   return rc::gen::oneOf(rc::gen::elementOf(std::vector<unsigned>{0, 1, 8, bits - 1, bits}),
                         rc::gen::inRange(0U, bits + 1));
}

IpGenPrefix drawPrefix() {
   const Bytes address = *drawAddress();
   return {familyOf(address), address, *drawLength(address)};
}

bool bitOf(const Bytes& address, unsigned bit) {
   return (address[bit / 8] >> (7 - bit % 8) & 1) != 0;
}

RC_GTEST_PROP(IpGenPrefix, fixesExactlyTheBitsOfItsLength, ()) {
   const Bytes address = *drawAddress();
   const unsigned length = *drawLength(address);
   const Bytes kept = addressOf({familyOf(address), address, length});
   RC_ASSERT(kept.size() == address.size());
   for (unsigned bit = 0; bit < 8 * address.size(); ++bit) {
      RC_ASSERT(bitOf(kept, bit) == (bit < length && bitOf(address, bit)));
   }
}

RC_GTEST_PROP(IpGenPrefix, containsWhatSharesItsBits, ()) {
   const IpGenPrefix prefix = drawPrefix();
   const Bytes address = *drawAddress();
   const Bytes first = addressOf(prefix);
   bool shared = first.size() == address.size();
   for (unsigned bit = 0; shared && bit < prefix.length(); ++bit) {
      shared = bitOf(first, bit) == bitOf(address, bit);
   }
   RC_ASSERT(prefix.contains(address) == shared);
}

RC_GTEST_PROP(IpGenPrefix, textIsReadBack, ()) {
   const IpGenPrefix prefix = drawPrefix();
   RC_ASSERT(IpGenPrefix{prefix.stringValue()} == prefix);
   RC_ASSERT(Kiv::parseValue<IpGenPrefix>(Kiv::valueText(prefix)) == prefix);
}

RC_GTEST_PROP(IpGenPrefix, comparesAndHashesByItsParts, ()) {
   const IpGenPrefix a = drawPrefix();
   const IpGenPrefix b = drawPrefix();
   const auto parts = [](const IpGenPrefix& prefix) {
      return std::tuple{prefix.family(), addressOf(prefix), prefix.length()};
   };
   RC_ASSERT((a <=> b) == (parts(a) <=> parts(b)));
   RC_ASSERT((a == b) == (parts(a) == parts(b)));
   RC_ASSERT((a.hash(3) == b.hash(3)) == (a == b));
}

// The C library's text. It writes the outdated IPv4-compatible addresses in mixed notation too,
// which RFC 5952 leaves to addresses that are known to hold an IPv4 address.
std::string cText(const Bytes& address) {
   std::array<char, INET6_ADDRSTRLEN> text{};
   ::inet_ntop(address.size() == 4 ? AF_INET : AF_INET6, address.data(), text.data(), text.size());
   return text.data();
}

RC_GTEST_PROP(IpGenPrefix, showsAddressesAsTheCLibrary, ()) {
   const Bytes address = *drawAddress();
   const std::string expected = cText(address);
   RC_PRE(!(expected.starts_with("::") && !expected.starts_with("::ffff:") &&
            expected.find('.') != std::string::npos));
   const IpGenPrefix prefix{familyOf(address), address, static_cast<unsigned>(8 * address.size())};
   RC_ASSERT(prefix.stringValue() == expected + "/" + std::to_string(8 * address.size()));
}

// What the C library reads, or nothing.
Bytes cAddress(const std::string& text) {
   Bytes address(text.find(':') == std::string::npos ? 4 : 16);
   const int family = address.size() == 4 ? AF_INET : AF_INET6;
   return ::inet_pton(family, text.c_str(), address.data()) == 1 ? address : Bytes{};
}

Bytes ourAddress(const std::string& text) {
   try {
      return addressOf(IpGenPrefix{text});
   } catch (const Kiv::ParseError& error) {
      EXPECT_LE(error.position(), text.size()) << text;
      return {};
   }
}

// What `readAddress` reads, or nothing.
Bytes readBytes(const std::string& text) {
   std::array<U8, 16> bytes{};
   const auto family = readAddress(text, bytes);
   const auto size = static_cast<std::ptrdiff_t>(family ? addressSize(*family) : 0);
   return {bytes.begin(), bytes.begin() + size};
}

rc::Gen<std::string> drawAddressLikeText() {
   static const std::vector<std::string> pieces{
         ":",   ":",  "::",   "1", "0",     "ff:", "0:", "1.2.3.4",  ".",    "255",
         "256", "01", "abcd", "G", "00000", " ",   "%",  "1:2:3:4:", "10.0."};
   return rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(pieces)),
                       [](const std::vector<std::string>& drawn) {
                          std::string text;
                          for (const auto& piece : drawn) {
                             text += piece;
                          }
                          return text.substr(0, 40);
                       });
}

RC_GTEST_PROP(IpGenPrefix, readsWhatTheCLibraryReads, ()) {
   const std::string text = *drawAddressLikeText();
   RC_ASSERT(ourAddress(text) == cAddress(text));
   RC_ASSERT(readBytes(text) == cAddress(text));
}

TEST(IpGenPrefix, readAddressWantsAnAddressAndNothingElse) {
   for (const char* text :
        {"", "/", "10.0.0.0/8", "::/0", "10.0.0.1 ", " ::1", "::1%1", "1.2.3.4.5"}) {
      EXPECT_EQ(readBytes(text), Bytes{}) << text;
   }
   EXPECT_EQ(readBytes({"10.0.0.1\0", 9}), Bytes{});
   EXPECT_EQ(readBytes("10.0.0.1"), (Bytes{10, 0, 0, 1}));
   EXPECT_EQ(readBytes("1::").size(), 16U);
}

// All texts of up to six of the pieces that make or break IPv6.
TEST(IpGenPrefix, readsAllShortTextsAsTheCLibrary) {
   const std::vector<std::string> pieces{"1", ":", "::", "0:0", "1.2.3.4", ":f:"};
   unsigned accepted = 0;
   std::vector<std::string> texts{""};
   for (int size = 1; size <= 6; ++size) {
      std::vector<std::string> longer;
      for (const auto& text : texts) {
         for (const auto& piece : pieces) {
            longer.push_back(text + piece);
            const Bytes expected = cAddress(longer.back());
            ASSERT_EQ(ourAddress(longer.back()), expected) << longer.back();
            ASSERT_EQ(readBytes(longer.back()), expected) << longer.back();
            accepted += expected.empty() ? 0U : 1U;
         }
      }
      texts = std::move(longer);
   }
   EXPECT_GT(accepted, 500U);
}

} // namespace
} // namespace Orlix
