#include "Ringlog/detail/RingFile.h"

#include "Pello/VisibleCharacters.h"
#include "Ringlog/detail/Layout.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Ringlog::Detail {

namespace {

constexpr mode_t ownerOnly = 0600;

// Moves a file descriptor above those of the standard streams. A process that has closed standard
// error gets its number for a file that it opens later, and would print its messages into the ring.
// Negative when `file` is or when there is no descriptor left, with the reason in `errno`.
int aboveStandard(int file) {
   if (file < 0 || file > STDERR_FILENO) {
      return file;
   }
   const int above = ::fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
   const int error = errno;
   ::close(file);
   errno = error;
   return above;
}

// False with the reason in `errno`.
bool writeAt(int file, std::size_t offset, const void* bytes, std::size_t size) {
   const ssize_t written = ::pwrite(file, bytes, size, static_cast<off_t>(offset));
   if (written >= 0 && static_cast<std::size_t>(written) != size) {
      errno = ENOSPC;
   }
   return written >= 0 && static_cast<std::size_t>(written) == size;
}

bool writeMark(int file) {
   return writeAt(file, offsetof(RingHeader, magic), &ringInTheMaking, sizeof ringInTheMaking);
}

// Why a file of this kind is not used; empty when it may be. A file with two names is refused for
// the reason that a link is: somebody may have made the name to have the other file overwritten.
std::string unfit(const struct stat& status) {
   if (!S_ISREG(status.st_mode)) {
      return "it is no regular file; name one, or a new one";
   }
   if (status.st_nlink > 1) {
      return "the file has several names (hard links); name a file that has one";
   }
   if (status.st_uid != ::geteuid()) {
      return "the file belongs to user " + std::to_string(status.st_uid) +
             "; name a file of your own, or a new one";
   }
   return "";
}

// The number where a ring has its mark, or nothing when the file is too short for one.
std::optional<U64> markOf(int file) {
   U64 magic = 0;
   const ssize_t size = ::pread(file, &magic, sizeof magic, offsetof(RingHeader, magic));
   return size == static_cast<ssize_t>(sizeof magic) ? std::optional{magic} : std::nullopt;
}

// Whether this process may write files of `size`. A write behind the limit raises a signal that
// ends the process.
bool isWithinLimit(std::size_t size) {
   rlimit limit{};
   return ::getrlimit(RLIMIT_FSIZE, &limit) != 0 || size <= limit.rlim_cur;
}

// As posix_fallocate(3), undisturbed by signals.
int allocate(int file, std::size_t size) {
   int error = EINTR;
   while (error == EINTR) {
      error = ::posix_fallocate(file, 0, static_cast<off_t>(size));
   }
   return error;
}

// Fills everything with zeros that a reader would take for part of a ring: descriptors, and the
// headers of blocks. Records need not be erased, because no block header counts them. The header of
// the ring comes last: a reader that has begun to copy it before the mark was changed must not find
// half of it gone.
bool erase(int file, std::size_t former) {
   const BlockHeader unused{};
   for (std::size_t block = 0; ringSize(block) + sizeof unused <= former; ++block) {
      if (!writeAt(file, ringSize(block), &unused, sizeof unused)) {
         return false;
      }
   }
   const std::vector<std::byte> zeros(std::min(former, ringSize(0)));
   if (zeros.size() > headerSize &&
       !writeAt(file, headerSize, zeros.data(), zeros.size() - headerSize)) {
      return false;
   }
   constexpr std::size_t mark = sizeof(U64);
   const std::size_t header = std::min(zeros.size(), headerSize);
   return header <= mark || writeAt(file, mark, zeros.data(), header - mark);
}

} // namespace

bool RingFile::open() {
   // O_NOFOLLOW: somebody else may have made a link, and the file that it points to would be
   // overwritten. O_NONBLOCK and O_NOCTTY: the name may be that of a pipe or a terminal.
   file_ = aboveStandard(::open(path_.c_str(),
                                O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
                                ownerOnly));
   return closedUnless(file_ < 0 ? systemRefusal(errno) : take(false));
}

bool RingFile::takeAgain() {
   struct stat status {};
   if (::fstat(file_, &status) != 0 || status.st_dev != device_ || status.st_ino != inode_) {
      file_ = -1; // not ours to close
      return closedUnless("this program has closed the file; name it again at the next start");
   }
   return closedUnless(take(true));
}

void RingFile::close() noexcept {
   if (file_ >= 0) {
      ::close(file_);
   }
   file_ = -1;
}

// True without a refusal; otherwise reports it and closes the file.
bool RingFile::closedUnless(const std::string& refusal) {
   if (refusal.empty()) {
      return true;
   }
   std::fprintf(stderr, "RINGLOG_FILE=%s ignored: %s. Traces stay in memory\n",
                Pello::escaped(path_).c_str(), refusal.c_str());
   close();
   return false;
}

// Why the file cannot be used; empty when it has been taken. The lock comes first, so that nothing
// changes between the checks and what is done upon them. A file that is ours already (`isOurs`) may
// begin with zeros as well: it was truncated and made longer again.
std::string RingFile::take(bool isOurs) {
   struct stat status {};
   if (::flock(file_, LOCK_EX | LOCK_NB) != 0 || ::fstat(file_, &status) != 0) {
      return systemRefusal(errno);
   }
   if (std::string refusal = unfit(status); !refusal.empty()) {
      return refusal;
   }
   device_ = status.st_dev;
   inode_ = status.st_ino;
   const auto former = static_cast<std::size_t>(status.st_size);
   const std::optional<U64> mark = markOf(file_);
   const bool isRing = mark && (isRingMark(*mark) || (isOurs && *mark == 0));
   if (former != 0 && !isRing) {
      return "the file holds something else than a trace ring and is left as it is; name another "
             "one, or a new one";
   }
   if (std::string refusal = makeRoom(former); !refusal.empty()) {
      return refusal;
   }
   return beginRing(former);
}

// Allocates all blocks on the disk while an old ring is still whole, and leaves it as it was when
// there is no room. Afterwards a full disk cannot fail a write to the mapped file.
std::string RingFile::makeRoom(std::size_t former) const {
   if (!isWithinLimit(size_)) {
      return systemRefusal(EFBIG);
   }
   // A new file is marked first. A process that is killed behind this line leaves a file that is
   // neither empty nor a ring yet, and the next process must know it.
   int error = former == 0 && !writeMark(file_) ? errno : 0;
   if (error == 0) {
      error = allocate(file_, size_);
   }
   if (error == 0) {
      return "";
   }
   // Room that was allocated in part is given back.
   const bool restored = ::ftruncate(file_, static_cast<off_t>(former)) == 0;
   return systemRefusal(restored ? error : errno);
}

// Gives the old ring up: from here on the file is a ring in the making.
std::string RingFile::beginRing(std::size_t former) const {
   const bool begun = ::fchmod(file_, ownerOnly) == 0 && writeMark(file_) &&
                      erase(file_, std::min(former, size_)) &&
                      (former <= size_ || ::ftruncate(file_, static_cast<off_t>(size_)) == 0);
   return begun ? "" : systemRefusal(errno);
}

// The text of an error of the system, and what to do about it.
std::string RingFile::systemRefusal(int error) const {
   const std::string reason = std::strerror(error);
   switch (error) {
   case EWOULDBLOCK:
      return "another process traces into it; name a file for each process";
   case EISDIR:
      return "it is a directory; name a file in it";
   case ELOOP:
      return "it is a symbolic link, which is not followed; name the file itself";
   case ENOENT:
      return "there is no such folder; make it first";
   case ENOSPC:
   case EDQUOT:
   case EFBIG:
      return reason + "; the ring needs " + std::to_string(size_ / 1024) +
             " KiB, and RINGLOG_SIZE sets how many";
   case EMFILE:
   case ENFILE:
      return reason + "; raise the limit of open files";
   default:
      return reason + "; name a file that this user may write";
   }
}

} // namespace Ringlog::Detail
