// `say`: writes a message of the agent to standard error. `ErrorOutput`: makes that free of waiting
// while the event loop runs. Relies on libuv and epoll(7).
//
// Standard error may be a pipe or a terminal that nobody reads. A write would then wait for ever,
// and the whole agent with it. While an `ErrorOutput` exists, what does not fit is kept in memory
// and written when there is room. The memory has a bound: beyond it, lines are dropped and counted,
// and the count is written once everything that was kept has been read. The text traces
// (Pello/TextTrace.h) go the same way.
#pragma once

#include "Pello/FileDescriptor.h"
#include "postcard/agent/service/EventLoop.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Postcard::Agent::Service {

// Writes `line` and a line end to standard error: through the `ErrorOutput` when there is one,
// otherwise directly, which may wait.
void say(const std::string& line);

class ErrorOutput {
 public:
   // Kept in memory at most, in bytes: some ten thousand lines.
   static constexpr std::size_t longestQueue = 1U << 20;

   // Takes over `say` and the text traces of the process. At most one object at a time. `loop` must
   // outlive it. Throws ServerError when there are no descriptors left.
   explicit ErrorOutput(EventLoop& loop);
   ErrorOutput(const ErrorOutput&) = delete;
   ErrorOutput& operator=(const ErrorOutput&) = delete;
   // Waits at most a second for somebody to read what is left.
   ~ErrorOutput();

   // Writes `text`, whole lines, or keeps or drops it.
   void write(std::string_view text);

 private:
   enum class Room : bool { none, some };
   struct Poll;

   void flush();
   Room writeKept();
   long put(std::string_view text) const;
   void startWaiting();

   Pello::FileDescriptor output_; // standard error; a description of its own where that is possible
   bool isSocket_ = false;
   std::string kept_;        // lines that wait to be written; the first may be cut at its beginning
   std::size_t dropped_ = 0; // lines since `kept_` was full
   Pello::FileDescriptor writable_; // an epoll instance that is readable when `output_` has room
   Poll* poll_;                     // owned; deleted by libuv's callback when the handle is closed
   bool isWaiting_ = false;         // `poll_` runs
};

} // namespace Postcard::Agent::Service
