// Frames made of parts: link headers, IP headers of either family, and a TCP header to port 443.
#pragma once

#include "RandomFrames.h"

#include <string>
#include <string_view>

namespace RulesClientTest {

inline Bytes bytesOf(std::string_view hex) {
   Bytes bytes;
   for (std::size_t i = 0; i < hex.size();) {
      if (hex[i] == ' ') {
         ++i;
         continue;
      }
      bytes.push_back(static_cast<U8>(std::stoul(std::string{hex.substr(i, 2)}, nullptr, 16)));
      i += 2;
   }
   return bytes;
}

inline Bytes repeated(const Bytes& bytes, std::size_t count) {
   Bytes all;
   for (; count > 0; --count) {
      append(all, bytes);
   }
   return all;
}

inline const Bytes macs(12, 0xaa);
inline const Bytes type4 = {0x08, 0x00};
inline const Bytes type6 = {0x86, 0xdd};
inline const Bytes tag = {0x81, 0x00, 0x20, 0x05};
inline const Bytes tcp443 = bytesOf("0401 01bb 00000001 00000002 5002 0909 1234 0000");

inline Bytes joined(std::initializer_list<Bytes> parts) {
   Bytes all;
   for (const Bytes& part : parts) {
      append(all, part);
   }
   return all;
}

inline Bytes head4(std::size_t payload, const char* fragment = "0000") {
   Bytes head{0x45, 0};
   put16(head, static_cast<unsigned>(20 + payload));
   append(head, bytesOf("0007"));
   append(head, bytesOf(fragment));
   append(head, bytesOf("4006 0000 0a010203 c0000201"));
   return head;
}

inline Bytes head6(U8 next, std::size_t payload) {
   Bytes head = bytesOf("60000000");
   put16(head, static_cast<unsigned>(payload));
   append(head, {next, 64});
   append(head, bytesOf("20010db8 00000000 00000000 00000001 20010db8 00000000 00000000 00000002"));
   return head;
}

} // namespace RulesClientTest
