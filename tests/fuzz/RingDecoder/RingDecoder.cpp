// Any bytes as a trace ring: they are refused as a DamagedRing, or what is in them can be read. The
// first byte says whether the rest is the ring itself, or how it unfolds to one.
#include "../Require.h"
#include "FoldedRing.h"
#include "Ringlog/Reader.h"

#include <exception>

namespace {

using Fuzz::require;

void read(std::span<const std::byte> ring) {
   try {
      const Ringlog::Reader reader{ring};
      std::size_t characters = 0;
      U64 ticks = 0;
      for (const Ringlog::Record& record : reader.records()) {
         require(record.ticks >= ticks, "records are in the order of their time");
         ticks = record.ticks;
         require(record.site != nullptr, "every record has a call site");
         characters += record.text.size();
      }
      // The last text that is not left out may be as long as any, and each that is has a note.
      constexpr std::size_t longestRecord = std::size_t{16} * 1024 * 1024;
      require(characters <= 64 * ring.size() + longestRecord + 32 * reader.records().size(),
              "texts are not much longer than the ring");
   } catch (const Ringlog::DamagedRing& error) {
      require(std::string_view{error.what()}.find("trace ring") != std::string_view::npos,
              "a refusal says what is refused", error.what());
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   Fuzz::Input input{{data, size}};
   const unsigned form = input.number<U8>() % 3;
   if (form == 0) {
      read(std::as_bytes(input.take(size)));
      return 0;
   }
   Fuzz::FoldedRing ring;
   if (form == 1) {
      ring.unfoldPieces(input);
   } else {
      ring.unfoldTraces(input);
   }
   read(ring.bytes());
   return 0;
}
