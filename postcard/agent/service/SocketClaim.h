// `SocketClaim`: the right to listen at a path, so that no two agents serve the same path. Relies
// on a lock (flock(2)) on the file PATH.lock beside the socket, which the kernel releases however
// the process ends. The lock file itself is never removed: an agent that has opened it and one that
// makes a new file could otherwise both get a lock. Whoever removes the socket and the lock file by
// hand lets a second agent in. The first one then leaves the socket of the second alone.
#pragma once

#include "Pello/FileDescriptor.h"

#include <string>
#include <sys/types.h>

namespace Postcard::Agent::Service {

class SocketClaim {
 public:
   // Takes the lock, and removes the socket that a killed agent has left at `path`. The lock is
   // held until this object is destroyed. Throws ServerError when another agent listens at `path`
   // or is starting, when there is something else than a socket, or when this cannot be found out;
   // ControlError when `path` is too long or empty.
   explicit SocketClaim(const std::string& path);
   SocketClaim(const SocketClaim&) = delete;
   SocketClaim& operator=(const SocketClaim&) = delete;
   // Removes the socket that `madeSocket` noted, if it still is at the path.
   ~SocketClaim();

   // Notes that this process has just made the socket at the path.
   void madeSocket();

 private:
   Pello::FileDescriptor lock_;
   std::string path_;
   // The socket by device and inode; both 0 before it is made.
   dev_t device_ = 0;
   ino_t inode_ = 0;
};

} // namespace Postcard::Agent::Service
