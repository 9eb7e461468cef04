// `SocketClaim`: the right to listen at a path, so that no two agents serve the same path. Relies
// on a lock (flock(2)) on the file PATH.lock beside the socket, which the kernel releases however
// the process ends. The lock file itself is never removed: an agent that has opened it and one that
// makes a new file could otherwise both get a lock.
#pragma once

#include "Pello/FileDescriptor.h"

#include <string>

namespace Postcard::Agent::Service {

class SocketClaim {
 public:
   // Takes the lock, and removes the socket that a killed agent has left at `path`. The lock is
   // held until this object is destroyed. Throws ServerError when another agent listens at `path`
   // or is starting, when there is something else than a socket, or when this cannot be found out;
   // ControlError when `path` is too long or empty.
   explicit SocketClaim(const std::string& path);

 private:
   Pello::FileDescriptor lock_;
};

} // namespace Postcard::Agent::Service
