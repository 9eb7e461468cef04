#include "postcard/cli/shared/Descriptors.h"

#include "Pello/FileDescriptor.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <list>
#include <stdexcept>

namespace Postcard::Cli {

void requireDescriptors(std::size_t count) {
   // Opened in fact: a process may have inherited open files, so its limit alone says little.
   std::list<Pello::FileDescriptor> files;
   while (files.size() < count) {
      files.emplace_back(::open("/", O_PATH | O_CLOEXEC));
      if (files.back().get() < 0) {
         throw std::runtime_error{fmt::format(
               "this command needs {} file descriptors, and {} are free; raise the limit of the "
               "process (ulimit -n; LimitNOFILE= of a unit)",
               count, files.size() - 1)};
      }
   }
}

} // namespace Postcard::Cli
