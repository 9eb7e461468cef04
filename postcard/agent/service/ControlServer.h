// `ControlServer`: the agent's end of the control socket; see ControlSocket.h for the messages.
// Relies on the event loop, on SocketClaim for the path, and on Snapshots for long answers.
//
// A client that does not send its line in time, or stops reading its answer, is disconnected. When
// the limit of connections is reached, the client that has been silent for the longest time makes
// room for the next one. When all clients are being answered, further ones wait in the kernel's
// queue of the socket.
#pragma once

#include "postcard/agent/service/EventLoop.h"
#include "postcard/agent/service/Snapshots.h"
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
   std::chrono::milliseconds silentTime{500};     // in which no client makes room for another
};

// The answer to a request.
struct Answer {
   std::string text;  // the header line, and the text when it is short
   WriteAnswer write; // writes a long text behind it, in a child process; null: there is none
};

// Takes the answer to a request. Calls after the first have no effect, nor has a call after the
// client has gone.
using Respond = std::function<void(Answer)>;

class ControlServer {
 public:
   // Answers a request line, given without its line end and valid during the call: calls `respond`
   // once, at once or later. Runs in the event loop. Must not throw: the client would wait for
   // ever.
   using Answerer = std::function<void(std::string_view line, Respond respond)>;

   // Listens at `path`; the file mode of the socket lets only the user of this process connect.
   // `loop` must outlive the server. Throws ServerError when another agent serves `path` or the
   // socket cannot be made, ControlError when `path` is too long or empty.
   ControlServer(EventLoop& loop, const std::string& path, ControlLimits limits, Answerer answerer);
   ControlServer(const ControlServer&) = delete;
   ControlServer& operator=(const ControlServer&) = delete;
   // Disconnects all clients and removes the socket, unless another one is at its path by now. The
   // lock file beside it stays.
   ~ControlServer();

 private:
   class Connection;
   struct Listener;

   void accept();
   void makeRoom();
   void gone(Connection* connection);

   EventLoop& loop_;
   ControlLimits limits_;
   Answerer answerer_;
   SocketClaim claim_;
   Snapshots snapshots_;
   EventTimer room_;    // until a silent client may make room
   Listener* listener_; // owned; deleted by libuv's callback when the handle is closed
   std::set<Connection*> connections_; // open ones; each deletes itself when it has been closed
   bool waiting_ = false;              // a client waits to be accepted until another goes
};

} // namespace Postcard::Agent::Service
