// `ControlServer`: the agent's end of the control socket; see ControlSocket.h for the messages.
// Relies on the event loop, and on SocketClaim for the path.
//
// A client that does not send its line, or does not take its answer, is let go after some time.
// When as many are served as may be, the next ones wait outside until one goes.
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
   // What a request line is answered with.
   using Answerer = std::function<std::string(std::string_view line)>;

   // Listens at `path`, for the owner of this process only. Throws ServerError, ControlError.
   ControlServer(EventLoop& loop, const std::string& path, ControlLimits limits, Answerer answerer);
   ControlServer(const ControlServer&) = delete;
   ControlServer& operator=(const ControlServer&) = delete;
   // Lets all clients go and removes the socket.
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
   Listener* listener_; // goes when libuv has closed it
   std::set<Connection*> connections_;
   bool waiting_ = false; // somebody waits outside
};

} // namespace Postcard::Agent::Service
