// `EventLoop`: the process's one event loop, with the timers, signals and descriptors that it
// serves. Relies on libuv, which only sources include.
//
// libuv is C, so no exception may pass through it. An exception that leaves a timer's, a signal's
// or a later function is written to standard error, and the loop goes on.
//
// Timers and signals may be destroyed at any time, even inside their own function. The loop must
// outlive them. All functions run on the thread that calls `run`, and all members must be called on
// that thread.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

struct uv_loop_s; // libuv's loop

namespace Postcard::Agent::Service {

// The agent cannot run: a socket, a signal or the loop cannot be had. The text says which and why.
class ServerError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Throws ServerError with `what` and the reason when `status`, a result of libuv, is negative.
void check(int status, const std::string& what);

// Runs `work` and says the message of its exception, if any (`say`, ErrorOutput.h). Anything else
// than a std::exception ends the process.
void guarded(const std::function<void()>& work) noexcept;

class EventLoop {
 public:
   // Throws ServerError.
   EventLoop();
   EventLoop(const EventLoop&) = delete;
   EventLoop& operator=(const EventLoop&) = delete;
   // Waits until libuv has closed every handle that is being closed. Functions that were given to
   // `later` and have not run are dropped.
   ~EventLoop();

   // Serves events until `stop` is called.
   void run();
   // Makes `run` return after the current round.
   void stop();
   // Runs `work` in the next round of the loop, in the order of the calls. What `work` itself gives
   // to `later` runs one round later still, so that a chain of such work cannot starve the sockets.
   void later(std::function<void()> work);

   // libuv's loop, for sources that use libuv. Owned by this object; never null.
   uv_loop_s* handle();

 private:
   struct Loop;
   std::unique_ptr<Loop> loop_;
};

// Runs a function once after a time, or again and again.
class EventTimer {
 public:
   // Keeps `work`; the timer does not run before it is started.
   EventTimer(EventLoop& loop, std::function<void()> work);
   EventTimer(const EventTimer&) = delete;
   EventTimer& operator=(const EventTimer&) = delete;
   ~EventTimer();

   // Runs the work once, `time` from now. Replaces what was started before.
   void start(std::chrono::milliseconds time);
   // Runs the work in the next round, and then once in every `period`, which is at least 1 ms.
   // Replaces what was started before.
   void startRepeating(std::chrono::milliseconds period);
   // The work does not run until the next start.
   void stop();

 private:
   struct Timer;
   Timer* timer_; // owned; deleted by libuv's callback when the handle is closed
};

// Runs a function whenever the process gets a signal. While the object lives, the signal has no
// other effect.
class EventSignal {
 public:
   // `number` is that of the signal, such as SIGHUP. `work` runs from the loop, not inside the
   // signal handler, so it may do anything. Throws ServerError when the signal cannot be caught.
   EventSignal(EventLoop& loop, int number, std::function<void()> work);
   EventSignal(const EventSignal&) = delete;
   EventSignal& operator=(const EventSignal&) = delete;
   ~EventSignal();

 private:
   struct Signal;
   Signal* signal_; // owned; deleted by libuv's callback when the handle is closed
};

// Runs a function whenever there is something to read from a file descriptor of somebody else.
class EventDescriptor {
 public:
   // `descriptor` must stay open as long as this object. `work` runs again and again until it has
   // read what is there. Throws ServerError when the descriptor cannot be watched.
   EventDescriptor(EventLoop& loop, int descriptor, std::function<void()> work);
   EventDescriptor(const EventDescriptor&) = delete;
   EventDescriptor& operator=(const EventDescriptor&) = delete;
   ~EventDescriptor();

 private:
   struct Descriptor;
   Descriptor* descriptor_; // owned; deleted by libuv's callback when the handle is closed
};

} // namespace Postcard::Agent::Service
