#include "Ringlog/FileReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Ringlog {

namespace {

// How often one look begins anew because the ring was replaced while it was read. A process that is
// restarted all the time must not keep `look` from returning.
constexpr int mostAttempts = 3;

} // namespace

// The file during one look. Throws std::system_error with the path when the file cannot be opened
// or read.
class FileReader::File {
 public:
   explicit File(const std::string& path)
      // O_NONBLOCK: the path may be a named pipe, and opening one would wait for a writer.
      // O_NOCTTY: a terminal must not become the controlling terminal.
      : path_{path}, fd_{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)} {
      struct stat status {};
      if (fd_ < 0 || ::fstat(fd_, &status) != 0) {
         fail();
      }
      size_ = static_cast<std::size_t>(status.st_size);
   }
   File(const File&) = delete;
   File& operator=(const File&) = delete;
   ~File() { ::close(fd_); }

   std::size_t size() const noexcept { return size_; }
   // Fills `to` with the bytes at `offset`. False when the file is too short, because it has been
   // truncated. The writer may write at the same time; an aligned number is copied whole, never
   // half old and half new.
   bool read(std::size_t offset, std::span<std::byte> to) const {
      const ssize_t size = ::pread(fd_, to.data(), to.size(), static_cast<off_t>(offset));
      if (size < 0) {
         fail();
      }
      return static_cast<std::size_t>(size) == to.size();
   }
   // The header of a block. A block behind the end of a truncated file counts as unused; the check
   // at the end of the look finds out that the ring has been replaced.
   BlockFacts block(std::size_t number) const {
      std::array<std::byte, sizeof(BlockHeader)> header{};
      return read(ringSize(number), header) ? readBlockFacts(header) : BlockFacts{};
   }

 private:
   [[noreturn]] void fail() const {
      throw std::system_error{errno, std::generic_category(), path_};
   }

   const std::string& path_;
   int fd_;
   std::size_t size_ = 0;
};

FileReader::Look FileReader::look() {
   for (int attempt = 0; attempt < mostAttempts; ++attempt) {
      try {
         const File file{path_};
         if (std::optional<Look> look = lookAt(file)) {
            return std::move(*look);
         }
      } catch (const std::system_error& error) {
         // A service manager may remove the file between two runs of the writing process. A file
         // that was never there is more likely a mistyped path.
         if (!known_ || error.code() != std::errc::no_such_file_or_directory) {
            throw;
         }
         return {};
      }
   }
   return {};
}

// The header, or nothing while another process makes a new ring in the file: the header is short
// after somebody has truncated the file, and has another mark until everything else is in place.
// Before the first ring has been read, the same header is an error: the path names a file that is
// no ring.
std::optional<RingFacts> FileReader::factsOf(const File& file) const {
   std::array<std::byte, sizeof(RingHeader)> header{};
   const bool whole = file.read(0, header);
   U64 magic = 0;
   std::memcpy(&magic, header.data() + offsetof(RingHeader, magic), sizeof magic);
   if (known_ && (!whole || magic == ringInTheMaking || magic == 0)) {
      return std::nullopt;
   }
   return readFacts(header, whole ? file.size() : 0);
}

bool FileReader::stillTheRing(const File& file) const {
   const std::optional<RingFacts> facts = factsOf(file);
   return facts && facts->sameRing(facts_);
}

void FileReader::beginRing(const RingFacts& facts) {
   decoder_ = {};
   descriptorBytes_ = 0;
   seen_.assign(facts.blocks, {});
   damagedBlocks_ = 0;
   overwrittenBefore_ = facts.overwritten;
   readAndGone_ = 0;
   missed_ = 0;
}

// Empty when the ring was replaced while it was read: blocks of two rings may be mixed then, and
// the look must begin anew.
std::optional<FileReader::Look> FileReader::lookAt(const File& file) {
   const std::optional<RingFacts> facts = factsOf(file);
   if (!facts) {
      return Look{};
   }
   Look look;
   if (!known_ || !facts_.sameRing(*facts)) {
      look.replaced = known_;
      beginRing(*facts);
   }
   known_ = true;
   facts_ = *facts;
   decoder_.clocksAre(*facts);
   readBlocks(file, look);
   if (!stillTheRing(file)) {
      return std::nullopt;
   }
   look.missed = newlyMissed();
   return look;
}

void FileReader::readBlocks(const File& file, Look& look) {
   std::vector<std::pair<U64, std::size_t>> claims;
   for (std::size_t number = 0; number < seen_.size(); ++number) {
      claims.emplace_back(file.block(number).claim, number);
   }
   std::ranges::sort(claims);
   // A thread fills its blocks one after another, so in the order of the claims its records are in
   // order. A block that is claimed after this list was made waits for the next look: this look may
   // have passed the thread's block before already, and would miss the last records in it.
   const U64 newest = claims.back().first;
   RecordText texts{textPerByte * file.size()};
   for (const auto& [claim, number] : claims) {
      readBlock(file, number, newest, texts, look);
   }
   // Stable, because records that share a moment have equal ticks and are in order already.
   std::ranges::stable_sort(look.records, {}, &Record::ticks);
}

void FileReader::readBlock(const File& file, std::size_t number, U64 newest, RecordText& texts,
                           Look& look) {
   const BlockFacts block = file.block(number);
   Seen& seen = seen_[number];
   if (block.claim != seen.claim) {
      readAndGone_ += seen.records;
      seen = Seen{.claim = block.claim};
   }
   if (block.claim == 0 || block.claim > newest || seen.damaged ||
       block.used <= seen.progress.bytes) {
      return;
   }
   if (block.used > blockCapacity) {
      return damagedIs(seen);
   }
   // All of them: new records may refer to texts of those that have been read before.
   std::vector<std::byte> bytes(block.used);
   // A claim that has changed since the header was read means that the copy may hold bytes of both
   // claims. It is dropped; the next look finds the new claim.
   if (!file.read(ringSize(number) + sizeof(BlockHeader), bytes) ||
       file.block(number).claim != block.claim) {
      return;
   }
   // After copying: a call site's descriptor is written before its first record, so by now the file
   // has the descriptors of all records in the copy.
   readDescriptors(file);
   const Decoder::Extent extent =
         decoder_.addRecords(bytes, block.thread, seen.progress, texts, look.records);
   seen.records += extent.records;
   if (!extent.whole) {
      damagedIs(seen);
   }
}

void FileReader::damagedIs(Seen& seen) {
   seen.damaged = true;
   ++damagedBlocks_;
}

void FileReader::readDescriptors(const File& file) {
   const std::optional<RingFacts> facts = factsOf(file);
   if (!facts || facts->descriptorBytes <= descriptorBytes_) {
      return;
   }
   std::vector<std::byte> area(facts->descriptorBytes - descriptorBytes_);
   // Checked again after reading, so that no descriptors of a new ring are taken for this one. The
   // number of bytes is set before they are decoded: damage is reported by one look, not by each.
   if (file.read(headerSize + descriptorBytes_, area) && stillTheRing(file)) {
      descriptorBytes_ = facts->descriptorBytes;
      decoder_.addDescriptors(area);
   }
}

// The records that were overwritten unread since the look before. The header is read before the
// blocks: a block that is claimed in between counts in `readAndGone_` but not yet in the header,
// and the difference is negative. The header of the next look then includes it.
U64 FileReader::newlyMissed() {
   const auto gone = static_cast<std::int64_t>(facts_.overwritten - overwrittenBefore_);
   const auto missed = gone - static_cast<std::int64_t>(readAndGone_ + missed_);
   if (missed <= 0) {
      return 0;
   }
   missed_ += static_cast<U64>(missed);
   return static_cast<U64>(missed);
}

} // namespace Ringlog
