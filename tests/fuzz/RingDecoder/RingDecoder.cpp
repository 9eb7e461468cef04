// Any bytes as a trace ring: they are refused as a DamagedRing, or what is in them can be read. The
// first byte says whether the rest is the ring itself, or how it unfolds to one, or to a file with
// one that grows while it is read.
#include "../Require.h"
#include "FoldedRing.h"
#include "Ringlog/FileReader.h"
#include "support/RingReader.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

using Fuzz::Input;
using Fuzz::require;

void checkRecords(const std::vector<Ringlog::Record>& records, std::size_t ringSize) {
   std::size_t characters = 0;
   U64 ticks = 0;
   for (const Ringlog::Record& record : records) {
      require(record.ticks >= ticks, "records are in the order of their time");
      ticks = record.ticks;
      require(record.site != nullptr, "every record has a call site");
      characters += record.text.size();
   }
   // The last text that is not left out may be as long as any, and each that is has a note.
   constexpr std::size_t longestRecord = std::size_t{16} * 1024 * 1024;
   require(characters <= Ringlog::textPerByte * ringSize + longestRecord + 32 * records.size(),
           "texts are not much longer than the ring");
}

// Calls `read()`, which may refuse the ring.
template <class Read>
void refusing(Read read) {
   try {
      read();
   } catch (const Ringlog::DamagedRing& error) {
      require(std::string_view{error.what()}.find("trace ring") != std::string_view::npos,
              "a refusal says what is refused", error.what());
   }
}

void readWhole(std::span<const std::byte> ring) {
   refusing([&] { checkRecords(TestSupport::RingReader{ring}.records(), ring.size()); });
}

// A file that has no name for others.
class NamelessFile {
 public:
   NamelessFile() : file_{::memfd_create("ring", MFD_CLOEXEC)} {
      require(file_ >= 0, "there is a file to write to");
   }
   NamelessFile(const NamelessFile&) = delete;
   NamelessFile& operator=(const NamelessFile&) = delete;
   ~NamelessFile() { ::close(file_); }

   std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }
   void is(std::span<const std::byte> bytes) {
      const ssize_t written = ::pwrite(file_, bytes.data(), bytes.size(), 0);
      require(static_cast<std::size_t>(written) == bytes.size(), "the file can be written");
   }
   void cut(std::size_t size) {
      require(::ftruncate(file_, static_cast<off_t>(size)) == 0, "the file can be cut off");
   }

 private:
   int file_;
};

void unfold(Fuzz::FoldedRing& ring, bool pieces, Input input) {
   if (pieces) {
      ring.unfoldPieces(input);
   } else {
      ring.unfoldTraces(input);
   }
}

// A ring file that grows between two looks, and then is cut off.
void readGrowing(Input input) {
   const U8 kind = input.number<U8>();
   const std::size_t before = input.number<U16>();
   const auto after = input.take(input.size());
   NamelessFile file;
   Ringlog::FileReader reader{file.path()};
   for (const auto part : {after.first(std::min(before, after.size())), after}) {
      {
         Fuzz::FoldedRing ring;
         unfold(ring, kind % 2 == 0, Input{part});
         file.is(ring.bytes());
      }
      refusing([&] { checkRecords(reader.look().records, Fuzz::FoldedRing::size()); });
   }
   file.cut(std::size_t{kind} * 4096);
   refusing([&] { checkRecords(reader.look().records, Fuzz::FoldedRing::size()); });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   Input input{{data, size}};
   const unsigned form = input.number<U8>() % 4;
   if (form == 0) {
      readWhole(std::as_bytes(input.take(size)));
   } else if (form == 3) {
      readGrowing(input);
   } else {
      Fuzz::FoldedRing ring;
      unfold(ring, form == 1, input);
      readWhole(ring.bytes());
   }
   return 0;
}
