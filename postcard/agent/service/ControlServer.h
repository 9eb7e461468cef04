// `ControlServer`: the agent's end of the control socket; see ControlSocket.h for the messages.
// Relies on the event loop, and on SocketClaim for the path.
//
// A client that does not send its line, or does not take its answer, is disconnected after some
// time. When the limit of connections is reached, further clients wait in the queue of the kernel.
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
   std::size_t connections = 32;                  // served at a time
   std::chrono::milliseconds requestTime{10'000}; // for a client to send its line
   std::chrono::milliseconds answerTime{30'000};  // for it to take some of the answer
};

class ControlServer {
 public:
   // Returns the whole answer to a request line, which comes without its end. Must not throw.
   using Answerer = std::function<std::string(std::string_view line)>;

   // Listens at `path`, for the owner of this process only. Throws ServerError, ControlError.
   ControlServer(EventLoop& loop, const std::string& path, ControlLimits limits, Answerer answerer);
   ControlServer(const ControlServer&) = delete;
   ControlServer& operator=(const ControlServer&) = delete;
   // Disconnects all clients and removes the socket.
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
   std::set<Connection*> connections_;
   bool waiting_ = false; // a client waits to be accepted until another goes
};

} // namespace Postcard::Agent::Service
