#include "Ringlog/detail/Description.h"

#include "Ringlog/detail/Layout.h"

#include <cstring>
#include <string_view>

namespace Ringlog::Detail {

namespace {

// Appends numbers and unpadded text to a descriptor.
class DescriptorWriter {
 public:
   void number(U32 value) {
      const auto* bytes = reinterpret_cast<const std::byte*>(&value);
      bytes_.insert(bytes_.end(), bytes, bytes + sizeof value);
   }
   void text(std::string_view text) {
      text = text.substr(0, longestText);
      number(static_cast<U32>(text.size()));
      const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
      bytes_.insert(bytes_.end(), bytes, bytes + text.size());
   }
   std::vector<std::byte>& bytes() { return bytes_; }

 private:
   std::vector<std::byte> bytes_;
};

} // namespace

std::vector<std::byte> describe(const Pello::TracePoint& point, U32 descriptor,
                                std::span<const ArgumentKind> kinds) {
   DescriptorWriter out;
   out.number(0); // the size, overwritten below
   out.number(descriptor);
   out.number(point.line);
   out.number(point.level);
   out.text(point.source->name());
   out.text(point.className);
   out.text(point.functionName);
   out.text(point.format);
   out.number(static_cast<U32>(kinds.size()));
   for (const ArgumentKind& kind : kinds) {
      out.number(static_cast<unsigned char>(kind.code));
      out.text(kind.type);
      out.text(kind.name);
   }
   const auto size = static_cast<U32>(out.bytes().size());
   std::memcpy(out.bytes().data(), &size, sizeof size);
   return out.bytes();
}

} // namespace Ringlog::Detail
