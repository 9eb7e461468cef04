#include "postcard/cli/shared/ShowOutput.h"

#include "Pello/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Postcard::Cli {

namespace {

// Copies what comes from the pipe `from` to standard output until its other end is closed. Returns
// the first error of standard output (errno), or 0. After an error the rest is read and dropped,
// because the writer would block on a full pipe for ever.
int passOn(int from) {
   std::array<char, std::size_t{64} * 1024> buffer;
   int error = 0;
   while (true) {
      const ssize_t size = ::read(from, buffer.data(), buffer.size());
      if (size < 0 && errno == EINTR) {
         continue;
      }
      if (size <= 0) {
         return error;
      }
      std::string_view left{buffer.data(), static_cast<std::size_t>(size)};
      while (!left.empty() && error == 0) {
         const ssize_t written = ::write(STDOUT_FILENO, left.data(), left.size());
         if (written >= 0) {
            left.remove_prefix(static_cast<std::size_t>(written));
         } else if (errno != EINTR) {
            error = errno;
         }
      }
   }
}

template <class Function>
std::jthread startThread(Function run) {
   try {
      return std::jthread{std::move(run)};
   } catch (const std::system_error& failure) {
      // The limits that a new thread may hit: memory for its stack, and the number of threads.
      throw std::system_error{failure.code(), "no thread can be started for the show text; raise "
                                              "the limits of the process (ulimit -v and -u)"};
   }
}

} // namespace

void showOnStandardOutput(const std::function<void(U32 fd)>& show) {
   // When standard output is closed, one end of the pipe would get its number and be taken for it.
   if (::fcntl(STDOUT_FILENO, F_GETFD) < 0) {
      throw std::system_error{errno, std::generic_category(), "standard output"};
   }
   int ends[2];
   if (::pipe2(ends, O_CLOEXEC) != 0) {
      throw std::system_error{errno, std::generic_category(),
                              "a pipe for the show text cannot be made"};
   }
   int error = 0;
   {
      const Pello::FileDescriptor from{ends[0]};
      const std::jthread reader = startThread([&] { error = passOn(from.get()); });
      // Declared last, so closed first: the reader ends only when no writer is left, and then the
      // destructor of `reader` waits for it.
      const Pello::FileDescriptor to{ends[1]};
      show(static_cast<U32>(to.get()));
   }
   if (error != 0) {
      throw std::system_error{error, std::generic_category(), "standard output"};
   }
}

} // namespace Postcard::Cli
