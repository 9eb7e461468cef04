// The streaming writer prints what the JSON library prints, byte for byte, and never a document
// that looks whole before it is.
#include "postcard/json/Writer.h"

#include "postcard/json/Document.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <limits>
#include <random>
#include <stdexcept>
#include <string>

namespace {

using Postcard::Json::documentText;
using Postcard::Json::Writer;
using Json = nlohmann::ordered_json;

// Gives `writer` the pieces of `value`.
void write(Writer& writer, const Json& value) {
   if (value.is_object()) {
      writer.beginObject();
      for (const auto& [name, each] : value.items()) {
         writer.member(name);
         write(writer, each);
      }
      writer.endObject();
   } else if (value.is_array()) {
      writer.beginList();
      for (const Json& each : value) {
         write(writer, each);
      }
      writer.endList();
   } else if (value.is_string()) {
      writer.text(value.get_ref<const std::string&>());
   } else if (value.is_boolean()) {
      writer.boolean(value);
   } else if (value.is_number_float()) {
      writer.real(value);
   } else if (value.is_number()) {
      writer.number(value);
   } else {
      writer.null();
   }
}

std::string written(const Json& value) {
   std::string text;
   Writer writer{[&](std::string_view piece) { text += piece; }};
   write(writer, value);
   writer.finish();
   return text;
}

// An empty view may have no address, and functions of C must not be given it.
TEST(JsonWriter, anEmptyViewWithoutAnAddress) {
   std::string text;
   Writer writer{[&](std::string_view piece) { text += piece; }};
   writer.text(std::string_view{});
   writer.finish();
   EXPECT_EQ(text, "\"\"\n");
}

TEST(JsonWriter, printsAsTheLibraryDoes) {
   const Json table[] = {
         nullptr,
         true,
         false,
         0,
         std::numeric_limits<std::uint64_t>::max(),
         0.1,
         1e300,
         -2.0,
         std::numeric_limits<double>::infinity(),
         "",
         "\"\\/\b\f\n\r\t\x01\x1f\x7f",
         std::string{"a\0b", 3},
         "caf\xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x98\x80",
         Json::object(),
         Json::array(),
         {{"", Json::object()}, {"a", Json::array()}, {"\n", {{"deep", {1, Json::array(), {2}}}}}},
         {1, {{"x", nullptr}}, "y"}};
   for (const Json& value : table) {
      EXPECT_EQ(written(value), documentText(value));
   }
}

// Bytes that begin, continue and break characters of each length.
std::string randomBytes(std::mt19937& random) {
   static const std::string bytes{"\x00\x1f\x22\x5c\x61\x7f\x80\x8f\x90\x9f\xa0\xbf\xc0\xc1\xc2\xdf"
                                  "\xe0\xe1\xed\xef\xf0\xf1\xf4\xf5\xff",
                                  25};
   std::string text;
   for (std::size_t size = random() % 8; size > 0; --size) {
      text += bytes[random() % bytes.size()];
   }
   return text;
}

Json randomValue(std::mt19937& random, int depth) {
   switch (random() % (depth > 0 ? 6 : 4)) {
   case 0:
      return random();
   case 1:
      return random() % 2 == 0;
   case 2:
      return static_cast<double>(random()) / 3;
   case 3:
      return randomBytes(random);
   case 4: {
      Json list = Json::array();
      for (auto size = random() % 3; size > 0; --size) {
         list.push_back(randomValue(random, depth - 1));
      }
      return list;
   }
   default:
      Json object = Json::object();
      for (auto size = random() % 3; size > 0; --size) {
         object[randomBytes(random)] = randomValue(random, depth - 1);
      }
      return object;
   }
}

TEST(JsonWriter, printsRandomDocumentsAsTheLibraryDoes) {
   std::mt19937 random{1};
   for (int i = 0; i < 20'000; ++i) {
      const Json value = randomValue(random, 4);
      ASSERT_EQ(written(value), documentText(value));
   }
}

TEST(JsonWriter, aValueInMemoryStandsAsIfWrittenInPieces) {
   std::mt19937 random{2};
   for (int i = 0; i < 2'000; ++i) {
      const Json value = randomValue(random, 4);
      std::string text;
      Writer writer{[&](std::string_view piece) { text += piece; }};
      writer.beginObject();
      writer.member("list");
      writer.beginList();
      writer.value(value);
      writer.value(value);
      writer.endList();
      writer.endObject();
      writer.finish();
      ASSERT_EQ(text, documentText({{"list", Json::array({value, value})}}));
   }
}

TEST(JsonWriter, longTextsPassInPiecesOfBoundedSize) {
   const Json value{std::string(3 * Writer::pieceSize + 1, 'a'), std::string(70'000, '\n')};
   std::string text;
   std::size_t pieces = 0;
   Writer writer{[&](std::string_view piece) {
      EXPECT_LE(piece.size(), Writer::pieceSize);
      text += piece;
      ++pieces;
   }};
   write(writer, value);
   writer.finish();
   EXPECT_EQ(text, documentText(value));
   EXPECT_EQ(pieces, text.size() / Writer::pieceSize + 1);
}

TEST(JsonWriter, aDocumentThatIsNotFinishedStaysCut) {
   std::string text;
   {
      Writer writer{[&](std::string_view piece) { text += piece; }};
      writer.beginObject();
      writer.member("long");
      writer.text(std::string(2 * Writer::pieceSize, 'a'));
      writer.endObject();
   }
   EXPECT_EQ(text.size(), 2 * Writer::pieceSize);
   EXPECT_FALSE(Json::accept(text));
}

TEST(JsonWriter, theExceptionOfASinkReachesTheCaller) {
   Writer writer{[](std::string_view) { throw std::runtime_error{"full"}; }};
   writer.text("short");
   EXPECT_THROW(writer.finish(), std::runtime_error);
}

} // namespace
