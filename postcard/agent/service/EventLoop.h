// `EventLoop`: the process's one event loop, with the timers and signals that run on it. Relies on
// libuv. Work never throws into libuv, which is C: what it throws is reported, and the loop goes
// on.
//
// Timers, signals and connections may go at any time, also within their own work; the loop must
// outlive them.
#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <uv.h>
#include <vector>

namespace Postcard::Agent::Service {

// The surroundings do not let the agent run: the socket, a signal, the event loop.
class ServerError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Throws ServerError about `what` when `status` is an error of libuv.
void check(int status, const std::string& what);

// Writes a line to standard error.
void say(const std::string& line);

// Runs `work` and says what it throws.
void guarded(const std::function<void()>& work) noexcept;

class EventLoop {
 public:
   // Throws ServerError.
   EventLoop();
   EventLoop(const EventLoop&) = delete;
   EventLoop& operator=(const EventLoop&) = delete;
   // Closes what is still being closed.
   ~EventLoop();

   // Until `stop`.
   void run();
   void stop();
   // Runs the work in the next round of the loop, in the order in which it came; what it adds runs
   // in the round after, so that busy work cannot starve the sockets.
   void later(std::function<void()> work);

   uv_loop_t* handle() { return &loop_; }

 private:
   void runLaters();

   uv_loop_t loop_{};
   uv_async_t wakeUp_{};
   std::vector<std::function<void()>> laters_;
};

class EventTimer {
 public:
   EventTimer(EventLoop& loop, std::function<void()> work);
   EventTimer(const EventTimer&) = delete;
   EventTimer& operator=(const EventTimer&) = delete;
   ~EventTimer();

   // Runs the work once after the time, or again and again. Replaces what was started before.
   void start(std::chrono::milliseconds time);
   void startRepeating(std::chrono::milliseconds period); // the first time at once
   void stop();

 private:
   struct Timer;
   Timer* timer_; // goes when libuv has closed it
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
   Signal* signal_; // goes when libuv has closed it
};

} // namespace Postcard::Agent::Service
