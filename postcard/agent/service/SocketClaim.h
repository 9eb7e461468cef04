// `SocketClaim`: the right to listen at a path, so that one path serves one agent. Relies on a lock
// file beside the socket, PATH.lock, which the kernel unlocks however the process ends; the file
// itself stays.
#pragma once

#include "Pello/FileDescriptor.h"

#include <string>

namespace Postcard::Agent::Service {

class SocketClaim {
 public:
   // Takes the lock, and removes the socket of an agent that was killed. Throws ServerError when
   // another agent listens at `path` or is starting, when `path` is something else than a socket,
   // or when none of this can be found out; ControlError for a path that no socket can have. The
   // lock is held until this object is destroyed.
   explicit SocketClaim(const std::string& path);

 private:
   Pello::FileDescriptor lock_;
};

} // namespace Postcard::Agent::Service
