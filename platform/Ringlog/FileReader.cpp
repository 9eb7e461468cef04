#include "Ringlog/FileReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Ringlog {

namespace {

// A file that is taken over again and again while it is read has nothing new for now.
constexpr int mostAttempts = 3;

} // namespace

// The file during one look.
class FileReader::File {
 public:
   explicit File(const std::string& path)
      // Opening a pipe must not wait for a writer.
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
   // Whether so many bytes are there. Numbers that lie at multiples of their size come whole.
   bool read(std::size_t offset, std::span<std::byte> to) const {
      const ssize_t size = ::pread(fd_, to.data(), to.size(), static_cast<off_t>(offset));
      if (size < 0) {
         fail();
      }
      return static_cast<std::size_t>(size) == to.size();
   }
   // The header of a block; of an unused one when the file has been cut off.
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
         if (!known_ || error.code() != std::errc::no_such_file_or_directory) {
            throw;
         }
         return {};
      }
   }
   return {};
}

// The header; nothing while another process makes the ring anew, which it does by cutting the file
// off, filling it with zeros, and writing the magic number last.
std::optional<RingFacts> FileReader::factsOf(const File& file) const {
   std::array<std::byte, sizeof(RingHeader)> header{};
   const bool whole = file.read(0, header);
   if (known_ && (!whole || std::ranges::all_of(std::span{header}.first(sizeof(U64)),
                                                [](std::byte b) { return b == std::byte{0}; }))) {
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

// Nothing when the ring has been replaced while it was read.
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
   // A thread that claimed one of these has finished with its block before. What is claimed from
   // now on waits for the next look, which then has the rest of the blocks before too.
   const U64 newest = claims.back().first;
   RecordText texts{textPerByte * file.size()};
   for (const auto& [claim, number] : claims) {
      readBlock(file, number, newest, texts, look);
   }
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
   if (block.claim == 0 || block.claim > newest || seen.damaged || block.used <= seen.used) {
      return;
   }
   if (block.used > blockCapacity) {
      return damagedIs(seen);
   }
   std::vector<std::byte> bytes(block.used - seen.used);
   // When the block has been claimed anew meanwhile, the bytes may be of both claims.
   if (!file.read(ringSize(number) + sizeof(BlockHeader) + seen.used, bytes) ||
       file.block(number).claim != block.claim) {
      return;
   }
   readDescriptors(file); // those of these records have been written before them
   const Decoder::Extent extent = decoder_.addRecords(bytes, block.thread, texts, look.records);
   seen.used = block.used;
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
   if (file.read(headerSize + descriptorBytes_, area) && stillTheRing(file)) {
      descriptorBytes_ = facts->descriptorBytes;
      decoder_.addDescriptors(area);
   }
}

// The header is read before the blocks, so it may not know yet of records that were found gone. It
// catches up; what has been told stays told.
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
