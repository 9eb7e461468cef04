#include "Clients.h"

#include "../Require.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace Fuzz {

Client::Client(const std::string& path)
   : socket_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)} {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   path.copy(address.sun_path, sizeof address.sun_path - 1);
   require(::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
                 0,
           "the server's queue has room for a few clients", std::strerror(errno));
}

void Client::send(std::string_view bytes) {
   if (sending_) {
      const ssize_t size = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      sent_ += bytes.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size));
   }
}

void Client::endSending() {
   sending_ = false;
   ::shutdown(socket_.get(), SHUT_WR);
}

bool Client::read() {
   char buffer[16384];
   ssize_t size = 0;
   while ((size = ::recv(socket_.get(), buffer, sizeof buffer, 0)) > 0) {
      answer_.append(buffer, static_cast<std::size_t>(size));
   }
   return size == 0 || errno != EAGAIN; // a reset is an end, too: the server left bytes unread
}

} // namespace Fuzz
