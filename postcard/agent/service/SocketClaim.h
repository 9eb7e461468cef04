// `SocketClaim`: the right to listen at a path, so that one path serves one agent. Relies on a lock
// file beside the socket, PATH.lock, which the kernel unlocks however the process ends; the file
// itself stays.
#pragma once

#include "Pello/FileDescriptor.h"

#include <string>

namespace Postcard::Agent::Service {

class SocketClaim {
 public:
   // Removes a socket that an agent has left which was killed. Throws ServerError when another
   // agent listens there or is about to, when something that is not a socket is in the way, or when
   // the surroundings do not let us tell; ControlError for a path that no socket can have.
   explicit SocketClaim(const std::string& path);

 private:
   Pello::FileDescriptor lock_;
};

} // namespace Postcard::Agent::Service
