// `FileReader`: reads a ring file while its process may be writing it. Each call of `look` returns
// what has been added since the call before. Relies on Decoder, which decodes the bytes.
//
// Reader and writer share no lock. The reader copies the new bytes of a block and reads the number
// of the block's claim before and after copying; when both are the same, no byte of the copy was
// overwritten. The file is opened anew at each look, because another process may have put another
// ring in its place. It is read and not mapped, because the file may be truncated while it is read,
// and an access to a truncated page would end the reader with SIGBUS.
#pragma once

#include "Ringlog/Decoder.h"

#include <optional>
#include <string>
#include <vector>

namespace Ringlog {

// Not synchronised: a reader belongs to one thread. Any number of readers, in any processes, may
// read one file.
class FileReader {
 public:
   // Only keeps the path. A file that cannot be read is reported by the first `look`.
   explicit FileReader(std::string path) : path_{std::move(path)} {}

   struct Look {
      // The new records, sorted by time. `Record::site` is valid until the next look.
      std::vector<Record> records;
      // The file holds another ring than at the look before, and `records` are those of the new
      // ring. What was added to the former ring after the look before is lost.
      bool replaced = false;
      // How many records were overwritten since the first look at this ring before they could be
      // read, as far as the looks before have not counted them.
      U64 missed = 0;
   };
   // Reads what is new. The first look reads every record in the file.
   //
   // Throws std::system_error with the path when the file cannot be opened or read, and DamagedRing
   // when it is no ring or has a damaged descriptor. After the first look that found a ring, two
   // states are no errors but give an empty result, because they occur when the writing process is
   // restarted: the file does not exist, or its ring is just being made.
   Look look();

   const std::string& path() const noexcept { return path_; }
   // The header of the ring as it was at the latest look that found one. Requires such a look.
   const RingFacts& facts() const noexcept { return facts_; }
   // How often a block of this ring was found damaged: it claims more bytes than a block has, or a
   // record with an impossible size. The rest of such a block is not read until its next claim.
   std::size_t damagedBlocks() const noexcept { return damagedBlocks_; }
   // How many records of this ring were left out because their call site has no descriptor.
   std::size_t undescribed() const noexcept { return decoder_.undescribed(); }

 private:
   class File;

   // How far a block has been read, within its present claim.
   struct Seen {
      U64 claim = 0;                // the claim that the other members are about; 0: none
      Decoder::Progress progress{}; // what has been decoded
      bool damaged = false;         // not to be read before the next claim
      std::size_t records = 0;      // in what has been decoded
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
   bool known_ = false; // a look has found a ring, which `facts_` describes
   RingFacts facts_{};
   // What follows is about the ring of `facts_` and begins anew with each ring.
   Decoder decoder_;
   std::size_t descriptorBytes_ = 0; // read so far
   std::vector<Seen> seen_;          // by the block's number
   std::size_t damagedBlocks_ = 0;
   U64 overwrittenBefore_ = 0; // records that were overwritten before the first look
   U64 readAndGone_ = 0;       // records that were read first and overwritten later
   U64 missed_ = 0;            // the sum of all `Look::missed`
};

} // namespace Ringlog
