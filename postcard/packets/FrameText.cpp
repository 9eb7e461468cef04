#include "postcard/packets/FrameText.h"

#include "Kiv/Exception.h"

#include <charconv>

namespace Postcard::Packets {

std::vector<U8> parseFrame(std::string_view text) {
   std::vector<U8> bytes;
   for (std::size_t at = 0; at < text.size();) {
      if (std::string_view{" \t\r\n:"}.find(text[at]) != std::string_view::npos) {
         ++at;
         continue;
      }
      const std::string_view pair = text.substr(at, 2); // one digit at the end of the text
      const char* const end = pair.data() + pair.size();
      U8 byte = 0;
      const char* const read = std::from_chars(pair.data(), end, byte, 16).ptr;
      if (read != end || pair.size() != 2) {
         throw Kiv::ParseError{read == pair.data()
                                     ? "expected a byte as two hexadecimal digits"
                                     : "expected the second hexadecimal digit of a byte",
                               at + static_cast<std::size_t>(read - pair.data())};
      }
      bytes.push_back(byte);
      at += 2;
   }
   if (bytes.empty()) {
      throw Kiv::ParseError{"expected the bytes of a frame", text.size()};
   }
   return bytes;
}

} // namespace Postcard::Packets
