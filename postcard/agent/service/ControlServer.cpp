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

// One client. Deletes itself when libuv has closed its handle.
class ControlServer::Connection {
 public:
   Connection(ControlServer& server, EventLoop& loop)
      : server_{&server}, timer_{loop, [this] { timeUp(); }} {
      check(::uv_pipe_init(loop.handle(), &pipe_, 0), "socket");
      pipe_.data = this;
   }

   uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&pipe_); }

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

   void close() {
      if (server_ == nullptr) {
         return; // it is being closed
      }
      timer_.stop();
      ::uv_close(reinterpret_cast<uv_handle_t*>(&pipe_),
                 [](uv_handle_t* closed) { delete static_cast<Connection*>(closed->data); });
      std::exchange(server_, nullptr)->gone(this);
   }

 private:
   void received(ssize_t size) {
      if (size > 0) {
         request_.append(buffer_, static_cast<std::size_t>(size));
      }
      const std::size_t end = request_.find('\n');
      if (size < 0 && request_.empty()) {
         close();
      } else if (end != std::string::npos || size < 0 || request_.size() > longestRequest) {
         reply(std::string_view{request_}.substr(0, end));
      }
   }

   void reply(std::string_view line) {
      ::uv_read_stop(stream());
      answer_ = server_->answerer_(line);
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

   // A large answer may take its time, as long as the client goes on taking it.
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
   EventTimer timer_;
   std::string request_;
   std::string answer_;
   std::size_t left_ = 0; // bytes of the answer that were not taken at the latest look
   char buffer_[1024];
};

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
   waiting_ = false;
   while (!connections_.empty()) {
      (*connections_.begin())->close();
   }
   listener_->close();
}

// libuv asks for no further connection until this one is taken.
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

void ControlServer::gone(Connection* connection) {
   connections_.erase(connection);
   if (std::exchange(waiting_, false)) {
      accept();
   }
}

} // namespace Postcard::Agent::Service
