#include "postcard/report/page/Packed.h"

#include <array>
#include <cstddef>
#include <new>
#include <zlib.h>

namespace Postcard::Report {

namespace {

// A stream of zlib that is freed however the compression ends.
class Deflater {
 public:
   Deflater() {
      constexpr int windowBits = -15; // the greatest window; negative: without header and checksum
      constexpr int memory = 9;
      if (deflateInit2(&stream_, Z_BEST_COMPRESSION, Z_DEFLATED, windowBits, memory,
                       Z_DEFAULT_STRATEGY) != Z_OK) {
         throw std::bad_alloc{};
      }
   }
   Deflater(const Deflater&) = delete;
   Deflater& operator=(const Deflater&) = delete;
   ~Deflater() { deflateEnd(&stream_); }

   // Appends what the next piece of input becomes. `flush` is Z_FINISH for the last piece.
   void run(std::string_view piece, int flush, std::string& out) {
      // zlib does not change the input, but its type does not say so.
      stream_.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(piece.data())); // NOLINT
      stream_.avail_in = static_cast<uInt>(piece.size());
      do {
         stream_.next_out = buffer_.data();
         stream_.avail_out = static_cast<uInt>(buffer_.size());
         deflate(&stream_, flush);
         out.append(reinterpret_cast<const char*>(buffer_.data()),
                    buffer_.size() - stream_.avail_out);
      } while (stream_.avail_out == 0);
   }

 private:
   z_stream stream_{};
   std::array<Bytef, std::size_t{64} * 1024> buffer_;
};

} // namespace

void PackedColumn::add(U32 number) {
   U64 folded = number >= before_ ? 2 * (U64{number} - before_) : 2 * (U64{before_} - number) - 1;
   before_ = number;
   while (folded >= 0x80) {
      bytes_ += static_cast<char>(0x80 | (folded & 0x7f));
      folded >>= 7;
   }
   bytes_ += static_cast<char>(folded);
}

std::string deflated(std::string_view bytes) {
   constexpr std::size_t most = std::size_t{1} << 30; // zlib counts its input in 32 bits
   Deflater deflater;
   std::string out;
   while (bytes.size() > most) {
      deflater.run(bytes.substr(0, most), Z_NO_FLUSH, out);
      bytes.remove_prefix(most);
   }
   deflater.run(bytes, Z_FINISH, out);
   return out;
}

std::string base64(std::string_view bytes) {
   constexpr std::string_view digits =
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
   std::string text;
   text.reserve((bytes.size() + 2) / 3 * 4);
   for (; !bytes.empty(); bytes.remove_prefix(bytes.size() < 3 ? bytes.size() : 3)) {
      U32 group = 0;
      for (std::size_t i = 0; i < 3; ++i) {
         group = group << 8 | (i < bytes.size() ? static_cast<U8>(bytes[i]) : U8{0});
      }
      for (std::size_t i = 0; i < 4; ++i) {
         text += i <= bytes.size() ? digits[group >> (18 - 6 * i) & 0x3f] : '=';
      }
   }
   return text;
}

} // namespace Postcard::Report
