// `guardRing`: keeps the process alive when the file under the mapping of its ring is truncated.
// Relies on POSIX only.
//
// An access to a mapped page behind the end of its file raises SIGBUS, which ends a process that
// has no handler. A check of the size before each access could not help: the file may be truncated
// right after the check. Therefore `guardRing` installs a handler, which maps memory in place of
// the file, over the whole ring, and returns: the interrupted access is repeated and succeeds. No
// thread notices; what the threads write from then on goes nowhere until the owner of the ring asks
// `takeLoss` and puts a ring there again.
//
// The handler is for the whole process, as handlers of signals are. It acts on faults in the ring
// only. Everything else goes where it would have gone without it: to the handler that was there
// before, or to the default action, which ends the process. A handler that somebody installs later
// should do the same for this one; one that does not takes the protection away. The handler stays
// until the process ends, because a fault of another thread may be on its way to it at any moment.
// A thread that blocks SIGBUS has no protection: the kernel ends the process then, handler or not.
#pragma once

#include <cstddef>
#include <string>

namespace Ringlog::Detail {

// What has become of the bytes of the ring's file.
enum class Loss {
   none,
   cut,   // the file was truncated; it may hold a ring again once it has been made longer
   failed // the file is long enough, but its pages cannot be read or written: the disk fails
};

// Guards `size` bytes at `begin`, which must stay mapped until the process ends. The fault handler
// looks at the size of `file`, a descriptor that must stay open until `guardedFileIs`. The first
// loss of each kind writes a line about `path` to standard error, from the handler.
//
// Requires that no other mapping is guarded: a process has one ring.
void guardRing(std::byte* begin, std::size_t size, int file, const std::string& path);

// Replaces the descriptor. -1: the mapping is no longer shared with a file, so nothing that others
// would miss can be lost. The guard goes on without a word: pages of a private mapping that were
// never written still come from the file.
void guardedFileIs(int file) noexcept;

// The loss since the call before. Not `none`: the whole ring is memory, filled with zeros.
Loss takeLoss() noexcept;

} // namespace Ringlog::Detail
