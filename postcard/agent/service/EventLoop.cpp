#include "postcard/agent/service/EventLoop.h"

#include "postcard/agent/service/ErrorOutput.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <unistd.h>
#include <utility>
#include <uv.h>
#include <vector>

namespace Postcard::Agent::Service {

namespace {

// Closes the handle of an object on the heap and deletes the object afterwards. libuv refers to a
// handle until the round of the loop in which it has closed it, so the object cannot go at once.
// That is also why it may be destroyed inside its own function.
template <class Owner>
void closeAndDelete(Owner* owner) {
   ::uv_close(reinterpret_cast<uv_handle_t*>(&owner->handle),
              [](uv_handle_t* closed) { delete static_cast<Owner*>(closed->data); });
}

// libuv ends the process when it has no descriptors for the pipe of its signals. So the three that
// it opens up to there are asked for beforehand. Throws ServerError.
void requireDescriptors() {
   std::array<int, 3> probes{-1, -1, -1};
   int error = 0;
   for (int& probe : probes) {
      probe = ::epoll_create1(EPOLL_CLOEXEC);
      error = probe < 0 ? -errno : error;
   }
   for (const int probe : probes) {
      if (probe >= 0) {
         ::close(probe);
      }
   }
   check(error, "event loop");
}

} // namespace

void check(int status, const std::string& what) {
   if (status < 0) {
      // The commonest reason has a remedy outside the agent.
      const char* advice = status == UV_EMFILE ? " (raise the limit of open files: ulimit -n)" : "";
      throw ServerError{what + ": " + ::uv_strerror(status) + advice};
   }
}

void guarded(const std::function<void()>& work) noexcept {
   try {
      work();
   } catch (const std::exception& error) {
      say("agent: " + std::string{error.what()});
   }
}

// ---- The loop ----

struct EventLoop::Loop {
   uv_loop_t loop{};
   uv_async_t wakeUp{}; // ends the loop's wait when `laters` gets its first function
   std::vector<std::function<void()>> laters; // in the order of the calls

   // Takes the list before running it: what the functions add belongs to the next round.
   void runLaters() {
      for (const auto& work : std::exchange(laters, {})) {
         guarded(work);
      }
   }
};

EventLoop::EventLoop() : loop_{std::make_unique<Loop>()} {
   requireDescriptors();
   check(::uv_loop_init(&loop_->loop), "event loop");
   loop_->wakeUp.data = loop_.get();
   const int status = ::uv_async_init(&loop_->loop, &loop_->wakeUp, [](uv_async_t* handle) {
      static_cast<Loop*>(handle->data)->runLaters();
   });
   if (status < 0) {
      ::uv_loop_close(&loop_->loop);
      check(status, "event loop");
   }
}

EventLoop::~EventLoop() {
   // `wakeUp` is the last handle that is open; libuv runs until it and those of destroyed objects
   // are closed. `uv_loop_close` requires that there is none left.
   ::uv_close(reinterpret_cast<uv_handle_t*>(&loop_->wakeUp), nullptr);
   ::uv_run(&loop_->loop, UV_RUN_DEFAULT);
   ::uv_loop_close(&loop_->loop);
}

void EventLoop::run() {
   ::uv_run(&loop_->loop, UV_RUN_DEFAULT);
}

void EventLoop::stop() {
   ::uv_stop(&loop_->loop);
}

void EventLoop::later(std::function<void()> work) {
   loop_->laters.push_back(std::move(work));
   ::uv_async_send(&loop_->wakeUp);
}

uv_loop_s* EventLoop::handle() {
   return &loop_->loop;
}

// ---- Timers ----

struct EventTimer::Timer {
   uv_timer_t handle;
   std::function<void()> work;

   static void run(uv_timer_t* handle) { guarded(static_cast<Timer*>(handle->data)->work); }
};

EventTimer::EventTimer(EventLoop& loop, std::function<void()> work)
   : timer_{new Timer{{}, std::move(work)}} {
   ::uv_timer_init(loop.handle(), &timer_->handle); // cannot fail
   timer_->handle.data = timer_;
}

EventTimer::~EventTimer() {
   closeAndDelete(timer_);
}

void EventTimer::start(std::chrono::milliseconds time) {
   ::uv_timer_start(&timer_->handle, &Timer::run, static_cast<std::uint64_t>(time.count()), 0);
}

void EventTimer::startRepeating(std::chrono::milliseconds period) {
   ::uv_timer_start(&timer_->handle, &Timer::run, 0, static_cast<std::uint64_t>(period.count()));
}

void EventTimer::stop() {
   ::uv_timer_stop(&timer_->handle);
}

// ---- Signals ----

struct EventSignal::Signal {
   uv_signal_t handle;
   std::function<void()> work;

   static void run(uv_signal_t* handle, int) { guarded(static_cast<Signal*>(handle->data)->work); }
};

EventSignal::EventSignal(EventLoop& loop, int number, std::function<void()> work)
   : signal_{new Signal{{}, std::move(work)}} {
   const int made = ::uv_signal_init(loop.handle(), &signal_->handle);
   if (made < 0) {
      delete signal_;
      check(made, "signal");
   }
   signal_->handle.data = signal_;
   const int started = ::uv_signal_start(&signal_->handle, &Signal::run, number);
   // From `uv_signal_init` on, libuv refers to the handle: it must be closed before it is deleted.
   if (started < 0) {
      closeAndDelete(signal_);
      check(started, "signal");
   }
}

EventSignal::~EventSignal() {
   closeAndDelete(signal_);
}

// ---- Descriptors ----

struct EventDescriptor::Descriptor {
   uv_poll_t handle;
   std::function<void()> work;

   static void run(uv_poll_t* handle, int, int) {
      guarded(static_cast<Descriptor*>(handle->data)->work);
   }
};

EventDescriptor::EventDescriptor(EventLoop& loop, int descriptor, std::function<void()> work)
   : descriptor_{new Descriptor{{}, std::move(work)}} {
   const int made = ::uv_poll_init(loop.handle(), &descriptor_->handle, descriptor);
   if (made < 0) {
      delete descriptor_;
      check(made, "descriptor of the rules client");
   }
   descriptor_->handle.data = descriptor_;
   ::uv_poll_start(&descriptor_->handle, UV_READABLE, &Descriptor::run); // cannot fail
}

EventDescriptor::~EventDescriptor() {
   closeAndDelete(descriptor_);
}

} // namespace Postcard::Agent::Service
