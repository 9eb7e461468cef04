// `FileDescriptor`: a descriptor that is closed when its owner goes. Relies on POSIX only.
#pragma once

#include <unistd.h>

namespace Pello {

class FileDescriptor {
 public:
   // Takes over `fd`; a negative one stands for none.
   explicit FileDescriptor(int fd) noexcept : fd_{fd} {}
   FileDescriptor(const FileDescriptor&) = delete;
   FileDescriptor& operator=(const FileDescriptor&) = delete;
   ~FileDescriptor() {
      if (fd_ >= 0) {
         ::close(fd_);
      }
   }

   int get() const noexcept { return fd_; }

 private:
   int fd_;
};

} // namespace Pello
