// `RingFile`: the file that RINGLOG_FILE names, taken for the ring of this process only if nobody
// loses anything but an old ring by it. Relies on the layout for what marks a ring.
#pragma once

#include <cstddef>
#include <string>
#include <sys/stat.h>
#include <utility>

namespace Ringlog::Detail {

// Belongs to the ring, whose mutex guards it.
class RingFile {
 public:
   // `size`: the bytes of the whole ring. Opens nothing yet.
   RingFile(std::string path, std::size_t size) : path_{std::move(path)}, size_{size} {}
   RingFile(const RingFile&) = delete;
   RingFile& operator=(const RingFile&) = delete;
   ~RingFile() { close(); }

   // Opens the file, or makes it, and takes it. False, after a line on standard error that says why
   // and what to do, when it cannot be used. The file is closed then. Its content and its mode are
   // as before, unless writing to room that was allocated fails.
   bool open();
   // Takes the open file again, after somebody has truncated it. As `open`.
   bool takeAgain();
   // Closes the file, which ends the lock, without a word. Does nothing when no file is open.
   void close() noexcept;

   int descriptor() const noexcept { return file_; } // negative when no file is open
   const std::string& path() const noexcept { return path_; }

 private:
   bool closedUnless(const std::string& refusal);
   std::string take(bool isOurs);
   std::string makeRoom(std::size_t former) const;
   std::string beginRing(std::size_t former) const;
   std::string systemRefusal(int error) const;

   std::string path_;
   std::size_t size_;
   int file_ = -1;
   // The file that `open` has taken; no inode has number 0. A program may close descriptors that it
   // has not opened, and the number of ours may be that of another file later.
   dev_t device_ = 0;
   ino_t inode_ = 0;
};

} // namespace Ringlog::Detail
