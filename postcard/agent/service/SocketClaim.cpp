#include "postcard/agent/service/SocketClaim.h"

#include "postcard/agent/service/ControlSocket.h"
#include "postcard/agent/service/EventLoop.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace Postcard::Agent::Service {

namespace {

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
   throw ServerError{path + ": " + why};
}

constexpr const char* another = "another agent is running";

// What to do about a socket in a folder that does not exist; empty when the folder does. A service
// manager makes /run/postcard; an agent that is started by hand finds nothing there after a boot.
std::string adviceAbout(const std::string& path) {
   const std::filesystem::path folder = std::filesystem::path{path}.parent_path();
   std::error_code unknown;
   if (folder.empty() || std::filesystem::exists(folder, unknown)) {
      return {};
   }
   return "; make the folder (mkdir -m 0750 " + folder.string() +
          "), or choose another socket with --socket PATH";
}

// Opens the lock file, and makes it when there is none.
int openLock(const std::string& path) {
   checkSocketPath(path); // before the path is used for anything
   const std::string lock = path + ".lock";
   // No symbolic links: in a folder where others may write, one could name any file.
   const int fd = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
   if (fd < 0) {
      refuse(lock, std::strerror(errno) + adviceAbout(path));
   }
   return fd;
}

// Whether a process listens at `path`. Only a refused connection proves that none does; a full
// queue, or a lack of rights or descriptors, does not.
bool isServed(const std::string& path) {
   const Pello::FileDescriptor socket{
         ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, path.data(), path.size());
   if (socket.get() >= 0 &&
       ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      return true;
   }
   switch (errno) {
   case ECONNREFUSED:
   case ENOENT:
      return false;
   case EAGAIN:
      return true;
   default:
      refuse(path,
             std::string{"cannot tell whether another agent is running: "} + std::strerror(errno));
   }
}

// Removes a socket at `path` that no process serves; refuses everything else that is there. Called
// with the lock held, so that no other agent does the same.
void clearStaleSocket(const std::string& path) {
   struct stat status {};
   if (::lstat(path.c_str(), &status) != 0) {
      return; // nothing is there; any other trouble shows when the socket is made
   }
   if (!S_ISSOCK(status.st_mode)) {
      refuse(path, "there is a file that is not a socket"); // perhaps the wrong path was given
   }
   // The lock alone does not say it: the program may be another one, which takes no lock.
   if (isServed(path)) {
      refuse(path, another);
   }
   ::unlink(path.c_str());
}

} // namespace

SocketClaim::SocketClaim(const std::string& path) : lock_{openLock(path)}, path_{path} {
   if (::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
      refuse(path, errno == EWOULDBLOCK ? another : std::strerror(errno));
   }
   clearStaleSocket(path);
}

SocketClaim::~SocketClaim() {
   struct stat status {};
   if (inode_ != 0 && ::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ &&
       status.st_ino == inode_) {
      ::unlink(path_.c_str());
   }
}

void SocketClaim::madeSocket() {
   struct stat status {};
   if (::lstat(path_.c_str(), &status) == 0) {
      device_ = status.st_dev;
      inode_ = status.st_ino;
   }
}

} // namespace Postcard::Agent::Service
