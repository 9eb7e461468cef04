#include "postcard/agent/service/ControlServer.h"

#include "postcard/agent/service/ControlSocket.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <utility>
#include <uv.h>

namespace Postcard::Agent::Service {

namespace {

constexpr int longestQueue = 64; // connections that wait to be accepted

using Clock = std::chrono::steady_clock;

// A socket at `path`, to which only the owner may connect. Not by libuv, which would remove
// whatever is at the path when it closes the socket.
int bindSocket(const std::string& path) {
   const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, path.data(), path.size()); // fits: see `SocketClaim`
   // The mask, and not a later chmod: in between, others could connect if the process's mask lets
   // them.
   const mode_t before = ::umask(0177);
   const int bound =
         fd < 0 ? -1 : ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
   const int error = errno;
   ::umask(before);
   if (bound != 0) {
      if (fd >= 0) {
         ::close(fd);
      }
      throw ServerError{path + ": " + std::strerror(error)};
   }
   return fd;
}

} // namespace

// One client: reads its line, writes the answer, closes. Lives on the heap, because libuv refers to
// the handle until it has closed it, which is later than `close`; then the object deletes itself.
class ControlServer::Connection {
 public:
   Connection(ControlServer& server, EventLoop& loop)
      : server_{&server}, timer_{loop, [this] { timeUp(); }} {
      check(::uv_pipe_init(loop.handle(), &pipe_, 0), "socket");
      pipe_.data = this;
   }

   uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&pipe_); }

   // Waits for the client's line.
   void begin() {
      timer_.start(server_->limits_.requestTime);
      ::uv_read_start(
            stream(),
            [](uv_handle_t* handle, std::size_t, uv_buf_t* target) {
               auto* self = static_cast<Connection*>(handle->data);
               *target = ::uv_buf_init(self->buffer_, sizeof self->buffer_);
            },
            [](uv_stream_t* from, ssize_t size, const uv_buf_t*) {
               guarded([&] { static_cast<Connection*>(from->data)->received(size); });
            });
   }

   // Whether the client has not sent its line yet.
   bool isSilent() const { return !answering_; }
   Clock::time_point since() const { return since_; }

   // Disconnects the client. May be called several times.
   void close() {
      if (server_ == nullptr) {
         return; // it is being closed: libuv allows only one `uv_close`
      }
      timer_.stop();
      self_.reset(); // an answer that comes now has no client
      if (snapshot_ != 0) {
         server_->snapshots_.cancel(snapshot_);
      }
      ::uv_close(reinterpret_cast<uv_handle_t*>(&pipe_),
                 [](uv_handle_t* closed) { delete static_cast<Connection*>(closed->data); });
      std::exchange(server_, nullptr)->gone(this);
   }

 private:
   // Takes `size` bytes of `buffer_`; a negative size means that the client has closed its writing
   // side, or an error.
   void received(ssize_t size) {
      if (size > 0) {
         request_.append(buffer_, static_cast<std::size_t>(size));
      }
      const std::size_t end = request_.find('\n');
      if (size < 0 && request_.empty()) {
         close(); // nothing was asked
      } else if (end != std::string::npos || size < 0 || request_.size() > longestRequest) {
         // A line may lack its end when it is the last one. A line that is too long is answered as
         // far as it has come, so that no client can fill the memory of the agent.
         reply(std::string_view{request_}.substr(0, end));
      }
   }

   // Answers `line`, a part of `request_`, and closes when the whole answer has been taken.
   void reply(std::string_view line) {
      ::uv_read_stop(stream()); // one request per connection
      answering_ = true;
      timer_.stop();
      const std::weak_ptr<Connection*> weak = self_;
      server_->answerer_(line, [weak](Answer answer) {
         if (const auto self = weak.lock()) {
            (*self)->respond(std::move(answer));
         }
      });
   }

   void respond(Answer answer) {
      self_.reset();
      if (answer.write == nullptr) {
         return send(std::move(answer.text));
      }
      int client = -1;
      ::uv_fileno(reinterpret_cast<const uv_handle_t*>(&pipe_), &client);
      // The child watches the client's patience.
      snapshot_ = server_->snapshots_.begin(
            client, server_->limits_.answerTime, std::move(answer.text), std::move(answer.write),
            [this](const std::string& failure) {
               snapshot_ = 0;
               failure.empty() ? close() : send("{\"exit\":3}\n" + failure + "\n");
            });
   }

   // Sends a whole short answer, and closes when it has been taken.
   void send(std::string answer) {
      answer_ = std::move(answer); // a member: libuv reads it until the write has ended
      left_ = answer_.size();
      timer_.start(server_->limits_.answerTime);
      const uv_buf_t part = ::uv_buf_init(answer_.data(), static_cast<unsigned>(answer_.size()));
      write_.data = this;
      const int status = ::uv_write(&write_, stream(), &part, 1, [](uv_write_t* done, int) {
         guarded([&] { static_cast<Connection*>(done->data)->close(); });
      });
      if (status < 0) {
         close();
      }
   }

   // The time for the line or for the answer is up. A client that has taken some of the answer
   // since the latest look gets the time once more: a large answer may need several.
   void timeUp() {
      const std::size_t left = ::uv_stream_get_write_queue_size(stream());
      if (left < left_) {
         left_ = left;
         timer_.start(server_->limits_.answerTime);
      } else {
         close();
      }
   }

   ControlServer* server_; // null: being closed
   uv_pipe_t pipe_{};
   uv_write_t write_{};
   EventTimer timer_; // for the line, then for the answer
   Clock::time_point since_ = Clock::now();
   // What the answer finds the connection by. Null when it has been answered or is being closed.
   std::shared_ptr<Connection*> self_ = std::make_shared<Connection*>(this);
   bool answering_ = false;     // the line has come
   std::uint64_t snapshot_ = 0; // the number of the child that answers; 0: there is none
   std::string request_;        // as far as it has come
   std::string answer_;         // whole
   std::size_t left_ = 0;       // bytes of the answer that had not been taken at the latest look
   char buffer_[1024];
};

// The listening socket. On the heap for the same reason as a connection.
struct ControlServer::Listener {
   uv_pipe_t handle;

   void close() {
      ::uv_close(reinterpret_cast<uv_handle_t*>(&handle), [](uv_handle_t* closed) {
         delete reinterpret_cast<Listener*>(closed); // its first member
      });
   }
   uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&handle); }
};

ControlServer::ControlServer(EventLoop& loop, const std::string& path, ControlLimits limits,
                             Answerer answerer)
   : loop_{loop},
     limits_{limits},
     answerer_{std::move(answerer)},
     claim_{path},
     snapshots_{loop},
     room_{loop, [this] { makeRoom(); }},
     listener_{nullptr} {
   const int fd = bindSocket(path);
   claim_.madeSocket();
   listener_ = new Listener{};
   ::uv_pipe_init(loop.handle(), &listener_->handle, 0); // cannot fail
   listener_->handle.data = this;
   int status = ::uv_pipe_open(&listener_->handle, fd);
   if (status < 0) {
      ::close(fd);
   } else {
      status = ::uv_listen(listener_->stream(), longestQueue, [](uv_stream_t* from, int error) {
         if (error >= 0) {
            guarded([&] { static_cast<ControlServer*>(from->data)->accept(); });
         }
      });
   }
   if (status < 0) {
      listener_->close();
      check(status, path);
   }
}

ControlServer::~ControlServer() {
   waiting_ = false; // or `gone` would accept the next client
   while (!connections_.empty()) {
      (*connections_.begin())->close();
   }
   listener_->close();
}

// libuv has a connection for us, and listens for no other one until `uv_accept` takes it. So not
// taking it is what makes further clients wait.
void ControlServer::accept() {
   waiting_ = connections_.size() >= limits_.connections;
   if (waiting_) {
      return makeRoom();
   }
   auto* connection = new Connection{*this, loop_};
   connections_.insert(connection);
   if (::uv_accept(listener_->stream(), connection->stream()) < 0) {
      connection->close();
      return;
   }
   connection->begin();
}

// Closes the connection that has been silent for the longest time, once that is long enough: a
// client that has just been accepted needs a moment for its line. Clients that connect and say
// nothing would otherwise keep everybody else out.
void ControlServer::makeRoom() {
   Connection* silent = nullptr;
   for (Connection* one : connections_) {
      if (one->isSilent() && (silent == nullptr || one->since() < silent->since())) {
         silent = one;
      }
   }
   if (!waiting_ || silent == nullptr) {
      return;
   }
   const auto left = silent->since() + limits_.silentTime - Clock::now();
   if (left > Clock::duration::zero()) {
      room_.start(std::chrono::ceil<std::chrono::milliseconds>(left));
   } else {
      silent->close();
   }
}

// A connection is being closed, so there is room for one that waits.
void ControlServer::gone(Connection* connection) {
   connections_.erase(connection);
   if (std::exchange(waiting_, false)) {
      accept();
   }
}

} // namespace Postcard::Agent::Service
