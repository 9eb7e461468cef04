// `Client`: the other end of the control socket, which sends what a fuzzer wants and keeps what
// comes back. Relies on POSIX; waits for nothing, because the server runs on the same thread.
#pragma once

#include "Pello/FileDescriptor.h"

#include <string>
#include <string_view>

namespace Fuzz {

class Client {
 public:
   // Connects to the server that listens at `path`, or will once it has room.
   explicit Client(const std::string& path);

   // Sends as much as the socket takes at once; `sent` says what that was.
   void send(std::string_view bytes);
   void endSending();
   // Reads what has come. Returns whether the server has closed the connection.
   bool read();

   const std::string& sent() const { return sent_; }
   const std::string& answer() const { return answer_; }

 private:
   Pello::FileDescriptor socket_;
   std::string sent_;
   std::string answer_;
   bool sending_ = true; // until `endSending`, or until the server reads no more
};

} // namespace Fuzz
