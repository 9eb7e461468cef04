// Packed columns, compression and base64: what is written is read back, and known texts.
#include "postcard/report/page/Packed.h"

#include "postcard/report/page/PageReader.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Postcard::Report::PackedColumn;

std::string packed(const std::vector<U32>& numbers) {
   PackedColumn column;
   for (const U32 number : numbers) {
      column.add(number);
   }
   return std::string{column.bytes()};
}

TEST(Packed, columnsAreReadBack) {
   const U32 most = 0xffffffff;
   const std::vector<U32> rows[] = {{},
                                    {0},
                                    {most},
                                    {0, most, 0, most},
                                    {1, 2, 3, 4},
                                    {63, 0, 64, 0, 8191, 0, 8192, 0},
                                    {5, 5, 5, 4, 4}};
   for (const std::vector<U32>& row : rows) {
      EXPECT_EQ(PageTest::numbersOf(packed(row)), row);
   }
   std::mt19937 random{1};
   std::vector<U32> numbers(10000);
   for (U32& number : numbers) {
      number = static_cast<U32>(random() >> random() % 32);
   }
   EXPECT_EQ(PageTest::numbersOf(packed(numbers)), numbers);
}

TEST(Packed, smallStepsTakeOneByteEach) {
   EXPECT_EQ(packed({1, 2, 3, 2}), (std::string{2, 2, 2, 1}));
   EXPECT_EQ(packed({63}).size(), 1U);
   EXPECT_EQ(packed({64}), (std::string{'\x80', 1}));
   EXPECT_EQ(packed({100000, 99936}).size(), 4U); // three bytes and, for -64, one
}

// RFC 4648, section 10.
TEST(Packed, base64OfKnownTexts) {
   const std::pair<const char*, const char*> rows[] = {{"", ""},
                                                       {"f", "Zg=="},
                                                       {"fo", "Zm8="},
                                                       {"foo", "Zm9v"},
                                                       {"foob", "Zm9vYg=="},
                                                       {"fooba", "Zm9vYmE="},
                                                       {"foobar", "Zm9vYmFy"}};
   for (const auto& [bytes, text] : rows) {
      EXPECT_EQ(Postcard::Report::base64(bytes), text);
   }
   EXPECT_EQ(Postcard::Report::base64("\xfb\xff\xfe"), "+//+");
}

TEST(Packed, whatIsDeflatedIsInflatedAgain) {
   std::mt19937 random{2};
   for (const std::size_t size : {0U, 1U, 1000U, 65535U, 65536U, 300000U}) {
      std::string bytes(size, '\0');
      for (char& byte : bytes) {
         byte = static_cast<char>(random() % 256);
      }
      EXPECT_EQ(PageTest::inflated(Postcard::Report::deflated(bytes)), bytes);
   }
   const std::string same(1000000, 'x');
   EXPECT_LT(Postcard::Report::deflated(same).size(), 2000U);
   EXPECT_EQ(PageTest::inflated(Postcard::Report::deflated(same)), same);
}

} // namespace
