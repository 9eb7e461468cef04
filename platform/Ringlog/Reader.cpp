#include "Ringlog/Reader.h"

#include "Kiv/TypeData.h"

#include <algorithm>
#include <cstring>
#include <fmt/args.h>
#include <fmt/format.h>

namespace Ringlog {

DamagedRing::~DamagedRing() = default;

namespace {

// Reads bytes from left to right and never past their end.
class Cursor {
 public:
   explicit Cursor(std::span<const std::byte> bytes) : left_{bytes} {}

   template <class T>
   T plain() {
      T value{};
      std::memcpy(&value, take(sizeof value).data(), sizeof value);
      return value;
   }
   std::string text() {
      const auto length = plain<U32>();
      const auto bytes = take(length);
      return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
   }
   // Text as a record holds it, padded.
   std::string paddedText() {
      const auto length = plain<U32>();
      const auto bytes = take(padded(sizeof(U32) + std::size_t{length}) - sizeof(U32));
      return {reinterpret_cast<const char*>(bytes.data()), length};
   }
   std::span<const std::byte> take(std::size_t size) {
      if (size > left_.size()) {
         throw DamagedRing{"a record ends before its arguments"};
      }
      const auto taken = left_.first(size);
      left_ = left_.subspan(size);
      return taken;
   }
   bool atEnd() const { return left_.empty(); }

 private:
   std::span<const std::byte> left_;
};

using Arguments = fmt::dynamic_format_arg_store<fmt::format_context>;
using Kinds = std::span<const Descriptor::Kind>;

// The bytes of a plain value, printed by its registered type.
std::string plainText(Cursor& cursor, const std::string& typeName, bool generic) {
   const Kiv::TypeData* type = Kiv::findType(typeName);
   if (type == nullptr || type->displayText == nullptr) {
      throw DamagedRing{"unknown type " + typeName};
   }
   const auto bytes = cursor.take(padded(type->size));
   alignas(std::max_align_t) std::byte value[64];
   if (type->size > sizeof value) {
      throw DamagedRing{"type " + typeName + " is too large"};
   }
   std::memcpy(value, bytes.data(), type->size);
   return generic ? type->valueText(value) : type->displayText(value);
}

std::string quoted(const std::string& text) {
   std::string out;
   Kiv::printQuoted(out, text);
   return out;
}

std::string compositeText(Cursor& cursor, Kinds& kinds);

// The generic text of what stands next, inside a composite.
std::string genericText(Cursor& cursor, Kinds& kinds) {
   const Descriptor::Kind kind = kinds.front();
   if (kind.code == '(') {
      return compositeText(cursor, kinds);
   }
   kinds = kinds.subspan(1);
   switch (kind.code) {
   case 'u':
      return std::to_string(cursor.plain<U64>());
   case 'b':
      return cursor.plain<U64>() != 0 ? "true" : "false";
   case 's':
      return quoted(cursor.paddedText());
   case 'v':
      return plainText(cursor, kind.type, true);
   default:
      throw DamagedRing{"unknown kind of argument"};
   }
}

// `Name::Space::Type(first=…, second=…)`; `kinds` stands on its opening.
std::string compositeText(Cursor& cursor, Kinds& kinds) {
   std::string out = kinds.front().type;
   const char* separator = "(";
   kinds = kinds.subspan(1);
   while (!kinds.empty() && kinds.front().code != ')') {
      out.append(separator).append(kinds.front().name).append("=");
      out += genericText(cursor, kinds);
      separator = ", ";
   }
   if (kinds.empty()) {
      throw DamagedRing{"a composite without an end"};
   }
   kinds = kinds.subspan(1);
   return out + ")";
}

void readArgument(Cursor& cursor, Kinds& kinds, Arguments& arguments) {
   const Descriptor::Kind& kind = kinds.front();
   if (kind.code == '(') {
      arguments.push_back(compositeText(cursor, kinds));
      return;
   }
   kinds = kinds.subspan(1);
   switch (kind.code) {
   case 'u':
      return arguments.push_back(cursor.plain<U64>());
   case 'i':
      return arguments.push_back(cursor.plain<std::int64_t>());
   case 'b':
      return arguments.push_back(cursor.plain<U64>() != 0);
   case 'd':
      return arguments.push_back(cursor.plain<double>());
   case 's':
      return arguments.push_back(cursor.paddedText());
   case 'v':
      return arguments.push_back(plainText(cursor, kind.type, false));
   default:
      throw DamagedRing{"unknown kind of argument"};
   }
}

std::string formatRecord(const Descriptor& site, std::span<const std::byte> bytes) {
   try {
      Cursor cursor{bytes};
      Kinds kinds{site.kinds};
      Arguments arguments;
      while (!kinds.empty()) {
         readArgument(cursor, kinds, arguments);
      }
      return fmt::vformat(site.format, arguments);
   } catch (const std::exception& error) {
      return fmt::format("<{}: {}>", site.format, error.what());
   }
}

} // namespace

Reader::Reader(std::span<const std::byte> bytes) {
   if (bytes.size() < headerSize + descriptorAreaSize) {
      throw DamagedRing{"not a trace ring: only " + std::to_string(bytes.size()) + " bytes"};
   }
   Cursor cursor{bytes};
   if (cursor.plain<U64>() != ringMagic) {
      throw DamagedRing{"not a trace ring: the first bytes are not those of one"};
   }
   const auto* header = reinterpret_cast<const RingHeader*>(bytes.data());
   const std::size_t blocks = header->blockCount;
   if (blocks == 0 || ringSize(blocks) != bytes.size()) {
      throw DamagedRing{"damaged trace ring: " + std::to_string(blocks) + " blocks in " +
                        std::to_string(bytes.size()) + " bytes"};
   }
   processId_ = header->processId;
   lostDescriptors_ = header->lostDescriptors;
   openedTicks_ = header->opened.ticks;
   openedTime_ = static_cast<double>(header->opened.nanoseconds) / 1e9;
   const auto ticks = static_cast<double>(header->latest.ticks - header->opened.ticks);
   const auto elapsed =
      static_cast<double>(header->latest.nanoseconds - header->opened.nanoseconds);
   // Without a span to measure by, a tick is taken for a nanosecond.
   secondsPerTick_ = ticks > 0 ? elapsed / ticks / 1e9 : 1e-9;
   const std::size_t used = header->descriptorBytes;
   if (used > descriptorAreaSize) {
      throw DamagedRing{"damaged trace ring: its descriptors are longer than their area"};
   }
   readDescriptors(bytes.subspan(headerSize, used));
   for (std::size_t i = 0; i < blocks; ++i) {
      readBlock(bytes.subspan(headerSize + descriptorAreaSize + i * blockSize, blockSize));
   }
   std::ranges::stable_sort(records_, {}, &Record::ticks);
}

void Reader::readDescriptors(std::span<const std::byte> area) {
   while (!area.empty()) {
      Cursor cursor{area};
      const auto size = cursor.plain<U32>();
      if (size < sizeof(U32) || size > area.size()) {
         throw DamagedRing{"damaged trace ring: a descriptor of " + std::to_string(size) +
                           " bytes"};
      }
      const auto number = cursor.plain<U32>();
      Descriptor site;
      site.line = cursor.plain<U32>();
      site.level = cursor.plain<U32>();
      site.source = cursor.text();
      site.className = cursor.text();
      site.functionName = cursor.text();
      site.format = cursor.text();
      for (auto count = cursor.plain<U32>(); count > 0; --count) {
         const auto code = static_cast<char>(cursor.plain<U32>());
         std::string type = cursor.text();
         site.kinds.push_back({code, std::move(type), cursor.text()});
      }
      descriptors_.insert_or_assign(number, std::move(site));
      area = area.subspan(size);
   }
}

void Reader::readBlock(std::span<const std::byte> block) {
   const auto* header = reinterpret_cast<const BlockHeader*>(block.data());
   const std::size_t used = header->used;
   if (header->claim == 0 || used > blockCapacity) {
      return; // never used, or being taken at the moment of the copy
   }
   auto left = block.subspan(sizeof(BlockHeader), used);
   while (left.size() >= sizeof(RecordHeader)) {
      RecordHeader record{};
      std::memcpy(&record, left.data(), sizeof record);
      if (record.size < sizeof record || record.size > left.size()) {
         return; // the rest of this block cannot be told apart
      }
      const auto site = descriptors_.find(record.descriptor);
      if (site != descriptors_.end()) {
         const auto arguments = left.subspan(sizeof record, record.size - sizeof record);
         records_.push_back({&site->second, record.ticks, timeOf(record.ticks), header->thread,
                             formatRecord(site->second, arguments)});
      }
      left = left.subspan(record.size);
   }
}

double Reader::timeOf(U64 ticks) const {
   const auto since = static_cast<double>(static_cast<std::int64_t>(ticks - openedTicks_));
   return openedTime_ + since * secondsPerTick_;
}

} // namespace Ringlog
