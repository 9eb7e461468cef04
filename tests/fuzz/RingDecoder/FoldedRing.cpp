#include "FoldedRing.h"

#include "Ringlog/detail/Layout.h"

#include <memory>
#include <string_view>

namespace Fuzz {

namespace {

constexpr std::size_t wholeSize = Ringlog::ringSize(FoldedRing::blocks);

// On the heap, so that a read behind the end is seen.
std::byte* memory() {
   static const std::unique_ptr<std::byte[]> whole{new std::byte[wholeSize + 1]{}};
   return whole.get() + 1;
}

std::span<const U8> bytesOf(std::string_view text) {
   return {reinterpret_cast<const U8*>(text.data()), text.size()};
}

// One byte says how long it is.
std::span<const U8> shortText(Input& input) {
   return input.take(input.number<U8>());
}

// A type that records can carry, or none at all.
std::string_view typeName(U8 number) {
   static constexpr std::string_view names[] = {"",
                                                "Acl::AclType",
                                                "Classification::TcpFlagAndMask",
                                                "Orlix::IntfId",
                                                "Orlix::IpGenPrefix",
                                                "Orlix::DscpValue",
                                                "PolicyMap::ClassMapMatchOption",
                                                "PolicyMap::ActionType",
                                                "PolicyMap::AclRuleKey",
                                                "Pello::String",
                                                "double",
                                                "bool",
                                                "OruPostcardTelemetry::RuleConfig",
                                                "No::Such"};
   return names[number % std::size(names)];
}

} // namespace

void FoldedRing::Area::append(const void* bytes, std::size_t size) {
   if (size != 0 && size <= capacity - used) {
      std::memcpy(begin + used, bytes, size);
      used += size;
   }
}

void FoldedRing::Area::text(std::span<const U8> text) {
   number(static_cast<U32>(text.size()));
   append(text.data(), text.size());
}

void FoldedRing::Area::pad() {
   const U64 zeros = 0;
   append(&zeros, Ringlog::padded(used) - used);
}

void FoldedRing::Area::closeAt(std::size_t at, U32 flag) {
   const U32 size = static_cast<U32>(used - at) | flag;
   if (used - at >= sizeof size) {
      std::memcpy(begin + at, &size, sizeof size);
   }
}

FoldedRing::FoldedRing()
   : descriptors_{memory() + Ringlog::headerSize, Ringlog::descriptorAreaSize} {
   for (std::size_t i = 0; i < blocks; ++i) {
      blocks_[i] = {memory() + Ringlog::ringSize(i), Ringlog::blockSize};
   }
   headerIs(offsetof(Ringlog::RingHeader, magic), Ringlog::ringMagic);
   headerIs(offsetof(Ringlog::RingHeader, blockCount), U32{blocks});
}

FoldedRing::~FoldedRing() {
   std::fill_n(memory(), Ringlog::headerSize, std::byte{});
   std::fill_n(descriptors_.begin, descriptors_.used, std::byte{});
   for (const Area& block : blocks_) {
      std::fill_n(block.begin, block.used, std::byte{});
   }
}

template <class T>
void FoldedRing::headerIs(std::size_t at, T value) {
   std::memcpy(memory() + at, &value, sizeof value);
}

void FoldedRing::unfoldPieces(Input& input) {
   while (!input.empty()) {
      const unsigned area = input.number<U8>() % (blocks + 2);
      const auto bytes = input.take(input.number<U16>());
      if (area == 0) {
         patches_ = bytes;
      } else {
         (area == 1 ? descriptors_ : blocks_[area - 2]).append(bytes.data(), bytes.size());
      }
   }
}

void FoldedRing::unfoldTraces(Input& input) {
   for (U32 i = 0; i < blocks; ++i) {
      const Ringlog::BlockHeader header{U64{i + 1}, U32{0}, U32{i}};
      blocks_[i].append(&header, sizeof header);
   }
   while (!input.empty()) {
      if (input.number<U8>() % 4 == 0) {
         site(input);
      } else {
         record(input);
      }
   }
   for (Area& block : blocks_) {
      const auto used = static_cast<U32>(block.used - sizeof(Ringlog::BlockHeader));
      std::memcpy(block.begin + offsetof(Ringlog::BlockHeader, used), &used, sizeof used);
   }
}

// The number, the format, and each kind as its code, its type and whether it has a name.
void FoldedRing::site(Input& input) {
   static constexpr std::string_view codes = "uicbfdsv()";
   const std::size_t at = descriptors_.used;
   descriptors_.number(0);
   descriptors_.number(input.number<U8>() % 8);
   descriptors_.number(7);
   descriptors_.number(5);
   for (const std::string_view text : {"Source", "", "f"}) {
      descriptors_.text(bytesOf(text));
   }
   descriptors_.text(shortText(input));
   const U32 kinds = input.number<U8>() % 16;
   descriptors_.number(kinds);
   for (U32 i = 0; i < kinds; ++i) {
      const auto code = input.number<U8>();
      descriptors_.number(code < codes.size() ? static_cast<U8>(codes[code]) : code);
      const auto type = input.number<U8>();
      descriptors_.text(bytesOf(typeName(type)));
      descriptors_.text(bytesOf(type < 128 ? "a" : ""));
   }
   descriptors_.closeAt(at);
}

// The block, the site (8 is added for a record without ticks), and each argument as a small number,
// eight bytes, text, bytes as they are, or a reference to another text.
void FoldedRing::record(Input& input) {
   Area& block = blocks_[input.number<U8>() % blocks];
   const std::size_t at = block.used;
   block.number(0);
   const auto site = input.number<U8>();
   block.number(site % 8);
   const bool hasTicks = (site & 8) == 0;
   if (hasTicks) {
      const U64 ticks = input.number<U16>();
      block.append(&ticks, sizeof ticks);
   }
   for (unsigned left = input.number<U8>() % 16; left > 0; --left) {
      const auto form = input.number<U8>() % 5;
      if (form == 0 || form == 1) {
         const U64 value = form == 0 ? input.number<U8>() : input.number<U64>();
         block.append(&value, sizeof value);
      } else if (form == 2) {
         block.text(shortText(input));
      } else if (form == 4) {
         reference(block, input);
      } else {
         const auto bytes = shortText(input);
         block.append(bytes.data(), bytes.size());
      }
      block.pad();
   }
   block.closeAt(at, hasTicks ? 0 : Ringlog::ticksLeftOut);
}

// The common bytes, the place, and the rest.
void FoldedRing::reference(Area& block, Input& input) {
   const U32 common = input.number<U8>();
   const U16 place = input.number<U8>();
   const auto rest = shortText(input);
   block.number(Ringlog::TextReference::isReference | common << Ringlog::TextReference::lengthBits |
                static_cast<U32>(rest.size()));
   block.append(&place, sizeof place);
   block.append(rest.data(), rest.size());
}

std::size_t FoldedRing::size() {
   return wholeSize;
}

std::span<const std::byte> FoldedRing::bytes() {
   headerIs(offsetof(Ringlog::RingHeader, descriptorBytes), static_cast<U32>(descriptors_.used));
   Input patches{patches_};
   while (!patches.empty()) {
      constexpr std::size_t words = sizeof(Ringlog::RingHeader) / sizeof(U32);
      const std::size_t place = patches.number<U8>() % words;
      headerIs(place * sizeof(U32), patches.number<U32>());
   }
   return {memory(), wholeSize};
}

} // namespace Fuzz
