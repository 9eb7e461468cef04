// `wordsHold`: whether the words for a set of packets hold for one packet, read by splitting the
// text and nothing else.
#pragma once

#include "Orlix/IpGenPrefix.h"
#include "postcard/packets/Packet.h"

#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace AnalysisTest {

using Postcard::Packets::Packet;

inline std::vector<std::string> split(const std::string& text, char at) {
   std::vector<std::string> parts;
   std::stringstream stream{text};
   std::string part;
   while (std::getline(stream, part, at)) {
      parts.push_back(part);
   }
   return parts;
}

// An address as bytes, so that two of one family can be compared.
inline std::vector<U8> addressBytes(const std::string& text) {
   const bool ipv4 = text.find('.') != std::string::npos;
   const std::string end = ipv4 ? text : "[" + text + "]";
   const Packet packet = Postcard::Packets::parsePacket("1 " + end + " > " + end);
   const auto bytes = packet.sourceAddress();
   return {bytes.begin(), bytes.end()};
}

inline bool addressIn(const std::string& list, std::span<const U8> address) {
   const std::vector<U8> bytes{address.begin(), address.end()};
   for (const std::string& part : split(list, ',')) {
      const auto bounds = split(part, '-');
      const bool inside = part == "any" || (part.find('/') != std::string::npos
                                                  ? Orlix::IpGenPrefix{part}.contains(address)
                                                  : addressBytes(bounds.front()) <= bytes &&
                                                          bytes <= addressBytes(bounds.back()));
      if (inside) {
         return true;
      }
   }
   return false;
}

inline unsigned wordNumber(const std::string& text) {
   return text == "tcp"      ? 6
          : text == "udp"    ? 17
          : text == "icmp"   ? 1
          : text == "icmpv6" ? 58
                             : static_cast<unsigned>(std::stoul(text, nullptr, 0));
}

// `list` is "LOW-HIGH,…" or "VALUE/MASK,…".
inline bool numberIn(const std::string& list, std::optional<unsigned> number) {
   for (const std::string& part : split(list, ',')) {
      const bool isMask = part.find('/') != std::string::npos;
      const auto bounds = split(part, isMask ? '/' : '-');
      const unsigned first = wordNumber(bounds.front());
      const unsigned last = wordNumber(bounds.back());
      if (number && (isMask ? (*number & last) == first : first <= *number && *number <= last)) {
         return true;
      }
   }
   return false;
}

inline std::optional<unsigned> fieldOf(const Packet& packet, const std::string& name) {
   if (name == "sport") {
      return packet.sourcePort;
   }
   if (name == "dport") {
      return packet.destinationPort;
   }
   if (name == "flags") {
      return packet.tcpFlags;
   }
   if (name == "checksum") {
      return packet.checksum;
   }
   if (name == "ip-id") {
      return packet.identification;
   }
   throw std::logic_error{"no such word: " + name};
}

inline bool lineHolds(const std::string& line, const Packet& packet) {
   const auto words = split(line, ' ');
   bool holds = numberIn(words.at(0), packet.protocol) &&
                addressIn(words.at(1), packet.sourceAddress()) && words.at(2) == ">" &&
                addressIn(words.at(3), packet.destinationAddress());
   for (std::size_t at = 4; at < words.size(); ++at) {
      if (words[at] == "fragment") {
         holds = holds && packet.laterFragment;
      } else {
         holds = numberIn(words.at(at + 1), fieldOf(packet, words[at])) && holds;
         ++at;
      }
   }
   return holds;
}

// Whether one of the lines holds.
inline bool wordsHold(const std::vector<std::string>& lines, const Packet& packet) {
   bool holds = false;
   for (const std::string& line : lines) {
      holds = lineHolds(line, packet) || holds;
   }
   return holds;
}

} // namespace AnalysisTest
