// `Snapshots`: answers that take long are written by a child process, so that the event loop goes
// on. Relies on fork(2), on libuv's signals through `EventSignal`, and on a second thread in
// the child, which passes the answer on.
//
// A child sees the ACLs as they were at the moment of the fork, whatever the agent changes
// afterwards, so an answer is never a mixture of two states. The kernel copies only the memory that
// changes meanwhile. The child writes straight to its client and waits when the client does; when
// the client has gone, or takes nothing for too long, the child ends at once.
//
// The agent must have no other thread when it forks. What the child traces goes nowhere: its copy
// of the trace ring is its own (Ringlog/Ring.h), and its text traces are off.
#pragma once

#include "postcard/agent/service/EventLoop.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <sys/types.h>

namespace Postcard::Agent::Service {

// Writes an answer to a descriptor, which waits when the reader does. Runs in the child; what it
// throws ends the child, and the answer with it.
using WriteAnswer = std::function<void(int fd)>;

class Snapshots {
 public:
   static constexpr std::size_t most = 4; // children at a time; further ones wait for their turn

   // Called once from the event loop, when the child has ended. `failure` says why there was no
   // child; empty when there was one.
   using Ended = std::function<void(const std::string& failure)>;

   // Takes over SIGCHLD. `loop` must outlive the object. Throws ServerError.
   explicit Snapshots(EventLoop& loop);
   Snapshots(const Snapshots&) = delete;
   Snapshots& operator=(const Snapshots&) = delete;
   // Ends all children. Calls no `Ended`.
   ~Snapshots();

   // Has `head`, then what `write` writes, and then `endMark` sent to the connected socket
   // `client`, which stays open until `ended` is called or the number is cancelled. `patience` is
   // the time in which the client must take some of the answer. Returns a number for `cancel`.
   std::uint64_t begin(int client, std::chrono::milliseconds patience, std::string head,
                       WriteAnswer write, Ended ended);
   // Ends the child, or takes it from those that wait. Its `ended` is not called.
   void cancel(std::uint64_t number);

 private:
   struct Task {
      std::uint64_t number;
      int client;
      std::chrono::milliseconds patience;
      std::string head;
      WriteAnswer write;
      Ended ended;
   };

   void beginWaiting();
   void reap();

   EventLoop& loop_;
   std::uint64_t number_ = 0;      // of the latest task
   std::deque<Task> waiting_;      // oldest first
   std::map<pid_t, Task> running_; // by process
   EventSignal ended_;             // SIGCHLD
};

} // namespace Postcard::Agent::Service
