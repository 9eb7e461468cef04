// `FileReader`: reads a ring file look by look, each time what has been added to it since, while
// its process may be writing it. Relies on Decoder for what the bytes say. The file is opened for
// reading at each look and never mapped: whoever takes it over cuts it off first.
#pragma once

#include "Ringlog/Decoder.h"

#include <optional>
#include <string>
#include <vector>

namespace Ringlog {

class FileReader {
 public:
   // Nothing is opened before the first look.
   explicit FileReader(std::string path) : path_{std::move(path)} {}

   struct Look {
      // The records that are new, oldest first. Their call sites are good until the next look.
      std::vector<Record> records;
      // Another ring is in the file's place; what was added to the one before it since the look
      // before has not been read.
      bool replaced = false;
      // Records that made room for newer ones after the first look had begun, and were not read.
      U64 missed = 0;
   };
   // What is new. Throws std::system_error with the path when the file cannot be read and
   // DamagedRing when it is no ring; but once it has been one, a file that is gone, or is being
   // made anew by another process, has nothing new.
   Look look();

   const std::string& path() const noexcept { return path_; }
   // The ring's header at the latest look that found one. Requires such a look.
   const RingFacts& facts() const noexcept { return facts_; }
   // How many blocks of the ring hold bytes that cannot be told apart.
   std::size_t damagedBlocks() const noexcept { return damagedBlocks_; }
   // How many records have been left out because the ring does not describe their call site.
   std::size_t undescribed() const noexcept { return decoder_.undescribed(); }

 private:
   class File;

   // What has been read of a block since it was claimed.
   struct Seen {
      U64 claim = 0;
      U32 used = 0; // bytes
      bool damaged = false;
      std::size_t records = 0;
   };

   std::optional<RingFacts> factsOf(const File& file) const;
   bool stillTheRing(const File& file) const;
   void beginRing(const RingFacts& facts);
   std::optional<Look> lookAt(const File& file);
   void readBlocks(const File& file, Look& look);
   void readBlock(const File& file, std::size_t number, U64 newest, RecordText& texts, Look& look);
   void readDescriptors(const File& file);
   void damagedIs(Seen& seen);
   U64 newlyMissed();

   std::string path_;
   bool known_ = false; // a ring has been read
   RingFacts facts_{};
   Decoder decoder_;
   std::size_t descriptorBytes_ = 0; // read so far
   std::vector<Seen> seen_;          // by block
   std::size_t damagedBlocks_ = 0;
   U64 overwrittenBefore_ = 0; // records that were gone when the first look began
   U64 readAndGone_ = 0;       // records that have been read and made room since
   U64 missed_ = 0;            // told so far
};

} // namespace Ringlog
