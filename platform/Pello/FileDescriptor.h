// `FileDescriptor`: owns a POSIX file descriptor and closes it in its destructor. Relies on POSIX
// only.
#pragma once

#include <unistd.h>

namespace Pello {

class FileDescriptor {
 public:
   // Takes over `fd`. A negative number, which is what a failed `open` returns, stands for no
   // descriptor.
   explicit FileDescriptor(int fd) noexcept : fd_{fd} {}
   FileDescriptor(const FileDescriptor&) = delete;
   FileDescriptor& operator=(const FileDescriptor&) = delete;
   ~FileDescriptor() {
      if (fd_ >= 0) {
         ::close(fd_);
      }
   }

   // The descriptor, negative when there is none. It stays with this object: the caller must not
   // close it, nor use it after this object is destroyed.
   int get() const noexcept { return fd_; }

 private:
   int fd_;
};

} // namespace Pello
