// `ControlServer`: the agent's end of the control socket; see ControlSocket.h for the messages.
// Relies on the event loop, and on SocketClaim for the path.
//
// A client that does not send its line in time, or stops reading its answer, is disconnected. When
// the limit of connections is reached, further clients wait in the kernel's queue of the socket.
#pragma once

#include "postcard/agent/service/EventLoop.h"
#include "postcard/agent/service/SocketClaim.h"

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace Postcard::Agent::Service {

struct ControlLimits {
   std::size_t connections = 32;                  // served at a time, at least 1
   std::chrono::milliseconds requestTime{10'000}; // from the connection to the end of the line
   std::chrono::milliseconds answerTime{30'000};  // in which a client must read some of the answer
};

class ControlServer {
 public:
   // Returns the whole answer to a request line, given without its line end. Runs in the event
   // loop. Must not throw: the client would be disconnected without an answer.
   using Answerer = std::function<std::string(std::string_view line)>;

   // Listens at `path`; the file mode of the socket lets only the user of this process connect.
   // `loop` must outlive the server. Throws ServerError when another agent serves `path` or the
   // socket cannot be made, ControlError when `path` is too long or empty.
   ControlServer(EventLoop& loop, const std::string& path, ControlLimits limits, Answerer answerer);
   ControlServer(const ControlServer&) = delete;
   ControlServer& operator=(const ControlServer&) = delete;
   // Disconnects all clients and removes the socket; the lock file beside it stays.
   ~ControlServer();

 private:
   class Connection;
   struct Listener;

   void accept();
   void gone(Connection* connection);

   EventLoop& loop_;
   ControlLimits limits_;
   Answerer answerer_;
   SocketClaim claim_;
   Listener* listener_; // owned; deleted by libuv's callback when the handle is closed
   std::set<Connection*> connections_; // open ones; each deletes itself when it has been closed
   bool waiting_ = false;              // a client waits to be accepted until another goes
};

} // namespace Postcard::Agent::Service
