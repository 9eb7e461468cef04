// `parsePacket`: reads the text of a packet from left to right. Relies on `Kiv::TextParser`, whose
// failures carry the position.
#include "Kiv/TextParser.h"
#include "Orlix/IpAddressText.h"
#include "postcard/packets/Packet.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Postcard::Packets {

namespace {

// Reads one packet into `packet_`. The protocol and the addresses come first, because they decide
// which other fields may stand.
class PacketParser {
 public:
   explicit PacketParser(std::string_view text) : parser_{text} {}

   ParsedPacket parse() {
      skipBlanks();
      packet_.protocol = protocol();
      needBlank();
      end(packet_.source, packet_.sourcePort, true);
      skipBlanks();
      parser_.expect(">");
      skipBlanks();
      end(packet_.destination, packet_.destinationPort, false);
      options();
      complete();
      return {packet_, zeros_};
   }

 private:
   bool atEnd() const { return parser_.rest().empty(); }
   void skipBlanks() {
      while (parser_.accept(" ") || parser_.accept("\t")) {
      }
   }
   void needBlank() {
      if (!parser_.next(" ") && !parser_.next("\t")) {
         parser_.fail("expected a blank");
      }
      skipBlanks();
   }

   // Reads a number from 0 to `most`, decimal, or hexadecimal with 0x.
   U16 number(U16 most) {
      if (!parser_.accept("0x")) {
         return static_cast<U16>(parser_.number(most));
      }
      U32 value = 0;
      std::size_t digits = 0;
      while (!atEnd() && hexValue(parser_.rest().front()) >= 0) {
         value = value * 16 + static_cast<U32>(hexValue(parser_.rest().front()));
         if (value > most) {
            parser_.fail(fmt::format("expected a number up to 0x{:x}", most));
         }
         parser_.expect(parser_.rest().substr(0, 1));
         ++digits;
      }
      if (digits == 0) {
         parser_.fail("expected a hexadecimal digit");
      }
      return static_cast<U16>(value);
   }
   static int hexValue(char c) {
      if (c >= '0' && c <= '9') {
         return c - '0';
      }
      const char lower = static_cast<char>(c | 0x20); // the ASCII letter in lower case
      return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
   }

   // Takes the longest word that fits, because "icmp" is also the beginning of "icmpv6".
   U8 protocol() {
      const Classification::NamedNumber* longest = nullptr;
      for (const Classification::NamedNumber& row : Classification::protocolWords) {
         if (parser_.next(row.word) &&
             (longest == nullptr || row.word.size() > longest->word.size())) {
            longest = &row;
         }
      }
      if (longest != nullptr) {
         parser_.expect(longest->word);
         return longest->number;
      }
      if (atEnd() || parser_.rest().front() < '0' || parser_.rest().front() > '9') {
         parser_.fail("expected a protocol: tcp, udp, icmp, icmpv6 or a number");
      }
      return static_cast<U8>(number(255));
   }

   // Reads an address. A colon after an IPv4 address begins the port, but the address parser would
   // take it for part of an IPv6 address. So a text with a single colon and without brackets is cut
   // before the colon.
   Orlix::AddressFamily address(bool bracket, std::array<U8, 16>& bytes) {
      std::string_view text = parser_.rest();
      text = text.substr(0, text.find_first_not_of("0123456789abcdefABCDEF.:"));
      if (!bracket && text.find(':') == text.rfind(':')) {
         text = text.substr(0, text.find(':'));
      }
      Kiv::TextParser part{text};
      try {
         const Orlix::AddressFamily family = Orlix::parseAddress(part, bytes);
         parser_.expect(text.substr(0, part.position()));
         return family;
      } catch (const Kiv::ParseError& error) {
         throw Kiv::ParseError{error.reason(), parser_.position() + error.position()};
      }
   }

   // One end of the packet: the address, and the port where the protocol has ports.
   void end(std::array<U8, 16>& address, std::optional<U16>& port, bool first) {
      const bool bracket = parser_.accept("[");
      const auto failAt = parser_; // errors about the whole address name the place where it begins
      const Orlix::AddressFamily family = this->address(bracket, address);
      if (bracket != (family == Orlix::AddressFamily::ipv6)) {
         failAt.fail(bracket ? "expected an IPv6 address in the brackets"
                             : "expected brackets around an IPv6 address");
      }
      if (!first && family != packet_.family) {
         failAt.fail("expected an address of the same family as the source");
      }
      packet_.family = family;
      if (bracket) {
         parser_.expect("]");
      }
      if (packet_.isTcpOrUdp() && parser_.accept(":")) {
         port = number(65535);
      }
   }

   // Reads the fields behind the addresses. A blank stands before each, and may stand at the end.
   void options() {
      while (true) {
         if (atEnd()) {
            return;
         }
         needBlank();
         if (atEnd()) {
            return;
         }
         option();
      }
   }

   void option() {
      const auto failAt = parser_; // errors about the option name the place where it begins
      for (const auto& [key, read] : optionRows) {
         if (parser_.accept(key)) {
            if (std::ranges::find(seen_, key) != seen_.end()) {
               failAt.fail(fmt::format("'{}' stands here for the second time", key));
            }
            *std::ranges::find(seen_, std::string_view{}) = key;
            (this->*read)(failAt);
            return;
         }
      }
      parser_.fail("expected flags=, checksum=, id=, dscp=, interface=, fragment or cut");
   }

   void flags(const Kiv::TextParser& at) {
      if (packet_.protocol != protocolTcp) {
         at.fail("only TCP has flags");
      }
      if (!atEnd() && parser_.rest().front() >= '0' && parser_.rest().front() <= '9') {
         packet_.tcpFlags = static_cast<U8>(number(255));
         return;
      }
      U8 value = 0;
      if (!parser_.accept("none")) {
         do {
            value = static_cast<U8>(value | flag());
         } while (parser_.accept(","));
      }
      packet_.tcpFlags = value;
   }
   U8 flag() {
      for (const auto& [word, bit] : Classification::tcpFlagWords) {
         if (parser_.accept(word)) {
            return bit;
         }
      }
      parser_.fail("expected fin, syn, rst, psh, ack, urg, ece, cwr, none or a number");
   }
   void checksum(const Kiv::TextParser& at) {
      if (!packet_.isTcpOrUdp()) {
         at.fail("only TCP and UDP have a checksum to match");
      }
      packet_.checksum = number(65535);
   }
   void identification(const Kiv::TextParser& at) {
      if (packet_.family != Orlix::AddressFamily::ipv4) {
         at.fail("only IPv4 has an identification");
      }
      packet_.identification = number(65535);
   }
   void dscp(const Kiv::TextParser&) { packet_.dscp = static_cast<U8>(number(63)); }
   void intf(const Kiv::TextParser&) {
      const std::string_view name = parser_.rest().substr(
            0, std::min(parser_.rest().find_first_of(" \t"), parser_.rest().size()));
      if (name.empty()) {
         parser_.fail("expected the name of an interface");
      }
      packet_.intf = Orlix::IntfId{name};
      parser_.expect(name);
   }
   void fragment(const Kiv::TextParser&) { packet_.laterFragment = true; }

   void cut(const Kiv::TextParser& at) {
      if (!packet_.isTcpOrUdp()) {
         at.fail("only the header of TCP or UDP can be cut");
      }
      cut_ = true;
   }

   // Checks that the fields fit together, and sets fields that were left out to 0. Comes last,
   // because `fragment` and `cut` may stand behind what they exclude.
   void complete() {
      if (packet_.laterFragment) {
         requireNoHeader();
      } else if (cut_) {
         requireBeginningOfHeader();
      } else if (packet_.isTcpOrUdp()) {
         completeHeader();
      }
      if (packet_.family == Orlix::AddressFamily::ipv4) {
         zeroUnlessGiven(packet_.identification, "id");
      }
      if (std::ranges::find(seen_, "dscp=") == seen_.end()) {
         zeros_.emplace_back("dscp");
      }
   }
   void requireNoHeader() const {
      if (packet_.sourcePort || packet_.destinationPort || packet_.tcpFlags || packet_.checksum ||
          cut_) {
         parser_.fail("a later fragment has neither ports nor flags nor checksum");
      }
   }
   void requireBeginningOfHeader() const {
      const bool source = packet_.sourcePort.has_value();
      const bool destination = packet_.destinationPort.has_value();
      if (packet_.checksum || (destination && !source) || (packet_.tcpFlags && !destination)) {
         parser_.fail("a header that is cut has no checksum, and no field behind one that it "
                      "lacks: source port, destination port, flags");
      }
   }
   void completeHeader() {
      if (!packet_.sourcePort || !packet_.destinationPort) {
         parser_.fail("expected ADDRESS:PORT on both sides; only a later 'fragment' or a header "
                      "that is 'cut' has no port");
      }
      if (packet_.protocol == protocolTcp) {
         zeroUnlessGiven(packet_.tcpFlags, "flags");
      }
      zeroUnlessGiven(packet_.checksum, "checksum");
   }
   template <class Number>
   void zeroUnlessGiven(std::optional<Number>& field, std::string_view key) {
      if (!field) {
         field = Number{0};
         zeros_.push_back(key);
      }
   }

   using Reader = void (PacketParser::*)(const Kiv::TextParser& at);
   static constexpr std::pair<std::string_view, Reader> optionRows[] = {
         {"flags=", &PacketParser::flags},
         {"checksum=", &PacketParser::checksum},
         {"id=", &PacketParser::identification},
         {"dscp=", &PacketParser::dscp},
         {"interface=", &PacketParser::intf},
         {"fragment", &PacketParser::fragment},
         {"cut", &PacketParser::cut}};

   Kiv::TextParser parser_;
   Packet packet_;
   bool cut_ = false;                    // the word `cut` stands in the text
   std::vector<std::string_view> zeros_; // as in `ParsedPacket`
   // Keys of the options read so far. Unused places are empty; with one more than there are
   // options, a search for an unused place always ends at one.
   std::array<std::string_view, std::size(optionRows) + 1> seen_;
};

} // namespace

ParsedPacket parsePacketAndZeros(std::string_view text) {
   return PacketParser{text}.parse();
}

Packet parsePacket(std::string_view text) {
   return PacketParser{text}.parse().packet;
}

} // namespace Postcard::Packets
