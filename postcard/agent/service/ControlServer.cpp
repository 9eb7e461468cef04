#include "postcard/agent/service/ControlServer.h"

#include "postcard/agent/service/ControlSocket.h"

#include <memory>
#include <sys/stat.h>
#include <utility>
#include <uv.h>

namespace Postcard::Agent::Service {

namespace {

constexpr int longestQueue = 64; // connections that wait to be accepted

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

   // Disconnects the client. May be called several times.
   void close() {
      if (server_ == nullptr) {
         return; // it is being closed: libuv allows only one `uv_close`
      }
      timer_.stop();
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
      ::uv_read_stop(stream());           // one request per connection
      answer_ = server_->answerer_(line); // a member: libuv reads it until the write has ended
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
   EventTimer timer_;     // for the line, then for the answer
   std::string request_;  // as far as it has come
   std::string answer_;   // whole
   std::size_t left_ = 0; // bytes of the answer that had not been taken at the latest look
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
     listener_{new Listener{}} {
   ::uv_pipe_init(loop.handle(), &listener_->handle, 0); // cannot fail
   listener_->handle.data = this;
   // The mask, and not a later chmod: in between, others could connect if the process's mask lets
   // them.
   const mode_t before = ::umask(0177); // for the owner only
   int status = ::uv_pipe_bind(&listener_->handle, path.c_str());
   ::umask(before);
   if (status >= 0) {
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
      return;
   }
   auto* connection = new Connection{*this, loop_};
   connections_.insert(connection);
   if (::uv_accept(listener_->stream(), connection->stream()) < 0) {
      connection->close();
      return;
   }
   connection->begin();
}

// A connection is being closed, so there is room for one that waits.
void ControlServer::gone(Connection* connection) {
   connections_.erase(connection);
   if (std::exchange(waiting_, false)) {
      accept();
   }
}

} // namespace Postcard::Agent::Service
