// `RingBytes`: a ring put together by hand, byte by byte, so that the reader is not only tested on
// what our own writer makes. Relies on the layout's constants only.
#pragma once

#include "Ringlog/detail/Layout.h"

#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// Numbers and text in the ring's byte order.
class Bytes {
 public:
   template <class T>
   Bytes& number(T value) {
      const auto* begin = reinterpret_cast<const std::byte*>(&value);
      bytes_.insert(bytes_.end(), begin, begin + sizeof value);
      return *this;
   }
   Bytes& text(std::string_view text) {
      number(static_cast<U32>(text.size()));
      return raw(text);
   }
   // A text that begins with `common` bytes of the text at `place` and goes on with `rest`.
   Bytes& reference(U32 common, U16 place, std::string_view rest) {
      number(0x80000000U | common << 13U | static_cast<U32>(rest.size()));
      return number(place).raw(rest).paddedTo8();
   }
   Bytes& raw(std::string_view text) {
      const auto* begin = reinterpret_cast<const std::byte*>(text.data());
      bytes_.insert(bytes_.end(), begin, begin + text.size());
      return *this;
   }
   Bytes& paddedTo8() {
      bytes_.resize((bytes_.size() + 7) / 8 * 8);
      return *this;
   }
   const std::vector<std::byte>& bytes() const { return bytes_; }

 private:
   std::vector<std::byte> bytes_;
};

struct KindOf {
   char code;
   std::string_view type;
   std::string_view name;
};

class RingBytes {
 public:
   static constexpr std::size_t blocks = 2;

   RingBytes() : bytes_(Ringlog::ringSize(blocks)) {
      put(offsetof(Ringlog::RingHeader, magic), Ringlog::ringMagic);
      put(offsetof(Ringlog::RingHeader, blockCount), static_cast<U32>(blocks));
      put(offsetof(Ringlog::RingHeader, processId), U32{4711});
      clocks({1000, 5'000'000'000}, {2000, 6'000'000'000});
   }

   struct Clock {
      U64 ticks;
      U64 nanoseconds;
   };
   RingBytes& clocks(Clock opened, Clock latest) {
      put(offsetof(Ringlog::RingHeader, opened), opened.ticks);
      put(offsetof(Ringlog::RingHeader, opened) + 8, opened.nanoseconds);
      put(offsetof(Ringlog::RingHeader, latest), latest.ticks);
      put(offsetof(Ringlog::RingHeader, latest) + 8, latest.nanoseconds);
      return *this;
   }

   // A call site of function "f" at line 7, level 5, of the source "Source".
   RingBytes& site(U32 number, std::string_view format, const std::vector<KindOf>& kinds = {}) {
      Bytes body;
      body.number(number).number(U32{7}).number(U32{5});
      body.text("Source").text("").text("f").text(format);
      body.number(static_cast<U32>(kinds.size()));
      for (const KindOf& kind : kinds) {
         body.number(static_cast<U32>(kind.code)).text(kind.type).text(kind.name);
      }
      return descriptor(body.bytes());
   }
   // A descriptor of any bytes; its size is put before them.
   RingBytes& descriptor(const std::vector<std::byte>& body) {
      const auto size = static_cast<U32>(body.size() + 4);
      put(Ringlog::headerSize + descriptorBytes_, size);
      copyTo(Ringlog::headerSize + descriptorBytes_ + 4, body);
      return descriptorBytes(descriptorBytes_ + size);
   }
   RingBytes& descriptorBytes(U32 used) {
      descriptorBytes_ = used;
      put(offsetof(Ringlog::RingHeader, descriptorBytes), used);
      return *this;
   }

   // A record in block 0 or 1; `size` replaces the right size.
   RingBytes& record(std::size_t block, U32 site, U64 ticks,
                     const std::vector<std::byte>& arguments = {}, U32 size = 0) {
      const auto whole = static_cast<U32>(16 + arguments.size());
      const std::size_t at = blockAt(block) + sizeof(Ringlog::BlockHeader) + used_[block];
      put(at, size == 0 ? whole : size);
      put(at + 4, site);
      put(at + 8, ticks);
      copyTo(at + 16, arguments);
      used_[block] += whole;
      put(blockAt(block) + offsetof(Ringlog::BlockHeader, used), used_[block]);
      return claim(block, block + 1);
   }
   // A record in block 0 or 1 without ticks of its own.
   RingBytes& recordAtOnce(std::size_t block, U32 site,
                           const std::vector<std::byte>& arguments = {}) {
      const auto whole = static_cast<U32>(8 + arguments.size());
      const std::size_t at = blockAt(block) + sizeof(Ringlog::BlockHeader) + used_[block];
      put(at, whole | 0x80000000U);
      put(at + 4, site);
      copyTo(at + 8, arguments);
      used_[block] += whole;
      put(blockAt(block) + offsetof(Ringlog::BlockHeader, used), used_[block]);
      return claim(block, block + 1);
   }
   RingBytes& claim(std::size_t block, U64 claim) {
      put(blockAt(block) + offsetof(Ringlog::BlockHeader, claim), claim);
      return *this;
   }
   static std::size_t blockAt(std::size_t block) { return Ringlog::ringSize(block); }

   template <class T>
   RingBytes& put(std::size_t at, T value) {
      std::memcpy(bytes_.data() + at, &value, sizeof value);
      return *this;
   }
   std::vector<std::byte>& bytes() { return bytes_; }

 private:
   void copyTo(std::size_t at, const std::vector<std::byte>& from) {
      if (!from.empty()) {
         std::memcpy(bytes_.data() + at, from.data(), from.size());
      }
   }

   std::vector<std::byte> bytes_;
   U32 descriptorBytes_ = 0;
   U32 used_[blocks] = {};
};

} // namespace TestSupport
