// `EventLoop`: the process's one event loop, with the timers and signals that run on it. Relies on
// libuv, which only sources see. No exception of the work enters libuv, which is C: it is reported
// to standard error, and the loop goes on.
//
// Timers, signals and connections may be destroyed at any time, also inside their own work. The
// loop must outlive them. Everything runs on the thread that calls `run`.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

struct uv_loop_s; // libuv's loop

namespace Postcard::Agent::Service {

// The surroundings do not let the agent run; the text names the socket, signal or loop, and why.
class ServerError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Throws ServerError about `what` when `status`, a result of libuv, is negative.
void check(int status, const std::string& what);

// Writes `line` and a line end to standard error.
void say(const std::string& line);

// Runs `work`; writes the message of an exception to standard error.
void guarded(const std::function<void()>& work) noexcept;

class EventLoop {
 public:
   // Throws ServerError.
   EventLoop();
   EventLoop(const EventLoop&) = delete;
   EventLoop& operator=(const EventLoop&) = delete;
   // Waits until libuv has closed every handle that is being closed.
   ~EventLoop();

   // Serves events until `stop` is called.
   void run();
   // Ends `run` after the current round.
   void stop();
   // Runs the work in the next round of the loop, in the order of the calls. Work that is added
   // meanwhile runs one round later, so that busy work cannot starve the sockets.
   void later(std::function<void()> work);

   // For sources that use libuv; owned by this object.
   uv_loop_s* handle();

 private:
   struct Loop;
   std::unique_ptr<Loop> loop_;
};

class EventTimer {
 public:
   // The timer does not run yet.
   EventTimer(EventLoop& loop, std::function<void()> work);
   EventTimer(const EventTimer&) = delete;
   EventTimer& operator=(const EventTimer&) = delete;
   ~EventTimer();

   // Runs the work once after the time. Replaces what was started before.
   void start(std::chrono::milliseconds time);
   // Runs the work in the next round, and then in every period. Replaces what was started before.
   void startRepeating(std::chrono::milliseconds period);
   // Nothing runs any more until the next start.
   void stop();

 private:
   struct Timer;
   Timer* timer_; // owned; deleted by libuv's callback when the handle is closed
};

class EventSignal {
 public:
   // Runs the work at every such signal. Throws ServerError.
   EventSignal(EventLoop& loop, int number, std::function<void()> work);
   EventSignal(const EventSignal&) = delete;
   EventSignal& operator=(const EventSignal&) = delete;
   ~EventSignal();

 private:
   struct Signal;
   Signal* signal_; // owned; deleted by libuv's callback when the handle is closed
};

} // namespace Postcard::Agent::Service
