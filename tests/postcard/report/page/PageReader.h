// `PageReader`: reads a page back as its script does: base64, deflate, document, columns. Relies on
// zlib and the JSON library, and on nothing of the room that it tests.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>
#include <zlib.h>

namespace PageTest {

inline std::string fromBase64(std::string_view text) {
   constexpr std::string_view digits =
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
   std::string bytes;
   std::uint32_t bits = 0;
   int count = 0;
   for (const char digit : text.substr(0, text.find('='))) {
      const std::size_t value = digits.find(digit);
      if (value == std::string_view::npos) {
         throw std::runtime_error{"not base64"};
      }
      bits = bits << 6 | static_cast<std::uint32_t>(value);
      count += 6;
      if (count >= 8) {
         count -= 8;
         bytes += static_cast<char>(bits >> count & 0xff);
      }
   }
   return bytes;
}

inline std::string inflated(const std::string& bytes) {
   z_stream stream{};
   inflateInit2(&stream, -15);
   std::string source = bytes;
   stream.next_in = reinterpret_cast<Bytef*>(source.data());
   stream.avail_in = static_cast<uInt>(source.size());
   std::array<Bytef, 4096> buffer;
   std::string out;
   int state = Z_OK;
   while (state == Z_OK) {
      stream.next_out = buffer.data();
      stream.avail_out = buffer.size();
      state = inflate(&stream, Z_NO_FLUSH);
      out.append(reinterpret_cast<const char*>(buffer.data()), buffer.size() - stream.avail_out);
   }
   inflateEnd(&stream);
   if (state != Z_STREAM_END || stream.avail_in != 0) {
      throw std::runtime_error{"not deflated"};
   }
   return out;
}

// The numbers of a column.
inline std::vector<std::uint32_t> numbersOf(std::string_view bytes) {
   std::vector<std::uint32_t> numbers;
   std::int64_t before = 0;
   while (!bytes.empty()) {
      std::uint64_t folded = 0;
      unsigned shift = 0;
      bool more = true;
      for (; more; shift += 7) {
         const auto byte = static_cast<unsigned char>(bytes.front());
         bytes.remove_prefix(1);
         folded |= std::uint64_t{byte & 0x7fU} << shift;
         more = (byte & 0x80U) != 0;
      }
      const auto half = static_cast<std::int64_t>(folded / 2);
      before += folded % 2 == 0 ? half : -half - 1;
      numbers.push_back(static_cast<std::uint32_t>(before));
   }
   return numbers;
}

class PageReader {
 public:
   // Throws when `html` is no page.
   explicit PageReader(const std::string& html) {
      const std::string mark = "id=\"data\">";
      const std::size_t begin = html.find(mark) + mark.size();
      const std::string data = inflated(
            fromBase64(std::string_view{html}.substr(begin, html.find('<', begin) - begin)));
      std::size_t size = 0;
      for (std::size_t i = 0; i < 4; ++i) {
         size |= std::size_t{static_cast<unsigned char>(data.at(i))} << (8 * i);
      }
      document_ = nlohmann::ordered_json::parse(data.substr(4, size));
      std::size_t at = 4 + size;
      for (const auto& each : document_.at("columns")) {
         columns_[each.at("name")] = numbersOf(data.substr(at, each.at("bytes")));
         at += each.at("bytes").get<std::size_t>();
      }
      if (at != data.size()) {
         throw std::runtime_error{"bytes behind the columns"};
      }
   }

   const nlohmann::ordered_json& document() const { return document_; }
   const std::map<std::string, std::vector<std::uint32_t>>& columns() const { return columns_; }
   std::uint32_t at(const std::string& column, std::size_t rule) const {
      return columns_.at(column).at(rule);
   }

 private:
   nlohmann::ordered_json document_;
   std::map<std::string, std::vector<std::uint32_t>> columns_;
};

} // namespace PageTest
