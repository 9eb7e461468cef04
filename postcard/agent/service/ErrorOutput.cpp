#include "postcard/agent/service/ErrorOutput.h"

#include "Pello/TextTrace.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <uv.h>

namespace Postcard::Agent::Service {

namespace {

ErrorOutput* present = nullptr; // null: messages are written directly

// As the default of the text trace writes it, which would wait.
std::string lineOf(const Pello::TraceRecord& record) {
   const Pello::TracePoint& point = *record.point;
   const char* scope = point.className[0] == '\0' ? "" : "::";
   return fmt::format("{} {} {}{}{}: {}\n", point.source->name(), point.level, point.className,
                      scope, point.functionName, record.text);
}

bool is(int fd, mode_t type) {
   struct stat status {};
   return ::fstat(fd, &status) == 0 && (status.st_mode & S_IFMT) == type;
}

// A descriptor for standard error that does not wait. The flag O_NONBLOCK belongs to the open file
// description, which this process shares with whoever started it. Therefore a pipe or a terminal is
// opened once more. A file keeps the shared description, for the sake of the common position;
// sockets cannot be opened, and have a flag per call.
int openAgain() {
   if (is(STDERR_FILENO, S_IFIFO) || is(STDERR_FILENO, S_IFCHR)) {
      const int fd = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
      if (fd >= 0) {
         return fd;
      }
   }
   return ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3); // -1 when standard error is closed
}

bool hasRoom(int fd, int milliseconds) {
   pollfd poll{fd, POLLOUT, 0};
   return ::poll(&poll, 1, milliseconds) > 0;
}

} // namespace

void say(const std::string& line) {
   if (present != nullptr) {
      present->write(line + "\n");
   } else {
      std::fputs((line + "\n").c_str(), stderr);
   }
}

// libuv would set O_NONBLOCK on the descriptor that it watches. It watches an epoll instance
// instead, which in turn watches the output.
struct ErrorOutput::Poll {
   uv_poll_t handle;
};

ErrorOutput::ErrorOutput(EventLoop& loop)
   : output_{openAgain()},
     isSocket_{is(output_.get(), S_IFSOCK)},
     writable_{::epoll_create1(EPOLL_CLOEXEC)},
     poll_{new Poll{}} {
   const int status = writable_.get() < 0
                            ? -errno
                            : ::uv_poll_init(loop.handle(), &poll_->handle, writable_.get());
   if (status < 0) {
      delete poll_;
      check(status, "standard error");
   }
   poll_->handle.data = this;
   epoll_event event{EPOLLOUT, {}};
   // Fails for a file, which always has room, and for a closed standard error.
   ::epoll_ctl(writable_.get(), EPOLL_CTL_ADD, output_.get(), &event);
   std::fflush(stderr);
   present = this;
   Pello::traceSinkIs([this](const Pello::TraceRecord& record) { write(lineOf(record)); });
}

ErrorOutput::~ErrorOutput() {
   Pello::traceSinkIs({});
   present = nullptr;
   const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{1};
   while (writeKept() == Room::none && std::chrono::steady_clock::now() < deadline) {
      hasRoom(output_.get(), 100);
   }
   ::uv_close(reinterpret_cast<uv_handle_t*>(&poll_->handle),
              [](uv_handle_t* closed) { delete reinterpret_cast<Poll*>(closed); }); // first member
}

void ErrorOutput::write(std::string_view text) {
   if (dropped_ > 0 || kept_.size() + text.size() > longestQueue) {
      // Nothing is kept until all of the queue has been read, so that the count stands where the
      // lines are missing.
      dropped_ += static_cast<std::size_t>(std::ranges::count(text, '\n'));
   } else {
      kept_ += text;
   }
   if (!isWaiting_) {
      flush();
   }
}

// Writes what there is room for, and has the event loop call again for the rest.
void ErrorOutput::flush() {
   if (writeKept() == Room::none) {
      return startWaiting();
   }
   if (isWaiting_) {
      ::uv_poll_stop(&poll_->handle);
      isWaiting_ = false;
   }
}

void ErrorOutput::startWaiting() {
   if (isWaiting_) {
      return;
   }
   isWaiting_ = ::uv_poll_start(&poll_->handle, UV_READABLE, [](uv_poll_t* handle, int, int) {
                   try {
                      static_cast<ErrorOutput*>(handle->data)->flush();
                   } catch (const std::bad_alloc&) {
                      return; // the next call, which comes as soon as there is room, tries again
                   }
                }) == 0;
}

// `Room::none` when something is left.
ErrorOutput::Room ErrorOutput::writeKept() {
   std::size_t written = 0;
   while (written < kept_.size() || dropped_ > 0) {
      if (written == kept_.size()) {
         kept_ = fmt::format("agent: {} lines are missing here: nobody read standard error\n",
                             std::exchange(dropped_, 0));
         written = 0;
      }
      const long size = put(std::string_view{kept_}.substr(written));
      if (size == 0) {
         kept_.erase(0, written);
         return Room::none;
      }
      if (size < 0) { // nobody will ever read it: the reader has gone, or the disk is full
         written = kept_.size();
         dropped_ = 0;
      } else {
         written += static_cast<std::size_t>(size);
      }
   }
   kept_.clear();
   return Room::some;
}

// Writes a part of `text`. Returns its size, 0 when there is no room now, -1 when there never will
// be. A pipe that could not be opened again is written in pieces that fit when there is room at
// all (pipe(7), PIPE_BUF).
long ErrorOutput::put(std::string_view text) const {
   ssize_t size = 0;
   if (isSocket_) {
      size = ::send(output_.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
   } else if (hasRoom(output_.get(), 0)) {
      size = ::write(output_.get(), text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
   }
   if (size >= 0) {
      return size;
   }
   return errno == EAGAIN || errno == EINTR || errno == ENOBUFS ? 0 : -1;
}

} // namespace Postcard::Agent::Service
