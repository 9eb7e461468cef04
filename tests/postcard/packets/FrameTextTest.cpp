// Frames in hexadecimal: the forms that are read, and the places of what is not.
#include "postcard/packets/FrameText.h"

#include "Kiv/Exception.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Postcard::Packets::parseFrame;

TEST(FrameText, bytesAreReadHoweverTheyAreGrouped) {
   const std::vector<U8> bytes = {0x00, 0x9a, 0xbc, 0xDE, 0xff};
   for (const char* text : {"009abcdeff", "009ABCDEFF", "00 9a bc de ff", "00:9a:bc:de:ff",
                            "009a bcde\nff\n", " \t009abc\r\ndeff "}) {
      EXPECT_EQ(parseFrame(text), bytes) << text;
   }
}

TEST(FrameText, whatIsWrongIsSaidWithItsPlace) {
   const std::string byte = "expected a byte as two hexadecimal digits at position ";
   const std::string digit = "expected the second hexadecimal digit of a byte at position ";
   const std::vector<std::pair<std::string, std::string>> table = {
         {"", "expected the bytes of a frame at position 0"},
         {" : ", "expected the bytes of a frame at position 3"},
         {"0", digit + "1"},
         {"00 1", digit + "4"},
         {"00 1 2", digit + "4"},
         {"0x00", digit + "1"},
         {"00,11", byte + "2"},
         {"+1", byte + "0"},
         {"-1", byte + "0"},
         {"g0", byte + "0"},
         {std::string("00\0", 3), byte + "2"},
   };
   for (const auto& [text, what] : table) {
      try {
         parseFrame(text);
         ADD_FAILURE() << "accepted: " << text;
      } catch (const Kiv::ParseError& error) {
         EXPECT_EQ(error.what(), what) << text;
      }
   }
}

} // namespace
